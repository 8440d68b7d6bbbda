// SPDX-License-Identifier: MIT
// A mode in the engine's terms: one value for each antenna, and the pools of selects and
// accesses with their masks. Main thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "mode/record.hpp"

// Each replaces the vector's contents and returns the number of entries: one for
// each entry of `antennas`, and for getInventoryParams one for each parameter set. Powers are in
// tenths of dBm.
std::size_t getRequestedTxPwrX10(const mode_configuration_s& mode, std::vector<std::int16_t>* powers);
// Asks the management server for the region, once, unless the client gave link profiles.
std::size_t getLinkProfile(const mode_configuration_s& mode, std::vector<std::uint16_t>* linkProfiles);
std::size_t getInventoryParams(const mode_configuration_s& mode, std::vector<c1g2_info_s>* params);
// Places in getInventoryParams, from 1.
std::size_t getInventoryParamIds(const mode_configuration_s& mode, std::vector<std::uint8_t>* ids);

// The engine's stop rule of antenna position `index` (OLIO_s stopType and
// stopValue): 255 and 65535 past the end of a per-antenna list, 0 and 0 for an
// unknown type.
std::uint8_t getOlioStopConditionType(const mode_configuration_s& mode, std::uint16_t index);
std::uint16_t getOlioStopConditionValue(const mode_configuration_s& mode, std::uint16_t index);

// The selects of the mode and the mask of all of them. Returns -1, after the
// 33rd entry, when there are more than MODE_MAX_UNIQUE_SELECTS.
int getSelectParams(const mode_configuration_s& mode, std::uint32_t* mask, std::vector<SELECT_OP_s>* selects);

// The accesses of the mode, or the reads that its tag metadata ask for, and the
// mask of all of them. Returns -1, after the 65th entry, when there are more than
// MODE_MAX_UNIQUE_ACCESSES.
int getAccessParams(const mode_configuration_s& mode, std::uint64_t* mask,
                    std::vector<ACCESS_OP_s>* accesses);

// The link profile for an environment in the active region. Asks the management
// server for the region; when that fails, logs an error and returns 201.
std::uint16_t env_to_lP(std::uint8_t environment);

// The same from the facts: the channel width in kHz and name of the region, and
// whether the radio can choose a profile itself, which counts for the QDX4400 only. 202 for a model
// without a table, 201 for a channel width that the tables do not have.
std::uint16_t linkProfileFor(std::string_view model, std::uint8_t environment, float channelWidth,
                             std::string_view region, bool autoDetect);
