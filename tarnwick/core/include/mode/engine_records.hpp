// SPDX-License-Identifier: MIT
// What the parsers of a mode make for the engine: its records, and the masks over them.
// Any thread.
#pragma once

#include <cstddef>
#include <cstdint>

#include "mode/record.hpp"

// The bit of access position `index` (from 0) in an access mask. The mask is 64
// bits wide but its bits come of a 32-bit shift that is sign-extended, and that
// has become part of what a mode means: position 31 sets bit 31 and the whole
// upper word, positions from 32 on set nothing.
std::uint64_t accessMaskBit(std::size_t index);

// The engine's form of one access. A WRITE of one word carries the word in
// `wordCount`, a READ its word count in both bytes of it. Returns -1 and leaves
// *op as it is for a WRITE of no word or more than MODE_MAX_WRITE_WORDS, and for
// an unknown type.
int accessStructToAccessOpStruct(const ACCESS_CMD_S* access, ACCESS_OP_s* op);

// Q for an expected number of tags: its logarithm to base 2, truncated, at most
// MODE_MAX_INITIAL_Q; 0 for 0.
std::uint8_t initialQForPopulation(std::uint32_t tagPopulation);
