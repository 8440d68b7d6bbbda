// SPDX-License-Identifier: MIT
// An EPC as bits, read from the most significant on. Any thread; nothing is allocated.
//
//   "3074257BF7194E4000001A85"  ->  00110000 011 101 000010010101111011 ...  count 96
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "tuvr_status.h"

struct bits_s {
    // The longest scheme (adi-var) has 434 bits; readHex drops what comes after 512. Bytes behind
    // `count` are not initialised.
    std::array<std::uint8_t, 64> bytes;
    // Bits that may be read, at most 512: those of the text, or fewer when the scheme is shorter.
    std::size_t count;
    // The next bit to read, 0 to count.
    std::size_t at;
};

// Fills `*bits` from NUL-terminated text, either case, two digits a byte. TUVR_BAD_HEX for any
// other character, also in the part that is dropped; TUVR_WRONG_LENGTH for an empty text or an
// odd number of digits. After a failure `*bits` must not be read.
tuvr_status_e readHex(const char* hex, bits_s* bits);

// Takes the next `width` bits (0 to 64) as a number, most significant first. False when fewer
// are left; then nothing is taken.
bool takeBits(bits_s* bits, unsigned width, std::uint64_t* value);
