// SPDX-License-Identifier: MIT
// JSON documents that go to the daemon: from a file to one word of a request.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <vector>

struct document_s {
    std::string name;  // for messages: the file, "standard input", or the name of an inline text
    std::string text;
};

// `source` is a file, "-" for standard input, or the document itself when it begins with
// "{"; that is then called `inlineName`. False, with the reason on standard error, when it
// cannot be read.
bool readDocument(const std::string& source, std::string_view inlineName, document_s* document);

// Whether the daemon can read it: one JSON object of at most 4 MiB, with at most 255 arrays
// and objects inside one another. If not, `reason` is a sentence. `root` is then undefined.
bool isObject(const std::string& text, nlohmann::json* root, std::string* reason);

// The text with blanks in the place of each "// ..." and "/* ... */" that is not in a string; lines and
// columns stay. For files that only this client reads.
std::string withoutComments(std::string text);

// The same JSON without a blank: those between its parts go, those in strings
// become "\u0020". The daemon splits a request at blanks and joins the parts
// again without any.
std::string packed(const std::string& text);

// What every reader refuses in a mode, by the published schema and the grid of beams, and
// the keys that the daemon would ignore: a line each.
std::vector<std::string> findModeFaults(const nlohmann::json& mode);

// What the daemon accepts although it has no effect, or not the one that its writer will
// expect: a line each.
std::vector<std::string> findModeWarnings(const nlohmann::json& mode);

// The same for "events", where names of statistics that do not exist have no effect.
std::vector<std::string> findEventsFaults(const nlohmann::json& settings);

// Whether an object for "events" would end the daemon. If so, `reason` is a sentence.
bool wouldEndDaemon(const nlohmann::json& settings, std::string* reason);
