// SPDX-License-Identifier: MIT
// What the mode language allows and presets by reader model, in one place.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>

#include "mode_config.hpp"
#include "rxe_intfc.hpp"

struct mode_model_s {
    std::string_view name;
    // Beams for antennas, the types and the heat map made of them; neither names of
    // ports nor block writes.
    bool arrayReader;
    std::int16_t transmitPowerX10;      // default
    std::uint8_t gpiPorts;              // of a GPI object
    std::uint8_t triggerPorts;          // of "startTrigger"; 0: any number
    bool delayAfterSelects;             // the radio has one
    antenna_delay_type_e antennaDelay;  // default; without NO_UNIQUE_TAGS the radio cannot tell new tags
};

inline constexpr std::array modeModels{
    mode_model_s{"PN5100", false, DEFAULT_TX_POWER_X10, 2, 2, false, antenna_delay_type_e::NO_TAGS},
    mode_model_s{"PN8200", false, DEFAULT_TX_POWER_X10, 4, 4, true, antenna_delay_type_e::NO_UNIQUE_TAGS},
    mode_model_s{"QDX4400", true, DEFAULT_TX_POWER_X10_QDX, 2, 2, false,
                 antenna_delay_type_e::NO_UNIQUE_TAGS},
};
// Any other, "PN5100-ASIC" and none among them.
inline constexpr mode_model_s otherModeModel{
    "", false, DEFAULT_TX_POWER_X10, 2, 0, false, antenna_delay_type_e::NO_UNIQUE_TAGS};

// The row of this reader. Main thread.
inline const mode_model_s& thisModel() {
    const auto* row = std::ranges::find(modeModels, modelName, &mode_model_s::name);
    return row != modeModels.end() ? *row : otherModeModel;
}
