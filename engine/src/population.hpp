// SPDX-License-Identifier: MIT
// The tags that a scenario speaks of, made into what stands in front of the
// antennas: their memories and places. RXE_connect makes those that are known
// by then, the radio thread those that arrive later.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "scenario.hpp"
#include "world.hpp"

namespace rxe {

// A 96-bit SGTIN (GS1 TDS 1.13, section 14.5.1) with this serial number, below 2^38.
std::array<std::uint8_t, 12> sgtin96(const sgtin_s& item, std::uint64_t serial);
// The same by any scheme (sections 14.5.1 to 14.5.5, or a prefix of the scenario's). `serial` is
// below serialEnd.
std::vector<std::uint8_t> epcOf(const naming_s& naming, std::uint64_t serial);
// The first serial number that the scheme has no room for.
std::uint64_t serialEnd(const naming_s& naming);
// Digits of the item reference or asset type by scheme; 0 where there is none.
std::size_t referenceDigits(const naming_s& naming);

// Any thread, on a tag that is not yet in the world. Gives the tag this EPC, 1 to 31 whole words, with the PC
// word (EPC Gen2 v2.0.1, table 6.16) and CRC that go with it and with the tag's USER bank, XPC and numbering.
void setEpc(std::span<const std::uint8_t> epc, tag_s* tag);

// Tag `number` of a group, counted from 0 through all arrivals, as it comes at
// `enters`, for a group that is the `groupIndex`th of the scenario.
tag_s makeTag(const scenario_s& scenario, std::size_t groupIndex, std::uint64_t number, std::int64_t enters);

// The world as RXE_connect finds it, with the tags of all groups that come once.
world_s makeWorld(const scenario_s& scenario);

}  // namespace rxe
