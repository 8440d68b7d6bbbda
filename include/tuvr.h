/* SPDX-License-Identifier: MIT */
/* The EPC URI library, libtuvr.so. */
#ifndef TARNWICK_TUVR_H
#define TARNWICK_TUVR_H

#ifdef __cplusplus
extern "C" {
#endif

/* Writes the EPC tag URI ("urn:epc:tag:...") or the pure identity URI
 * ("urn:epc:id:...") of an EPC (GS1 EPC Tag Data Standard, section 12).
 *
 * hex:    the EPC as NUL-terminated hexadecimal text, either case, two digits
 *         a byte.
 * size:   bytes that buffer can hold, the terminating NUL included.
 * buffer: receives the NUL-terminated URI; untouched on failure.
 *
 * Returns 0, or a non-zero code that tells the kind of failure. Any thread. */
int tuvr_hexToEpcTagUri(const char* hex, int size, char* buffer);
int tuvr_hexToEpcUri(const char* hex, int size, char* buffer);

#ifdef __cplusplus
}
#endif

#endif
