// SPDX-License-Identifier: MIT
// The service door to the engine: single parameters as text, and all that it holds as one
// document. Main thread, also while the radio runs.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

// Text command "configrxe": the service door to single engine parameters. It
// leaves the mode alone and does not ask whether the radio runs. Returns 0. A
// malformed number of some sections throws std::logic_error.
int configRXEHandler(std::vector<std::string>* tokens, std::string* reply);

// Text command "configrxe shadow [enable|disable]". Returns 0.
int handleShadowRequest(std::vector<std::string>* tokens, std::string* reply);

// Each fills *out and returns 0, or leaves *out unfinished, puts a failure text
// into *reply and returns another value.

// All that the engine holds, read back from it, as one document in *reply.
int getFullCustomConfig(std::string* reply);

// One slot into *out, an object: its "id" and, when it is enabled, its fields.
int getChannel(std::string* reply, nlohmann::json* out, int id);
int getSelect(std::string* reply, nlohmann::json* out, int id);
int getInventory(std::string* reply, nlohmann::json* out, int id);
int getAccess(std::string* reply, nlohmann::json* out, int id);
int getIDFilter(std::string* reply, nlohmann::json* out, int id);

// Id 0: "olios" are those from 1 until the first disabled one, with their masks.
// Another id: that olio alone, if enabled, with what its masks stand for.
int getEnabledOlio(std::string* reply, nlohmann::json* out, int id);

// "peakThreshold" as a number, "monoOrCom" as a text.
int getPeakThreshold(std::string* reply, nlohmann::json* out);
int getMonoOrCOM(std::string* reply, nlohmann::json* out);
