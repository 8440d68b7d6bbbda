// SPDX-License-Identifier: MIT
// The mode in force as JSON in the language of its requests: one builder for each
// object of the language, and the tests for parts at their defaults, which are
// left out. Main thread. No function here changes a record.
#pragma once

#include <array>
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

#include "mode/language.hpp"
#include "mode/record.hpp"
#include "rxe.h"

// --- The plain words of "tagMetaData", in the order in which they are rendered. A
// word is a switch of the record or a bit of its custom field mask.
struct metadata_word_s {
    std::string_view word;
    // Null when the word is a bit of the mask.
    bool mode_configuration_s::*enabled;
    // RXE_FIELD_*.
    std::uint32_t field;
};
inline constexpr std::array metadataWords{
    metadata_word_s{"ANTENNA", &mode_configuration_s::reportAntenna, 0},
    metadata_word_s{"RSSI", nullptr, RXE_FIELD_RSSI},
    metadata_word_s{"CHANNEL", &mode_configuration_s::reportChannel, 0},
    metadata_word_s{"PC", &mode_configuration_s::reportPC, 0},
    metadata_word_s{"XPC", &mode_configuration_s::reportXPC, 0},
    metadata_word_s{"CRC", &mode_configuration_s::reportCRC, 0},
    metadata_word_s{"HEATMAP", &mode_configuration_s::reportHeatmap, 0},
    metadata_word_s{"MAC", &mode_configuration_s::reportMAC, 0},
    metadata_word_s{"TAGURI", &mode_configuration_s::decodeTagUri, 0},
    metadata_word_s{"EPCURI", &mode_configuration_s::decodeEpcUri, 0},
    metadata_word_s{"HOSTNAME", &mode_configuration_s::reportHostName, 0},
    metadata_word_s{"SEEN_COUNT", nullptr, RXE_FIELD_TAG_COUNT},
    metadata_word_s{"PHASE", nullptr, RXE_FIELD_PHASE},
    metadata_word_s{"BEARING", nullptr, RXE_FIELD_BEARING},
    metadata_word_s{"LOCATION", nullptr, RXE_FIELD_LOCATION},
};

// --- What equals the default of the mode's type on this reader (default_tests.cpp).

bool isDefaultAntennas(const mode_configuration_s* mode);
bool isDefaultTransmitPower(const mode_configuration_s* mode);
bool isDefaultEnvironmentVariable(const mode_configuration_s* mode);
bool isDefaultAntennaStopCondition(const mode_configuration_s* mode);
bool isDefaultQuery(const mode_configuration_s* mode);
bool isDefaultSelects(const mode_configuration_s* mode);
bool isDefaultAccesses(const mode_configuration_s* mode);
bool isDefaultRadioStopConditions(const mode_configuration_s* mode);
bool isDefaultRadioStartConditions(const mode_configuration_s* mode);
bool isDefaultReportFilter(const mode_configuration_s* mode);
bool isDefaultTagMetaData(const mode_configuration_s* mode);
bool isDefaultInventory(const mode_configuration_s* mode);
bool isDefaultPortal(const mode_configuration_s* mode);
bool isDefaultPortalDir(const mode_configuration_s* mode);
bool isDefaultBearing(const mode_configuration_s* mode);
bool isDefaultDelayBetweenAntCycles(const mode_configuration_s* mode);

// --- Builders of one value. Each replaces *out; those without a record render the
// mode in force.

// Conditions and filters (render_parts.cpp).
void getGPIJsonObj(nlohmann::json* out, const gpi_s* gpi);
// Null when the condition is at its default; not with VERBOSE. Quirk: in a list by
// antenna an entry at its default is left out, so that the array is shorter than the list of
// antennas.
void getAntennaStopConditionJsonObj(nlohmann::json* out, GET_CURRENT_MODE_METHOD_e method);
void getRadioStopConditionsJsonObj(nlohmann::json* out);
void getRadioStartConditionsJsonObj(nlohmann::json* out);
void getReportFilterJsonObj(nlohmann::json* out);
void getDelayBetweenAntCyclesJsonObj(nlohmann::json* out);
void getTagFilterJsonObj(nlohmann::json* out);
void getTagMetaDataJsonObj(nlohmann::json* out);
// A bank of `readMemory` as its word of "tagMetaData": "TID", "USER[0-3,7]".
void getMetaDataReadMemoryString(EPC_GEN2_MB_e bank, std::string* word);

// What the radio sends (render_operations.cpp).
void getQueryJsonObj(nlohmann::json* out, bool verbose);
void getIndividualSelectJsonObj(nlohmann::json* out, const select_s* select);
void getSelectsJsonObj(nlohmann::json* out);
void getIndividualAccessJsonObj(nlohmann::json* out, const ACCESS_CMD_S* access);
void getIndividualAccessJsonObj_read(nlohmann::json* config, const ACCESS_CMD_S* access);
void getIndividualAccessJsonObj_write(nlohmann::json* config, const ACCESS_CMD_S* access);
void getIndividualAccessJsonObj_access(nlohmann::json* config, const ACCESS_CMD_S* access);
void getIndividualAccessJsonObj_lock(nlohmann::json* config, const ACCESS_CMD_S* access);
void getIndividualAccessJsonObj_kill(nlohmann::json* config, const ACCESS_CMD_S* access);
void getAccessesJsonObj(nlohmann::json* out);

// --- Builders of one key of the whole: each sets it in *root (render.cpp).
void addTransmitPowerToJsonObj(nlohmann::json* root);
void addLinkProfileToJsonObj(nlohmann::json* root);
void addEnvironmentParamToJsonObj(nlohmann::json* root);
