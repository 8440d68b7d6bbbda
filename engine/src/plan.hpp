// SPDX-License-Identifier: MIT
// What the radio works by during a run: the parameters that matter to it,
// gathered in one piece. The radio thread owns its plan and gathers it anew
// between two passes through the olios when a parameter has been written.
#ifndef ENGINE_PLAN_HPP
#define ENGINE_PLAN_HPP

#include <cstdint>
#include <vector>

#include "params.hpp"
#include "rxe.h"
#include "timing.hpp"

namespace rxe {

struct planned_olio_s {
    std::uint16_t id = 0;
    OLIO_s olio = {};
    std::uint8_t cableLoss = 0;    // tenths of a dB, of the transmit antenna
    std::uint8_t receiveLoss = 0;  // and of a receive antenna of its own
    bool beam = false;             // the transmit antenna is a beam of the array
    link_s link;
    INVENTORY_OP_s inventory = {};  // enabled, or the plan says that one is missing
};

struct planned_channel_s {
    std::uint16_t number = 0;
    std::uint32_t frequency = 0;  // kHz
    std::uint16_t maxPower = 0;   // tenths of dBm, 0 for no limit of its own
};

struct planned_select_s {
    std::uint8_t id = 0;
    SELECT_OP_s select = {};  // `enable` other than 1: a Challenge
};

struct planned_access_s {
    std::uint8_t id = 0;
    ACCESS_OP_s access = {};
};

struct plan_s {
    std::uint64_t generation = 0;
    std::vector<planned_olio_s> olios;        // enabled ones, by id
    std::vector<planned_channel_s> channels;  // enabled ones, by number
    std::vector<planned_select_s> selects;    // enabled ones, by id
    std::vector<planned_access_s> accesses;   // enabled ones, by id
    std::vector<REPORT_FILTER_ID_s> idFilters;
    bool inventoryMissing = false;  // an olio names an inventory set that is not enabled
    PER_RADIO_STOP2_s stop = {};
    GPIO_START2_s start = {};
    REPORT_FILTER_LAST_REPORT_s lastReport = {};
    std::uint32_t fields = 0;
    std::int8_t rssiThreshold = 0;  // dBm
    std::uint8_t autorestart = 0;
    bool hopPerRound = false;
    std::uint8_t txDelayType = 0;
    std::uint8_t txDelayMs = 0;
    std::uint16_t delayAfterSelects = 0;  // microseconds
    std::uint8_t blockSize = 1;           // words of one block write, 1 or more
    std::uint8_t dynamicRange = 1;        // 0 low, 1 normal, 2 high
    std::uint16_t antennaCount = 0;       // ports that the reader has
    std::uint8_t peakThreshold = 0;       // dB
    bool staticThreshold = false;         // it counts from a fixed level
    bool centreOfMass = false;            // bearings by the centre of mass, else by monopulse
    std::uint16_t arrayHeight = 0;        // tenths of the host's unit of length, as the tags'
    std::uint16_t tagHeight = 0;
};

plan_s gatherPlan(const world_s& world, params_s* params);

}  // namespace rxe

#endif
