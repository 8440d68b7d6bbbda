// SPDX-License-Identifier: MIT
// The status socket and "twgate status". The reply is one JSON object, the whole account:
//
//   {"version":..., "sources":[...], "sinks":[...], "spool":{...}, "presence":{...}}
//
// "presence" only with that stream.
#pragma once

#include <map>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "sender.hpp"
#include "spool.hpp"

// A sink is behind when its oldest pending entry is older than this, in seconds.
inline constexpr double behindAfter = 10.0;

// The account as the status socket sends it. `states` by the sinks' names.
nlohmann::json statusDocument(const spool_account_s& account,
                              const std::map<std::string, sender_status_s>& states, spool_reader_c* reader);

// What is not well in such a document, a line each: a spool that cannot be written, sinks that are behind or
// down.
std::vector<std::string> statusTroubles(const nlohmann::json& document);

// Asks the gateway at `endpoint` and prints what it says, as JSON or for people. Returns the exit status: 0
// when all is well, 1 when a sink is behind or down or the spool cannot be written, 2 without an answer.
int printStatus(const std::string& endpoint, bool asJson);

// The same for a document: text for people, a line break at each line's end.
std::string statusText(const nlohmann::json& document);
int statusVerdict(const nlohmann::json& document);
