// SPDX-License-Identifier: MIT
#include "reader_facts.hpp"

#include <algorithm>

// Written by the main thread while the engine connects, read by every thread afterwards.
reader_facts_s readerFacts;

namespace {

// Rows by environment, columns by channel width (link_profiles_t). The numbers are those of
// RXE_LINK_PROFILES; the last row, NOT_USED, is never asked for.
constexpr link_profiles_t linkProfiles8200{{
    {814, 814, 1617, 502},
    {508, 914, 1717, 502},
    {501, 908, 913, 502},
    {3, 4, 5, 502},
    {1519, 814, 1617, 502},
    {201, 201, 201, 201},
}};
constexpr link_profiles_t linkProfiles5100{{
    {814, 814, 201, 202},
    {508, 914, 201, 202},
    {501, 908, 201, 202},
    {3, 4, 201, 202},
    {1519, 814, 201, 202},
    {201, 201, 201, 201},
}};
// Only channels of up to 500 kHz have profiles of their own; the others have 201, which is also the
// default of a mode.
constexpr link_profiles_t linkProfilesArray{{
    {408, 201, 201, 201},
    {501, 201, 201, 201},
    {201, 201, 201, 201},
    {3, 201, 201, 201},
    {814, 201, 201, 201},
    {201, 201, 201, 201},
}};

// A row has what differs from reader_model_s.
constexpr std::array models{
    reader_model_s{
        .name = "PN5100",
        .asicName = "PN5100-ASIC",
        .takesAntennaCount = true,
        .triggerPorts = 2,
        .clearsDelayAfterSelects = false,
        .antennaDelay = antenna_delay_type_e::NO_TAGS,
        .linkProfiles = &linkProfiles5100,
    },
    // For the radio it is a reader of its own. The mode language does not know it, and treats it
    // as a reader without a row.
    reader_model_s{
        .name = "PN5100-ASIC",
        .showsDelayAfterSelects = true,
        .linkProfiles = &linkProfiles8200,
    },
    reader_model_s{
        .name = "PN8200",
        .gpis = 4,
        .triggerPorts = 4,
        .setsDelayAfterSelects = true,
        .showsDelayAfterSelects = true,
        .poePowerX10FCC = 315,
        .linkProfiles = &linkProfiles8200,
    },
    reader_model_s{
        .name = "QDX4400",
        .arrayReader = true,
        .amplifierTemperature = false,
        .triggerPorts = 2,
        .transmitPowerX10 = DEFAULT_TX_POWER_X10_QDX,
        .linkProfiles = &linkProfilesArray,
        .linkProfilesNeedAutoDetect = true,
    },
};
}  // namespace

const reader_model_s& readerModel(std::string_view name) {
    const auto* row = std::ranges::find(models, name, &reader_model_s::name);
    return row != models.end() ? *row : otherModel;
}

void setModelName(std::string_view name) {
    readerFacts.modelName = name;
    readerFacts.model = &readerModel(name);
}

std::uint16_t getMaxAnts() {
    return readerFacts.max_ants;
}

bool isValidAntenna(std::uint32_t antenna) {
    return thisModel().arrayReader || antenna <= readerFacts.max_ants;
}
