// SPDX-License-Identifier: MIT
// The values that a mode starts from, by mode type and reader model.
#include <numeric>

#include "mode/beams.hpp"
#include "mode/defaults.hpp"
#include "mode/record.hpp"
#include "reader_facts.hpp"

namespace {
// ms on each of `antennas` antennas so that a cycle takes a second.
std::uint16_t cycleShare(std::size_t antennas) {
    const std::size_t share = 1000 / std::max<std::size_t>(antennas, 1);
    return static_cast<std::uint16_t>(std::max<std::size_t>(share, MIN_ANTENNA_STOP_DURATION));
}

// All ports, or on the array reader a cycle of beams.
std::vector<std::uint32_t> defaultAntennas() {
    if (thisModel().arrayReader) {
        return {DEFAULT_BEAMS_QDX.begin(), DEFAULT_BEAMS_QDX.end()};
    }
    std::vector<std::uint32_t> ports(getMaxAnts());
    std::iota(ports.begin(), ports.end(), 1U);
    return ports;
}

// The part that every overlay has: it sets the record to the row of the type.
template <MODE_TYPE_e type>
void applyModeType(mode_configuration_s* mode) {
    constexpr const mode_type_s* row = findModeType(type);
    mode->modeType = row->type;
    mode->modeTypeName = row->word;
    mode->customFieldsBitMask = row->customFieldsBitMask;
    mode->reportAntenna = row->reportAntenna;
    mode->reportFilter.type = row->reportFilterType;
    mode->reportFilter.duration = row->reportFilterDuration;
    mode->query.session = row->querySession;
}
}  // namespace

int setDefaultMode(mode_configuration_s* mode) {
    // Quirk: the defaults leave the bearing polarization as it is; only type BEARING sets it.
    const QDX_BEAM_POL_e bearingPolarization = mode->bearingConfig.polarization;
    *mode = mode_configuration_s{};
    mode->bearingConfig.polarization = bearingPolarization;

    mode->readMemory.resize(EPC_GEN2_MBs.size());
    applyModeType<MODE_TYPE_e::SIMPLE>(mode);
    mode->antennas = defaultAntennas();
    mode->transmitPowerX10 = thisModel().transmitPowerX10;
    mode->linkProfile = DEFAULT_LINK_PROFILE;
    mode->environment = DEFAULT_ENVIRONMENT_PARAM;
    // From the number of the reader's antennas, which the array reader has fewer of than beams. The
    // parser computes it again from the list.
    mode->antennaStopCondition.type = DEFAULT_ANTENNA_STOP_CONDITION_TYPE;
    mode->antennaStopCondition.value = cycleShare(getMaxAnts());
    mode->query.sel = DEFAULT_QUERY_SEL;
    mode->query.target = DEFAULT_QUERY_TARGET;
    mode->radioStartConditions.type = radio_start_type_e::NONE;
    mode->rssiFilter.threshold = RSSI_FILTER_OFF;
    mode->delayBetweenAntennaCycles.type = thisModel().antennaDelay;
    mode->delayBetweenAntennaCycles.duration = DEFAULT_DELAY_BETWEEN_ANT_CYCLES;
    return 0;
}

int setDefaultInventoryMode(mode_configuration_s* mode) {
    applyModeType<MODE_TYPE_e::INVENTORY>(mode);
    mode->inventoryInterval = {DEFAULT_INVENTORY_INTERVAL_UNIT, DEFAULT_INVENTORY_INTERVAL};
    return 0;
}

int setDefaultConveyorMode(mode_configuration_s* mode) {
    applyModeType<MODE_TYPE_e::CONVEYOR>(mode);
    return 0;
}

int setDefaultCustomMode(mode_configuration_s* mode) {
    applyModeType<MODE_TYPE_e::CUSTOM>(mode);
    return 0;
}

int setDefaultPortalMode(mode_configuration_s* mode) {
    applyModeType<MODE_TYPE_e::PORTAL>(mode);
    mode->portalConfig.startTrigger = {.port = DEFAULT_PORTAL_START_PORT, .signal = 0, .debounceTime = 0};
    mode->portalConfig.stopInterval = DEFAULT_PORTAL_STOP_INTERVAL;
    mode->radioStartConditions = {radio_start_type_e::GPI_WITH_RESTART, {mode->portalConfig.startTrigger}};
    mode->radioStopConditions.noMoreUniqueTags = DEFAULT_PORTAL_STOP_INTERVAL;
    return 0;
}

int setDefaultBearingMode(mode_configuration_s* mode) {
    applyModeType<MODE_TYPE_e::BEARING>(mode);
    mode->bearingConfig = {.enabled = 1, .polarization = DEFAULT_BEAM_POLARIZATION};
    setBearingBeams(DEFAULT_BEAM_POLARIZATION, &mode->antennas);
    return 0;
}

int setDefaultPortalDirMode(mode_configuration_s* mode) {
    applyModeType<MODE_TYPE_e::PORTAL_DIRECTIONALITY>(mode);
    mode->portalDirConfig = {
        .enabled = 1,
        .aarHeight = DEFAULT_AAR_HEIGHT,
        .tagHeight = DEFAULT_TAG_HEIGHT,
        .staticVDynamic = DEFAULT_STATIC_V_DYNAMIC,
        .polarization = DEFAULT_BEAM_POLARIZATION,
    };
    setBearingBeams(DEFAULT_BEAM_POLARIZATION, &mode->antennas);
    return 0;
}

std::uint16_t getDefaultAntennaStopConditionDuration(const mode_configuration_s* mode) {
    return cycleShare((mode == nullptr ? mode_configuration : *mode).antennas.size());
}
