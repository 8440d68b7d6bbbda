// SPDX-License-Identifier: MIT
// Reads of the mode: of `mode_configuration`, or of the record that a function takes; a null
// record means the global one. Main thread. Those that return an int return 0 unless another
// result is told.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "mode/record.hpp"

MODE_TYPE_e getModeType();
int getAntennas(std::vector<std::uint32_t>* antennas);  // replaces the contents
int getEnvironment(ENVIRONMENT_PARAMS_e* environment);

// Whether the client gave selects, and whether they differ by antenna.
bool isRawSelectEnabled(const mode_configuration_s* mode);
bool selectsPerAntenna(const mode_configuration_s* mode);
// The select mask of antenna position `index`. Returns -1 past the end, *mask untouched.
int getCurrentSelectBitMask(std::size_t index, std::uint32_t* mask, const mode_configuration_s* mode);
int getDelayAfterSelects(std::uint32_t* delay);  // ms
int getModeBlockSize(std::uint8_t* blockSize);

bool accessesPerAntenna(const mode_configuration_s* mode);  // the accesses differ by antenna
// The access mask of antenna position `index`. Returns -1 past the end, *mask untouched.
int getCurrentAccessBitMask(std::size_t index, std::uint64_t* mask, const mode_configuration_s* mode);

// The engine's GPI mask: for ports 1 to 4 bit n+3 says that the port takes part,
// bit n-1 that its level is high. Other ports add nothing.
std::uint8_t getGPIBitMask(const std::vector<gpi_s>* gpis);
std::uint16_t getGPIHoldTime(std::uint8_t port, const std::vector<gpi_s>* gpis);  // ms; 0 without a rule
std::uint8_t getPortalConfigGpioBitMask();  // the mask of the portal's start trigger

std::uint32_t getCustomFieldsBitMask();  // RXE_FIELD_*

// What a tag report holds.
bool isReportChannelEnabled();
bool isReportAntennaEnabled();
bool isReportPCEnabled();
bool isReportXPCEnabled();
bool isReportCRCEnabled();
bool isReportHeatmapEnabled();
bool isReportMACEnabled();
bool isReportHostNameEnabled();
bool isDecodeTagUriEnabled();
bool isDecodeEpcUriEnabled();
bool isUserDefinedDataEnabled();
// The texts stay valid until the next mode request.
const std::string& getUserDefinedData();
bool isAntennaPortMappingEnabled();
// The name of a port; empty for port 0, for a port past the reader's antennas or
// past the list.
const std::string& getAntennaPortMapping(std::uint8_t port);

bool isAccessEnabled(EPC_GEN2_MB_e bank, const mode_configuration_s* mode);  // words of this bank are read
bool isTagDataMemoryEnabled(const mode_configuration_s* mode);               // words of any bank are read
bool isAddlKeysConfigured(const mode_configuration_s* mode);
bool isAnyAccessEnabled(const mode_configuration_s* mode);  // words are read, or the client gave accesses

int getTagFilter(tagFilter_s* filter);  // enabled, match, operation, value; the rest stays as it is
int getRSSIFilter(rssiFilter_s* filter);
int getDelayBetweenAntCycles(delay_between_antenna_cycles_s* delay);
int getPortalConfig(portalConfig_s* config);
int getPortalDirConfig(portalDirConfig_s* config);
int getReportFilter(reportFilter_s* filter);
int getRadioStartConditions(radioStartConditions_s* conditions);
int getRadioStopConditions(radioStopConditions_s* conditions);

// The interval in seconds. Returns -1 and stores 0 when it does not fit 32 bits;
// an unknown unit stores 0 and returns 0.
int getInventoryIntervalSeconds(const inventoryInterval_s* interval, std::uint32_t* seconds);

QDX_BEAM_POL_e getBearingPol(const bearingConfig_s* config);
bool isBearingEnabled();
bool isPortalDirEnabled();
