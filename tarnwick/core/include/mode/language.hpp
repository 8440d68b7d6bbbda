// SPDX-License-Identifier: MIT
// The JSON language of the mode: a request into a record, and the mode in force back into
// JSON. Main thread.
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>

#include "mode/record.hpp"

// The last accepted request, in the working directory: {"mode": {...}}.
inline constexpr const char* modeFile = "mode_config.json";

// How the mode in force is rendered for a client.
enum class GET_CURRENT_MODE_METHOD_e : std::uint8_t {
    // The type, and the keys that differ from the defaults of the type.
    DEFAULT = 0,
    // All keys that this reader and mode can have, also at their defaults. Quirk: of the settings of
    // PORTAL_DIRECTIONALITY only those that differ from their defaults.
    VERBOSE = 1,
    // The object that the client sent, from modeFile.
    AS_SET = 2,
};

// Fills `root` with a request as JSON and `mode` with the defaults and the keys, all
// rules checked; the mode in force stays as it is. Quirk: "reportFilter" changes the settings of
// the additional-keys database at once (additional_config.hpp). Returns 0, or a negative number
// with the failure text; `mode` is then half filled.
int parseModeRequest(const std::string& request, nlohmann::json* root, mode_configuration_s* mode,
                     std::string* reply);

// The mode in force as "Success: " and one line of JSON. AS_SET reads modeFile; when that cannot be
// used the reply begins with "Failure: ". Returns 0.
int getCurrentMode(std::string* reply, GET_CURRENT_MODE_METHOD_e method);
