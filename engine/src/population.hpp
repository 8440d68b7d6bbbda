// SPDX-License-Identifier: MIT
// The tags in front of the antennas: what stands in their memories and where
// they are. Made once, at RXE_connect; the radio thread only reads it.
#ifndef ENGINE_POPULATION_HPP
#define ENGINE_POPULATION_HPP

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "scenario.hpp"

namespace rxe {

struct tag_s {
    std::array<std::uint8_t, 62> epc{};
    std::uint16_t epcBits = 96;  // a multiple of 16
    std::uint16_t pc = 0;
    std::uint16_t crc = 0;  // over PC and EPC, as the tag backscatters it
    std::vector<std::uint8_t> tid;
    std::uint64_t place = 0;  // where the tag is, as bits that the geometry is drawn from
};

// A 96-bit SGTIN (GS1 TDS 1.13, section 14.5.1) with this serial number, below 2^38.
std::array<std::uint8_t, 12> sgtin96(const sgtin_s& item, std::uint64_t serial);

// PC word (EPC Gen2 v2.0.1, table 6.16) and CRC for the EPC that the tag holds.
void finishTag(tag_s* tag);

std::vector<tag_s> makePopulation(const scenario_s& scenario);

}  // namespace rxe

#endif
