// SPDX-License-Identifier: MIT
// Documents against the published JSON Schemas (draft 2020-12), which are compiled in. The
// library valijson judges; here its verdicts become sentences for people, each with the place
// that it is about.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

// docs/mode.schema.json, docs/events.schema.json and docs/boot.schema.json. The last one refers to the
// second.
extern const char* const modeSchemaText;
extern const char* const eventsSchemaText;
extern const char* const bootSchemaText;

// What the schema refuses in the document, and the keys that it does not know, which
// the daemon would ignore. A line each, the first 20 and "and more":
//
//   accesses[0].type: "read" is not valid; use READ, WRITE, ACCESS, LOCK or KILL
//   unknown key "antenas"; the daemon ignores it
//
// What a pattern, an "if" or a "not" asks for is told in the words of the "description"
// beside it. `schemaText` is one of the texts above, or another one with the same keywords;
// `consequence` stands behind each unknown key.
std::vector<std::string> findSchemaFaults(const char* schemaText, const nlohmann::json& document,
                                          const char* consequence = "; the daemon ignores it");
