// SPDX-License-Identifier: MIT
// An EPC as bits, read from the most significant on.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "tuvr_status.h"

struct bits_s {
    // The longest code has 434 bits; what a tag delivers beyond is dropped.
    std::array<std::uint8_t, 64> bytes;
    std::size_t count;  // bits that may be read, at most 512
    std::size_t at;     // the next bit to read
};

// Fills `*bits` from NUL-terminated text. All of the text must be digits, also
// the part that is dropped.
tuvr_status_e readHex(const char* hex, bits_s* bits);

// Takes the next `width` bits (0 to 64) as a number. False when fewer are left.
bool takeBits(bits_s* bits, unsigned width, std::uint64_t* value);
