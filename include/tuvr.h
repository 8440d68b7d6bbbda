/* SPDX-License-Identifier: MIT */
/* The EPC URI library, libtuvr.so: the URIs of an EPC by the GS1 EPC Tag Data Standard
 * (section 6 the pure identity, section 12 the tag URI). The maker of such a library needs
 * this header and nothing else of the daemon.
 *
 * The daemon calls it for each tag that it reports while the mode asks for a URI, on the
 * thread that delivers the reads of the radio. So a call must not wait, and should not
 * allocate. It may come from any thread, and from several at the same time. */
#ifndef TARNWICK_TUVR_H
#define TARNWICK_TUVR_H

#ifdef __cplusplus
extern "C" {
#endif

/* Writes the EPC tag URI, "urn:epc:tag:sgtin-96:3.0614141.812345.6789", or the pure
 * identity URI, "urn:epc:id:sgtin:0614141.812345.6789", of an EPC.
 *
 *   3074257BF7194E4000001A85  is the EPC of both examples
 *
 * hex:    the EPC as NUL-terminated hexadecimal text, either case, two digits a byte,
 *         most significant byte first. The header of the EPC tells its scheme. Bits
 *         behind those of the scheme are ignored, because a tag sends whole words.
 * size:   bytes that buffer can hold, the terminating NUL included. The daemon gives
 *         1024.
 * buffer: receives the NUL-terminated URI. Owned by the caller, untouched on failure.
 *
 * Returns 0, or another number that stands for the kind of failure. The daemon writes it
 * into the report in place of the URI, as "failed to decode error %d", so a number should
 * never get another meaning. */
int tuvr_hexToEpcTagUri(const char* hex, int size, char* buffer);
int tuvr_hexToEpcUri(const char* hex, int size, char* buffer);

#ifdef __cplusplus
}
#endif

#endif
