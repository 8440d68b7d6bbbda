// SPDX-License-Identifier: MIT
// What differs between reader models, as one row for each. Nothing else in the
// daemon compares names of models: it asks the row for the one thing it needs.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "mode_config.hpp"

// Link profiles by environment (rows in the order of ENVIRONMENT_PARAMS_e) and
// channel width (columns: up to 500 kHz; 600; 1200; 1200 in Japan).
using link_profiles_t = std::array<std::array<std::uint16_t, 4>, ENVIRONMENT_PARAMs.size()>;

// A reader model. What a row leaves out is as on a reader of any other name.
struct reader_model_s {
    std::string_view name{};  // as in modelName
    // What the model is called once its radio is the ASIC, of firmware 2; empty
    // where that changes nothing.
    std::string_view asicName{};

    // Beams for antennas, and all that goes with them: the mode types, the heat map,
    // the heights and the echo of the elements, and facts that are built in. It has
    // neither names of ports, block writes, cable loss nor a limit of power on PoE.
    bool arrayReader = false;
    bool amplifierTemperature = true;  // of the power amplifier, told and warned of
    bool takesAntennaCount = false;    // the radio must be told how many antennas there are
    std::uint8_t gpis = 2;             // GPI ports; the engine has other records for four
    std::uint8_t triggerPorts = 0;     // that "startTrigger" may name; 0: any number

    // The delay after selects: whether a mode may ask for one, whether the engine's
    // document shows it, and whether every mode begins without it.
    bool setsDelayAfterSelects = false;
    bool showsDelayAfterSelects = false;
    bool clearsDelayAfterSelects = true;

    // Default of the delay between antenna cycles. Where it is NO_TAGS a mode may not
    // ask for NO_UNIQUE_TAGS, which not every firmware of that radio knows.
    antenna_delay_type_e antennaDelay = antenna_delay_type_e::NO_UNIQUE_TAGS;

    // In tenths of dBm: the default power of a mode, and the most that an antenna may
    // get on a PoE supply, under the standard "US FCC 15" and under any other.
    std::int16_t transmitPowerX10 = DEFAULT_TX_POWER_X10;
    std::int16_t poePowerX10FCC = 300;
    std::int16_t poePowerX10 = 300;

    const link_profiles_t* linkProfiles = nullptr;  // null: one profile for all environments
    bool linkProfilesNeedAutoDetect = false;        // they count only for a radio that can choose one itself
};

// The row of a name, compared exactly; for any other name the row without one. Any
// thread.
const reader_model_s& readerModel(std::string_view name);

// The row of this reader. Any thread, the tag path included: it only reads, a name
// that is fixed before the engine's callback is registered and rows that are
// constant, so that it needs no lock and costs a few comparisons of short texts.
const reader_model_s& thisModel();
