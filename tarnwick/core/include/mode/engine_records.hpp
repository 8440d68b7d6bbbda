// SPDX-License-Identifier: MIT
// What the parsers of a mode make for the engine: its records, and the masks over them.
// Any thread.
#pragma once

#include <cstddef>
#include <cstdint>

#include "mode/record.hpp"

// The bit of access position `index` (from 0) in an access mask of 64 bits. Quirk: the bits
// come from a 32-bit shift that is sign-extended: position 31 sets bit 31 and the whole
// upper word, positions from 32 on set nothing. Modes rely on it.
std::uint64_t accessMaskBit(std::size_t index);

// The engine's form of one access. A WRITE of one word has the word in
// `wordCount`, a READ its word count in both bytes of it. Returns -1 and leaves
// *op as it is for a WRITE without words or with more than MODE_MAX_WRITE_WORDS, and
// for an unknown type.
int accessStructToAccessOpStruct(const ACCESS_CMD_S* access, ACCESS_OP_s* op);

// The initial Q of the Query (EPC Gen2, 6.3.2.12.2.1) for an expected number of tags: its
// logarithm to base 2, truncated, at most MODE_MAX_INITIAL_Q; 0 for 0. A round has 2^Q slots, and
// most tags are read when there are as many slots as tags.
std::uint8_t initialQForPopulation(std::uint32_t tagPopulation);
