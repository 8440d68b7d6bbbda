// SPDX-License-Identifier: MIT
// Reads of a mode: for applying it, for its report plan, and for its rendering.
#include <limits>

#include "mode/accessors.hpp"
#include "mode/record.hpp"
#include "mode/words.hpp"
#include "reader_facts.hpp"

namespace {
// The name of a port that does not have one; never written.
const std::string noName;

const mode_configuration_s& inForceUnless(const mode_configuration_s* mode) {
    return mode == nullptr ? mode_configuration : *mode;
}

// The mask at a position of a per-antenna list of masks.
template <class Mask>
int maskAt(const std::vector<Mask>& masks, std::size_t index, Mask* mask) {
    if (index >= masks.size()) {
        return -1;
    }
    *mask = masks[index];
    return 0;
}

// The bits of one GPI rule: the level in the low half, the enable bit in the high.
std::uint8_t gpiBits(const gpi_s& gpi) {
    if (gpi.port < 1 || gpi.port > 4) {
        return 0;
    }
    const unsigned enableAndLevel = gpi.signal == 1 ? 0x11 : 0x10;
    return static_cast<std::uint8_t>(enableAndLevel << (gpi.port - 1));
}
}  // namespace

std::string ruleOf(const tagFilter_s& filter) {
    if (filter.enabled == 0) {
        return {};
    }
    std::string rule(findWord(filterOperationWords, filter.operation));
    return rule.append(" ").append(findWord(filterMatchWords, filter.match)).append(" ") + filter.value;
}

MODE_TYPE_e getModeType() {
    return mode_configuration.modeType;
}

int getAntennas(std::vector<std::uint32_t>* antennas) {
    *antennas = mode_configuration.antennas;
    return 0;
}

int getEnvironment(ENVIRONMENT_PARAMS_e* environment) {
    *environment = mode_configuration.environment;
    return 0;
}

// ---------------------------------------------------------------- selects, accesses

bool isRawSelectEnabled(const mode_configuration_s* mode) {
    return !inForceUnless(mode).selectList.empty() || !inForceUnless(mode).selectListPerAntenna.empty();
}

bool selectsPerAntenna(const mode_configuration_s* mode) {
    return inForceUnless(mode).selectList.empty() && !inForceUnless(mode).selectListPerAntenna.empty();
}

int getCurrentSelectBitMask(std::size_t index, std::uint32_t* mask, const mode_configuration_s* mode) {
    return maskAt(inForceUnless(mode).selectBitMasks, index, mask);
}

int getDelayAfterSelects(std::uint32_t* delay) {
    *delay = mode_configuration.delayAfterSelects;
    return 0;
}

int getModeBlockSize(std::uint8_t* blockSize) {
    *blockSize = mode_configuration.blockSize;
    return 0;
}

bool accessesPerAntenna(const mode_configuration_s* mode) {
    return inForceUnless(mode).accessList.empty() && !inForceUnless(mode).accessListPerAntenna.empty();
}

int getCurrentAccessBitMask(std::size_t index, std::uint64_t* mask, const mode_configuration_s* mode) {
    return maskAt(inForceUnless(mode).accessBitMasks, index, mask);
}

bool isAccessEnabled(EPC_GEN2_MB_e bank, const mode_configuration_s* mode) {
    const auto& rows = inForceUnless(mode).readMemory;
    const auto row = static_cast<std::size_t>(bank);
    return row < rows.size() && !rows[row].empty();
}

bool isTagDataMemoryEnabled(const mode_configuration_s* mode) {
    return std::ranges::any_of(inForceUnless(mode).readMemory, [](const auto& row) { return !row.empty(); });
}

bool isAddlKeysConfigured(const mode_configuration_s* mode) {
    return !inForceUnless(mode).reportFilter.addlKeys.empty();
}

bool isAnyAccessEnabled(const mode_configuration_s* mode) {
    return isTagDataMemoryEnabled(mode) || !inForceUnless(mode).uniqueAccesses.empty();
}

// ---------------------------------------------------------------- GPIs

std::uint8_t getGPIBitMask(const std::vector<gpi_s>* gpis) {
    std::uint8_t mask = 0;
    for (const gpi_s& gpi : *gpis) {
        mask |= gpiBits(gpi);
    }
    return mask;
}

std::uint16_t getGPIHoldTime(std::uint8_t port, const std::vector<gpi_s>* gpis) {
    const auto gpi = std::ranges::find(*gpis, port, &gpi_s::port);
    return gpi == gpis->end() ? 0 : gpi->debounceTime;
}

std::uint8_t getPortalConfigGpioBitMask() {
    return gpiBits(mode_configuration.portalConfig.startTrigger);
}

// ---------------------------------------------------------------- tag reports

std::uint32_t getCustomFieldsBitMask() {
    return mode_configuration.customFieldsBitMask;
}

bool isReportChannelEnabled() {
    return mode_configuration.reportChannel;
}

bool isReportAntennaEnabled() {
    return mode_configuration.reportAntenna;
}

bool isReportPCEnabled() {
    return mode_configuration.reportPC;
}

bool isReportXPCEnabled() {
    return mode_configuration.reportXPC;
}

bool isReportCRCEnabled() {
    return mode_configuration.reportCRC;
}

bool isReportHeatmapEnabled() {
    return mode_configuration.reportHeatmap;
}

bool isReportMACEnabled() {
    return mode_configuration.reportMAC;
}

bool isReportHostNameEnabled() {
    return mode_configuration.reportHostName;
}

bool isDecodeTagUriEnabled() {
    return mode_configuration.decodeTagUri;
}

bool isDecodeEpcUriEnabled() {
    return mode_configuration.decodeEpcUri;
}

bool isUserDefinedDataEnabled() {
    return !mode_configuration.userDefined.empty();
}

const std::string& getUserDefinedData() {
    return mode_configuration.userDefined;
}

bool isAntennaPortMappingEnabled() {
    return !mode_configuration.antennaPortNames.empty();
}

const std::string& getAntennaPortMapping(std::uint8_t port) {
    const auto& names = mode_configuration.antennaPortNames;
    if (port < 1 || port > getMaxAnts() || port > names.size()) {
        return noName;
    }
    return names[port - 1];
}

// ---------------------------------------------------------------- sub-records

int getTagFilter(tagFilter_s* filter) {
    const tagFilter_s& from = mode_configuration.tagFilter;
    filter->enabled = from.enabled;
    filter->match = from.match;
    filter->operation = from.operation;
    filter->value = from.value;
    return 0;
}

int getRSSIFilter(rssiFilter_s* filter) {
    copyRSSIFilter(&mode_configuration.rssiFilter, filter);
    return 0;
}

int getDelayBetweenAntCycles(delay_between_antenna_cycles_s* delay) {
    copyDelayBetweenAntCycles(&mode_configuration.delayBetweenAntennaCycles, delay);
    return 0;
}

int getPortalConfig(portalConfig_s* config) {
    copyPortal(&mode_configuration.portalConfig, config);
    return 0;
}

int getPortalDirConfig(portalDirConfig_s* config) {
    copyPortalDir(&mode_configuration.portalDirConfig, config);
    return 0;
}

int getReportFilter(reportFilter_s* filter) {
    copyReportFilter(&mode_configuration.reportFilter, filter);
    return 0;
}

int getRadioStartConditions(radioStartConditions_s* conditions) {
    copyRadioStartConditions(&mode_configuration.radioStartConditions, conditions);
    return 0;
}

int getRadioStopConditions(radioStopConditions_s* conditions) {
    copyRadioStopConditions(&mode_configuration.radioStopConditions, conditions);
    return 0;
}

int getInventoryIntervalSeconds(const inventoryInterval_s* interval, std::uint32_t* seconds) {
    // Seconds in a unit, in the order of interval_unit_e.
    constexpr std::array<std::uint32_t, 4> secondsOfUnit{1, 60, 3600, 86400};
    const inventoryInterval_s& from = interval == nullptr ? mode_configuration.inventoryInterval : *interval;
    const auto unit = static_cast<std::size_t>(from.unit);
    *seconds = 0;
    if (unit >= secondsOfUnit.size()) {
        return 0;
    }
    if (from.value > std::numeric_limits<std::uint32_t>::max() / secondsOfUnit[unit]) {
        return -1;
    }
    *seconds = from.value * secondsOfUnit[unit];
    return 0;
}

QDX_BEAM_POL_e getBearingPol(const bearingConfig_s* config) {
    return (config == nullptr ? mode_configuration.bearingConfig : *config).polarization;
}

bool isBearingEnabled() {
    return mode_configuration.bearingConfig.enabled != 0;
}

bool isPortalDirEnabled() {
    return mode_configuration.portalDirConfig.enabled != 0;
}
