// SPDX-License-Identifier: MIT
// The air between an antenna and the tags: who answers, how strongly, and
// which of its memories a tag gives away. Radio thread only.
#ifndef ENGINE_AIR_HPP
#define ENGINE_AIR_HPP

#include <cstdint>
#include <span>
#include <vector>

#include "plan.hpp"
#include "population.hpp"
#include "random.hpp"

namespace rxe {

// A tag that has enough power and is heard, as one olio sees it.
struct heard_tag_s {
    std::uint32_t tag = 0;  // index into the population
    float metres = 0;       // from the antenna
    std::int8_t rssi = 0;   // dBm
    std::int16_t x = 0;     // tenths of a metre
    std::int16_t y = 0;
    std::uint16_t azimuth = 0;    // tenths of a degree
    std::uint16_t elevation = 0;  // tenths of a degree
};

// The tags that answer in this olio, weaker ones than `rssiThreshold` (dBm)
// left out. Empty when the antenna is not connected.
std::vector<heard_tag_s> heardTags(const std::vector<tag_s>& tags, const planned_olio_s& planned,
                                   std::int8_t rssiThreshold);

// Phase of the backscatter in radians, 0 to 2 pi; `frequency` in kHz.
float backscatterPhase(float metres, std::uint32_t frequency);

// What a tag answers to an access.
struct access_answer_s {
    std::uint8_t result = RXE_ACCESS_RESULT_OK;
    std::vector<std::uint8_t> data;
};
access_answer_s answerAccess(const tag_s& tag, const ACCESS_OP_s& access);

}  // namespace rxe

#endif
