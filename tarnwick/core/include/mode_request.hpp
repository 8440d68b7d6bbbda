// SPDX-License-Identifier: MIT
// A mode request from its text to the mode in force, on the engine and on disk; and the
// mode that a start begins with. Main thread.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "rxe.h"

// Command "mode": tokens[1] is absent, "verbose" or "as_set" for a rendering of
// the mode in force, else a request as JSON text. The outcome is in the reply.
// Returns 0.
int handleModeRequest(std::vector<std::string>* tokens, std::string* reply);

// Makes a request the mode in force, on the engine too. Fills `root` with the request as JSON.
// Returns 0 with the reply "Success", or a negative number with the failure text; the mode in
// force is then as it was. When the engine refuses, it keeps what was written until then.
int applyModeRequest(const std::string& request, nlohmann::json* root, std::string* reply);

// Writes an accepted request to mode_config.json, for the next start and for
// "as_set". The old file stays until the new one is complete; a failure is logged.
void storeModeRequest(nlohmann::json&& root);

// Both. Returns what applyModeRequest returns; a file that cannot be written does not change that.
int configMode(const std::string* request, std::string* reply);

// Brings the radio to its known state and applies the starting mode. Returns the
// status of the first of the two; a mode that fails counts a warning.
RXE_API_STATUS initialRXEConfiguration();
