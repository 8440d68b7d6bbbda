// SPDX-License-Identifier: MIT
// Makes the tags of a scenario: their memories and places. RXE_connect makes those that are
// known by then, the radio thread those that arrive later, the control thread those that enter
// by an event. All functions depend on their arguments alone; any thread.
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
// The EPC by any scheme: SGTIN-96, SSCC-96, GRAI-96, GIAI-96 (GS1 TDS 1.13, sections 14.5.1 to
// 14.5.5), or the scenario's prefix with the serial number at the end. `serial` is below
// serialEnd.
std::vector<std::uint8_t> epcOf(const naming_s& naming, std::uint64_t serial);
// The first serial number that the scheme has no room for.
std::uint64_t serialEnd(const naming_s& naming);
// How many digits the item reference (with indicator) or asset type has next to this company
// prefix; 0 for a scheme that has neither.
std::size_t referenceDigits(const naming_s& naming);

// Any thread, on a tag that is not yet in the world. Gives the tag this EPC, 1 to 31 whole words, with the PC
// word (EPC Gen2 v2.0.1, table 6.16) and CRC that go with it and with the tag's USER bank, XPC and numbering.
void setEpc(std::span<const std::uint8_t> epc, tag_s* tag);

// Tag `number`, counted from 0 through all arrivals, of the scenario's group `groupIndex`, which
// enters at `enters`, microseconds of the engine's clock. The tag has no id yet; addTag gives it.
tag_s makeTag(const scenario_s& scenario, std::size_t groupIndex, std::uint64_t number, std::int64_t enters);

// The world at RXE_connect, with the tags of all groups that come once, also of those that enter
// later. Groups with arrivals have no tags yet.
world_s makeWorld(const scenario_s& scenario);

}  // namespace rxe
