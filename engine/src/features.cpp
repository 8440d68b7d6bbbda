// SPDX-License-Identifier: MIT
#include "features.hpp"

#include <algorithm>
#include <array>

namespace rxe {
namespace {

using feature_f = bool(const reader_s& reader);

// Whether the version is major.minor, with any patch.
bool isVersion(const REL_VERSION_s& version, int major, int minor) {
    return version.major == major && version.minor == minor;
}

// The first generation of the PN5100; firmware 2 runs on the later one.
bool isOldPn5100(const reader_s& reader) {
    return reader.model == reader_model_e::PN5100 && reader.firmware.major != 2;
}
bool isPn5100OrAny(const reader_s& reader) {
    return isOldPn5100(reader) || reader.model == reader_model_e::ANY;
}
// PN8200: its start and stop rules have four ports instead of two.
bool hasFourInputs(const reader_s& reader) {
    return reader.model == reader_model_e::PN8200 || reader.model == reader_model_e::ANY;
}
bool hasTwoInputs(const reader_s& reader) {
    return reader.model != reader_model_e::PN8200;
}
bool isArray(const reader_s& reader) {
    return reader.model == reader_model_e::QDX4400 || reader.model == reader_model_e::ANY;
}
bool delaysAfterSelects(const reader_s& reader) {
    return !isOldPn5100(reader);
}

// Firmware above these patches, by major and minor version.
bool checksAntennas(const reader_s& reader) {
    const REL_VERSION_s& firmware = reader.firmware;
    return (isVersion(firmware, 1, 4) && firmware.patch > 86) ||
           (isVersion(firmware, 2, 1) && firmware.patch > 32) ||
           (isVersion(firmware, 2, 2) && firmware.patch > 26);
}
// The RSSI threshold.
bool filtersByLevel(const reader_s& reader) {
    return isVersion(reader.firmware, 2, 1) && reader.firmware.patch > 40;
}
bool hasDynamicRange(const reader_s& reader) {
    return isVersion(reader.firmware, 2, 1) && reader.firmware.patch > 46;
}
bool knowsCableLoss(const reader_s& reader) {
    return isVersion(reader.firmware, 2, 1) && reader.firmware.patch >= 47 &&
           isVersion(reader.library, 2, 2) && reader.library.patch > 33;
}
bool delaysCycles(const reader_s& reader) {
    return !isVersion(reader.firmware, 2, 2) || reader.firmware.patch > 27;
}

// Parameter ids `first` to `last`, which only readers have for which `available` is true.
struct feature_s {
    std::uint16_t first;
    std::uint16_t last;
    feature_f* available;
};

// Ids that stand in none of these rows exist on every reader.
constexpr std::array features{
    feature_s{RXE_PARAM_NUM_ANTENNAS, RXE_PARAM_NUM_ANTENNAS, isPn5100OrAny},
    feature_s{RXE_PARAM_RADIO_STOP, RXE_PARAM_RADIO_STOP, hasTwoInputs},
    feature_s{RXE_PARAM_RADIO_STOP2, RXE_PARAM_RADIO_STOP2, hasFourInputs},
    feature_s{RXE_PARAM_GPIO_START, RXE_PARAM_GPIO_START, hasTwoInputs},
    feature_s{RXE_PARAM_GPIO_START2, RXE_PARAM_GPIO_START2, hasFourInputs},
    feature_s{RXE_PARAM_DYNAMIC_RANGE, RXE_PARAM_DYNAMIC_RANGE, hasDynamicRange},
    feature_s{RXE_PARAM_PEAK_THRESHOLD, RXE_PARAM_MONO_OR_COM, isArray},
    feature_s{RXE_PARAM_TX_DELAY_INTERVAL, RXE_PARAM_TX_DELAY_INTERVAL, delaysCycles},
    feature_s{RXE_PARAM_DELAY_AFTER_SELECTS, RXE_PARAM_DELAY_AFTER_SELECTS, delaysAfterSelects},
    feature_s{RXE_PARAM_RSSI_THRESHOLD, RXE_PARAM_RSSI_THRESHOLD, filtersByLevel},
    feature_s{RXE_PARAM_CABLE_LOSS, RXE_PARAM_CABLE_LOSS + 64, knowsCableLoss},
    feature_s{RXE_PARAM_ANTENNA_STATE, RXE_PARAM_ANTENNA_CHECK, checksAntennas},
    feature_s{RXE_PARAM_ECHO, RXE_PARAM_ECHO + int{RXE_MAX_CHANNELS}, isArray},
};

}  // namespace

bool hasParameter(const reader_s& reader, std::uint16_t id) {
    const auto feature = std::ranges::find_if(
        features, [&](const feature_s& row) { return id >= row.first && id <= row.last; });
    return feature == features.end() || feature->available(reader);
}

bool delaysAfterNoUniques(const reader_s& reader) {
    return !isOldPn5100(reader);
}

}  // namespace rxe
