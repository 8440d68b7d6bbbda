// SPDX-License-Identifier: MIT
// Whether parts of a mode equal the defaults of its type on this reader. The rendering
// leaves such parts out, and a request may set a polarization only with default antennas.
#include <numeric>

#include "mode/accessors.hpp"
#include "mode/defaults.hpp"
#include "mode/record.hpp"
#include "mode/render.hpp"
#include "reader_facts.hpp"

namespace {

bool isOneOf(MODE_TYPE_e type, std::initializer_list<MODE_TYPE_e> types) {
    return std::ranges::find(types, type) != types.end();
}

// The row of the mode's type; a record that no request has filled counts as SIMPLE.
const mode_type_s& typeOf(const mode_configuration_s* mode) {
    const mode_type_s* row = findModeType(mode->modeType);
    return row != nullptr ? *row : MODE_TYPES.front();
}

}  // namespace

bool isDefaultAntennas(const mode_configuration_s* mode) {
    const auto& antennas = mode->antennas;
    if (!thisModel().arrayReader) {
        std::vector<std::uint32_t> ports(getMaxAnts());
        std::iota(ports.begin(), ports.end(), 1U);
        return antennas == ports;
    }
    if (isOneOf(mode->modeType, {MODE_TYPE_e::BEARING, MODE_TYPE_e::PORTAL_DIRECTIONALITY})) {
        return std::ranges::equal(antennas, DEFAULT_BEAMS_QDX_BEARING, {},
                                  [](std::uint32_t beam) { return beam % 1000; });
    }
    return std::ranges::equal(antennas, DEFAULT_BEAMS_QDX);
}

bool isDefaultTransmitPower(const mode_configuration_s* mode) {
    return mode->transmitPowerX10List.empty() && mode->transmitPowerX10 == thisModel().transmitPowerX10;
}

bool isDefaultEnvironmentVariable(const mode_configuration_s* mode) {
    return mode->environment == DEFAULT_ENVIRONMENT_PARAM;
}

bool isDefaultAntennaStopCondition(const mode_configuration_s* mode) {
    return mode->antennaStopConditionList.empty() &&
           mode->antennaStopCondition.type == DEFAULT_ANTENNA_STOP_CONDITION_TYPE &&
           mode->antennaStopCondition.value == getDefaultAntennaStopConditionDuration(mode);
}

bool isDefaultQuery(const mode_configuration_s* mode) {
    return mode->queryList.empty() && mode->query.sel == DEFAULT_QUERY_SEL &&
           mode->query.target == DEFAULT_QUERY_TARGET && mode->query.tagPopulation == 0 &&
           mode->query.session == typeOf(mode).querySession;
}

bool isDefaultSelects(const mode_configuration_s* mode) {
    return mode->selectList.empty() && mode->selectListPerAntenna.empty();
}

bool isDefaultAccesses(const mode_configuration_s* mode) {
    return mode->accessList.empty() && mode->accessListPerAntenna.empty();
}

bool isDefaultRadioStopConditions(const mode_configuration_s* mode) {
    return mode->radioStopConditions == radioStopConditions_s{};
}

bool isDefaultRadioStartConditions(const mode_configuration_s* mode) {
    return mode->radioStartConditions.type == radio_start_type_e::NONE;
}

// In a CUSTOM mode with accesses the default is a mode without a report filter.
bool isDefaultReportFilter(const mode_configuration_s* mode) {
    const reportFilter_s& filter = mode->reportFilter;
    if (!filter.addlKeys.empty()) {
        return false;
    }
    if (mode->modeType == MODE_TYPE_e::CUSTOM && !isDefaultAccesses(mode)) {
        return filter.type == report_filter_type_e::NONE && filter.duration == 0;
    }
    const mode_type_s& type = typeOf(mode);
    return filter.type == type.reportFilterType && filter.duration == type.reportFilterDuration;
}

bool isDefaultTagMetaData(const mode_configuration_s* mode) {
    for (const metadata_word_s& row : metadataWords) {
        if (row.enabled == nullptr) {
            continue;
        }
        const bool onByDefault =
            row.enabled == &mode_configuration_s::reportAntenna && typeOf(mode).reportAntenna;
        if (mode->*row.enabled != onByDefault) {
            return false;
        }
    }
    return mode->customFieldsBitMask == typeOf(mode).customFieldsBitMask && mode->userDefined.empty() &&
           mode->antennaPortNames.empty() && !isTagDataMemoryEnabled(mode);
}

bool isDefaultInventory(const mode_configuration_s* mode) {
    return mode->inventoryInterval ==
           inventoryInterval_s{DEFAULT_INVENTORY_INTERVAL_UNIT, DEFAULT_INVENTORY_INTERVAL};
}

bool isDefaultPortal(const mode_configuration_s* mode) {
    const portalConfig_s& portal = mode->portalConfig;
    return portal.startTrigger.port == DEFAULT_PORTAL_START_PORT && portal.startTrigger.signal == 0 &&
           portal.stopInterval == DEFAULT_PORTAL_STOP_INTERVAL;
}

bool isDefaultPortalDir(const mode_configuration_s* mode) {
    const portalDirConfig_s& config = mode->portalDirConfig;
    return config.aarHeight == DEFAULT_AAR_HEIGHT && config.tagHeight == DEFAULT_TAG_HEIGHT &&
           config.staticVDynamic == DEFAULT_STATIC_V_DYNAMIC &&
           config.polarization == DEFAULT_BEAM_POLARIZATION;
}

bool isDefaultBearing(const mode_configuration_s* mode) {
    return mode->bearingConfig.polarization == DEFAULT_BEAM_POLARIZATION;
}

bool isDefaultDelayBetweenAntCycles(const mode_configuration_s* mode) {
    return mode->delayBetweenAntennaCycles ==
           delay_between_antenna_cycles_s{thisModel().antennaDelay, DEFAULT_DELAY_BETWEEN_ANT_CYCLES};
}
