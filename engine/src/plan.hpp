// SPDX-License-Identifier: MIT
// What the radio works by during a run: the parameters that matter to it,
// gathered in one piece, so that the radio takes the lock of the parameters once
// and not for each slot. The radio thread owns its plan and gathers it anew
// between two passes through the olios when a parameter has been written.
//
// Records are as rxe.h has them; only enabled ones are here.
#pragma once

#include <cstdint>
#include <vector>

#include "params.hpp"
#include "rxe.h"
#include "timing.hpp"

namespace rxe {

// An olio with all that its record refers to.
struct planned_olio_s {
    // 1 to RXE_MAX_OLIOS
    std::uint16_t id = 0;
    OLIO_s olio = {};
    // Of the transmit antenna's cable, tenths of a dB; 0 for a beam.
    std::uint8_t cableLoss = 0;
    // Of the receive antenna's cable, tenths of a dB; 0 for a beam.
    std::uint8_t receiveLoss = 0;
    // The transmit antenna is a beam of the array.
    bool beam = false;
    link_s link;
    // Not enabled when the olio names a set that is not: the plan says that one is missing.
    INVENTORY_OP_s inventory = {};
};

// An entry of the hopping table.
struct planned_channel_s {
    // 1 to RXE_MAX_CHANNELS, as tag packets name it
    std::uint16_t number = 0;
    // kHz
    std::uint32_t frequency = 0;
    // Tenths of dBm; 0 when the channel has no limit of its own.
    std::uint16_t maxPower = 0;
};

// A Select, or a Challenge: then `select.enable` is other than 1.
struct planned_select_s {
    std::uint8_t id = 0;
    SELECT_OP_s select = {};
};

struct planned_access_s {
    std::uint8_t id = 0;
    ACCESS_OP_s access = {};
};

struct plan_s {
    // The count of writes (params_s::generation) at which the plan was gathered.
    std::uint64_t generation = 0;
    // By id, channels by number, which is the order in which the radio goes through
    // olios, Selects and accesses. Channels are shuffled afterwards.
    std::vector<planned_olio_s> olios;
    std::vector<planned_channel_s> channels;
    std::vector<planned_select_s> selects;
    std::vector<planned_access_s> accesses;
    std::vector<REPORT_FILTER_ID_s> idFilters;
    // An olio names an inventory set that is not enabled; the run ends with an error.
    bool inventoryMissing = false;
    PER_RADIO_STOP2_s stop = {};
    GPIO_START2_s start = {};
    REPORT_FILTER_LAST_REPORT_s lastReport = {};
    // RXE_FIELD_ bits of a custom tag packet.
    std::uint32_t fields = 0;
    // dBm; a weaker reply is not noticed.
    std::int8_t rssiThreshold = 0;
    // With a start trigger, other than 0: the radio waits for the trigger again after a run.
    std::uint8_t autorestart = 0;
    // Each round has a channel of its own.
    bool hopPerRound = false;
    // 0 never rests, 1 after a pass without reads, 2 after a pass without new tags.
    std::uint8_t txDelayType = 0;
    // How long the radio rests then, milliseconds.
    std::uint8_t txDelayMs = 0;
    // From the last Select to the Query, microseconds.
    std::uint16_t delayAfterSelects = 0;
    // Words of one block write, 1 or more.
    std::uint8_t blockSize = 1;
    // Of the receiver: 0 low, 1 normal, 2 high.
    std::uint8_t dynamicRange = 1;
    // Ports that the reader has; those above transmit nothing.
    std::uint16_t antennaCount = 0;
    // dB that a level has to have for a bearing: above what the link decodes, or with
    // `staticThreshold` above a fixed level.
    std::uint8_t peakThreshold = 0;
    bool staticThreshold = false;
    // Bearings are the centre of mass of the beams' levels; else by monopulse.
    bool centreOfMass = false;
    // Heights of array and tags above the floor, tenths of the host's unit of length.
    std::uint16_t arrayHeight = 0;
    std::uint16_t tagHeight = 0;
};

// Gathers the plan as the parameters stand. Takes the lock of `params` once; any thread.
plan_s gatherPlan(const world_s& world, params_s* params);

// Whether the olio sends this Select or Challenge, by its bit mask.
bool sendsSelect(const planned_olio_s& planned, const planned_select_s& select);
// How long it takes, with the pause behind it, microseconds.
double selectTime(const link_s& link, const SELECT_OP_s& select);

}  // namespace rxe
