// SPDX-License-Identifier: MIT
// The parameters that a run needs, copied in one piece, so that the radio takes the lock of the
// parameters once and not for each slot. The radio thread owns its plan and gathers it anew
// between two passes through the olios when a parameter has been written. An olio is one entry
// of the host's list: antennas, power, link profile, and which Selects, inventory set and
// accesses go with them.
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
    // 1 to RXE_MAX_OLIOS; the host knows the olio by it.
    std::uint16_t id = 0;
    OLIO_s olio = {};
    // Of the transmit antenna's cable, tenths of a dB; 0 for a beam.
    std::uint8_t cableLoss = 0;
    // Of the receive antenna's cable, tenths of a dB; 0 for a beam.
    std::uint8_t receiveLoss = 0;
    // The transmit antenna is a beam of the array.
    bool beam = false;
    // By the olio's link profile, of both directions.
    link_s link;
    // With `enable` 0 when the olio names a set that is not enabled, or none; then
    // plan_s::inventoryMissing is set.
    INVENTORY_OP_s inventory = {};
};

// An entry of the hopping table.
struct planned_channel_s {
    // 1 to RXE_MAX_CHANNELS; the channel id in tag packets.
    std::uint16_t number = 0;
    // kHz, 840000 to 960000.
    std::uint32_t frequency = 0;
    // Tenths of dBm; 0 when the channel has no limit of its own.
    std::uint16_t maxPower = 0;
};

// A Select, or a Challenge: then `select.enable` is other than 1. An olio names it by bit id-1
// of its mask.
struct planned_select_s {
    // 1 to RXE_MAX_SELECTS.
    std::uint8_t id = 0;
    SELECT_OP_s select = {};
};

// An access, which olios name in the same way.
struct planned_access_s {
    // 1 to RXE_MAX_ACCESSES; ACCESS_INFO packets carry it.
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
    // A read is reported when one of them matches its EPC, or when there are none.
    std::vector<REPORT_FILTER_ID_s> idFilters;
    // An olio names an inventory set that is not enabled; the run ends with an error.
    bool inventoryMissing = false;
    // When the run stops, with the rules of all four inputs.
    PER_RADIO_STOP2_s stop = {};
    // The start trigger; without a port in its mask the run begins at once.
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
    // Words of one block write, 1 to 255; a longer write takes several.
    std::uint8_t blockSize = 1;
    // Of the receiver: 0 low, 1 normal, 2 high. High costs 3 dB of sensitivity.
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

// Gathers the plan from the parameters and, for the reader's model, the world. Takes the lock
// of `params` once. Any thread.
plan_s gatherPlan(const world_s& world, params_s* params);
// One olio with what it refers to. The caller holds `params.mutex`.
planned_olio_s planOlio(const world_s& world, const params_s& params, std::uint16_t id, const OLIO_s& olio);

// What the olio transmits on a channel, tenths of dBm: its own power, or the channel's limit when
// that is less.
std::int16_t powerOn(const planned_channel_s& channel, const OLIO_s& olio);

// Whether the olio sends this Select or Challenge, by its bit mask.
bool sendsSelect(const planned_olio_s& planned, const planned_select_s& select);
// How long a Select or Challenge takes, with the pause T4 behind it, microseconds.
double selectTime(const link_s& link, const SELECT_OP_s& select);

}  // namespace rxe
