// SPDX-License-Identifier: MIT
// The file in which the owner of a reader says what it does after a boot:
//
//   {"data_analytics": "BINARY", "subscribers": 4, "events": {...}, "start": "as-it-was"}
//
// People write it, or "twctl remember"; "twctl resume" reads it. docs/boot.schema.json describes it.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

namespace boot {

inline constexpr const char* usualFile = "/etc/tarnwick/boot.json";

// The key of the start of the radio, and its words. The other keys are commands of the daemon.
inline constexpr const char* startKey = "start";
inline constexpr const char* startAsItWas = "as-it-was";
inline constexpr const char* startAlways = "always";
inline constexpr const char* startNever = "never";

// What the schema refuses and the keys that it does not know, a line each.
std::vector<std::string> findFaults(const nlohmann::json& file);

// What is allowed and does not do what its writer will expect: a line each.
std::vector<std::string> findWarnings(const nlohmann::json& file);

// The object without the members in which there are faults.
nlohmann::json soundPartOf(const nlohmann::json& file);

}  // namespace boot
