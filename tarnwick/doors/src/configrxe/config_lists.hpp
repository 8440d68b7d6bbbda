// SPDX-License-Identifier: MIT
// The getters of records with ids, as the document of the engine's state calls
// them: one key each, 0 or another value with a failure text. Private to
// rxe_intfc; main thread.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace rxe_intfc {

int getEnabledOlios(std::string* reply, nlohmann::json* out);
int getEnabledSelects(std::string* reply, nlohmann::json* out);  // "selects" and "challenges"
int getEnabledInventories(std::string* reply, nlohmann::json* out);
int getEnabledAccesses(std::string* reply, nlohmann::json* out);
int getEnabledChannels(std::string* reply, nlohmann::json* out);
int getEnabledIDFilters(std::string* reply, nlohmann::json* out);

}  // namespace rxe_intfc
