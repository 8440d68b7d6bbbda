// SPDX-License-Identifier: MIT
// JSON documents that go to the daemon: from a file to one word of a request.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <vector>

struct document_s {
    std::string name;  // for messages: the file, "standard input", or what an inline text is
    std::string text;
};

// `source` is a file, "-" for standard input, or the document itself when it
// begins with "{", which is then called `inlineName`. Tells on standard error why it
// cannot be read.
bool readDocument(const std::string& source, std::string_view inlineName, document_s* document);

// Whether the daemon can take it at all: JSON, an object, neither too large nor
// too deep. If not, `reason` is a sentence.
bool isObject(const std::string& text, nlohmann::json* root, std::string* reason);

// The same JSON without a blank: those between its parts go, those in strings
// become "\u0020". The daemon splits a request at blanks and joins the parts
// again without any.
std::string packed(const std::string& text);

// What every reader refuses in a mode, as the published schema says it and the grid of
// beams, and the keys that the daemon would ignore: a line each.
std::vector<std::string> findModeFaults(const nlohmann::json& mode);

// What the daemon takes, and is hardly meant so.
std::vector<std::string> findModeWarnings(const nlohmann::json& mode);

// The same for "events", where names of statistics that do not exist have no effect.
std::vector<std::string> findEventsFaults(const nlohmann::json& settings);

// Whether an object for "events" would end the daemon. If so, `reason` is a sentence.
bool wouldEndDaemon(const nlohmann::json& settings, std::string* reason);
