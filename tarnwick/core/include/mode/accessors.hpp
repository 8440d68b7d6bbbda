// SPDX-License-Identifier: MIT
// Reads of the mode: of `mode_configuration`, or of the record that a function takes; a null
// record means the global one. Main thread. Those that return an int return 0, unless their
// comment names another result. Outputs must not be null.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "mode/record.hpp"

MODE_TYPE_e getModeType();
// Replaces the contents: ports, or beam ids on the array reader.
int getAntennas(std::vector<std::uint32_t>* antennas);
int getEnvironment(ENVIRONMENT_PARAMS_e* environment);

// ---- selects and accesses

// Whether the client gave selects, and whether they differ by antenna.
bool isRawSelectEnabled(const mode_configuration_s* mode);
bool selectsPerAntenna(const mode_configuration_s* mode);
// The select mask of antenna position `index`. Returns -1 past the end, *mask untouched.
int getCurrentSelectBitMask(std::size_t index, std::uint32_t* mask, const mode_configuration_s* mode);
// ms.
int getDelayAfterSelects(std::uint32_t* delay);
// Words of one operation of a block write; 0 without block writes.
int getModeBlockSize(std::uint8_t* blockSize);

// Whether the accesses differ by antenna.
bool accessesPerAntenna(const mode_configuration_s* mode);
// The access mask of antenna position `index`. Returns -1 past the end, *mask untouched.
int getCurrentAccessBitMask(std::size_t index, std::uint64_t* mask, const mode_configuration_s* mode);

// ---- inputs

// The engine's GPI mask: for ports 1 to 4 bit n+3 says that the port takes part,
// bit n-1 that its level is high. Rules about other ports do not change it.
std::uint8_t getGPIBitMask(const std::vector<gpi_s>* gpis);
// The debounce time of the port in ms; 0 when the list does not have a rule for it.
std::uint16_t getGPIHoldTime(std::uint8_t port, const std::vector<gpi_s>* gpis);
// The GPI mask of the portal's start trigger alone.
std::uint8_t getPortalConfigGpioBitMask();

// RXE_FIELD_*: the fields that the engine sends with a tag.
std::uint32_t getCustomFieldsBitMask();

// What a tag report holds beside these fields.
//
// Channel and antenna; words of the EPC bank; the heat map of the array reader.
bool isReportChannelEnabled();
bool isReportAntennaEnabled();
bool isReportPCEnabled();
bool isReportXPCEnabled();
bool isReportCRCEnabled();
bool isReportHeatmapEnabled();
// The reader's MAC address and host name; the URIs of the EPC (GS1 TDS 1.13, sections 6 and 12).
bool isReportMACEnabled();
bool isReportHostNameEnabled();
bool isDecodeTagUriEnabled();
bool isDecodeEpcUriEnabled();
// Whether the mode has a text of the client's for each report.
bool isUserDefinedDataEnabled();
// The texts stay valid until the next mode request.
const std::string& getUserDefinedData();
// Whether the mode has names of ports.
bool isAntennaPortMappingEnabled();
// The name of a port; empty for port 0, for a port past the reader's antennas or
// past the list.
const std::string& getAntennaPortMapping(std::uint8_t port);

// Whether "tagMetaData" asks for words of this bank, or of any bank.
bool isAccessEnabled(EPC_GEN2_MB_e bank, const mode_configuration_s* mode);
bool isTagDataMemoryEnabled(const mode_configuration_s* mode);
// Whether the report filter has additional keys.
bool isAddlKeysConfigured(const mode_configuration_s* mode);
// Whether "tagMetaData" asks for words, or the client gave accesses.
bool isAnyAccessEnabled(const mode_configuration_s* mode);

// Copies of the records of the mode. Of the tag filter only enabled, match, operation and value are
// copied; the rest of *filter stays as it is.
int getTagFilter(tagFilter_s* filter);
int getRSSIFilter(rssiFilter_s* filter);
int getDelayBetweenAntCycles(delay_between_antenna_cycles_s* delay);
int getPortalConfig(portalConfig_s* config);
int getPortalDirConfig(portalDirConfig_s* config);
int getReportFilter(reportFilter_s* filter);
int getRadioStartConditions(radioStartConditions_s* conditions);
int getRadioStopConditions(radioStopConditions_s* conditions);

// The filter in words, for people: "include prefix 3034"; empty without a filter. Any thread.
std::string ruleOf(const tagFilter_s& filter);

// The interval in seconds. Returns -1 and stores 0 when it does not fit 32 bits;
// an unknown unit stores 0 and returns 0.
int getInventoryIntervalSeconds(const inventoryInterval_s* interval, std::uint32_t* seconds);

// The polarization of the record, NONE for an empty one.
QDX_BEAM_POL_e getBearingPol(const bearingConfig_s* config);
// Whether the mode is of type BEARING, and whether it is of type PORTAL_DIRECTIONALITY.
bool isBearingEnabled();
bool isPortalDirEnabled();
