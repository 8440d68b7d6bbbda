// SPDX-License-Identifier: MIT
// The mode in force, and copies of it.
#include "mode/record.hpp"

#include <algorithm>
#include <utility>

// The mode in force. Main thread.
mode_configuration_s mode_configuration;

void initMode() {
    mode_configuration.readMemory.resize(EPC_GEN2_MBs.size());
}

void copyModeConfiguration(const mode_configuration_s* from, mode_configuration_s* to) {
    *to = *from;
    copyTagFilter(&from->tagFilter, &to->tagFilter);
}

// Copies only the bytes that count; those behind them are not part of the filter.
void copyTagFilter(const tagFilter_s* from, tagFilter_s* to) {
    tagFilter_s copy = *from;
    const std::size_t length = std::min<std::size_t>(copy.patternLength, copy.pattern.size());
    std::fill(copy.pattern.begin() + length, copy.pattern.end(), 0);
    *to = std::move(copy);
}

void copyReadMemory(const std::vector<std::vector<memory_Access_s>>* from,
                    std::vector<std::vector<memory_Access_s>>* to) {
    *to = *from;
}

void copyRadioStartConditions(const radioStartConditions_s* from, radioStartConditions_s* to) {
    *to = *from;
}

void copyRadioStopConditions(const radioStopConditions_s* from, radioStopConditions_s* to) {
    *to = *from;
}

void copyReportFilter(const reportFilter_s* from, reportFilter_s* to) {
    *to = *from;
}

void copyQuery(const query_s* from, query_s* to) {
    *to = *from;
}

void copyInventory(const inventoryInterval_s* from, inventoryInterval_s* to) {
    *to = *from;
}

void copyPortal(const portalConfig_s* from, portalConfig_s* to) {
    *to = *from;
}

void copyPortalDir(const portalDirConfig_s* from, portalDirConfig_s* to) {
    *to = *from;
}

void copyBearingConfig(const bearingConfig_s* from, bearingConfig_s* to) {
    *to = *from;
}

void copyAntennaStopCondition(const antennaStopCondition_s* from, antennaStopCondition_s* to) {
    *to = *from;
}

void copyRSSIFilter(const rssiFilter_s* from, rssiFilter_s* to) {
    *to = *from;
}

void copyDelayBetweenAntCycles(const delay_between_antenna_cycles_s* from,
                               delay_between_antenna_cycles_s* to) {
    *to = *from;
}
