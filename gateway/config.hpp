// SPDX-License-Identifier: MIT
// The configuration: one JSON file, in which comments are allowed. twgate.schema.json is its
// description; what a schema cannot say is checked here and by the types of sinks.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "presence/rules.hpp"

inline constexpr const char* defaultStatusEndpoint = "ipc:///tmp/twgate_status";

// One reader. An ipc endpoint is bound, since the daemon connects to it, a tcp endpoint connected.
struct source_config_s {
    std::string reader;
    std::string tags;        // endpoint; empty: none
    std::string events;      // endpoint; empty: none
    std::string requests{};  // the daemon's reply socket; empty: none
    bool operator==(const source_config_s&) const = default;
};

struct spool_config_s {
    std::string directory;
    std::uint64_t maxEvents = 1'000'000;
    std::uint64_t maxBytes = 1'073'741'824;      // of the bodies
    std::uint64_t maxAge = 604'800;              // s
    bool syncFull = false;                       // what is committed survives a loss of power, too
    std::optional<presence_rules_s> presence{};  // nothing: no stream "presence"
};

struct sink_config_s {
    std::string name;
    std::string type;      // a row of the table of sinks
    unsigned streams = 0;  // mask of streamBit()
    std::string reader{};  // the first source, which names the gateway to a server
    // Of a sink that takes requests: the sources whose daemons can be asked.
    std::vector<source_config_s> daemons{};
    double maxRate = 0.0;  // entries a second while it catches up; 0: no limit
    // Where a sink keeps what its receiver refuses for good (dead_letter.hpp).
    std::string deadLetterFile{};
    std::uint64_t deadLetterBytes = 67'108'864;
    nlohmann::json settings;  // the whole object of the sink, checked against the schema
    // The state of the files that the settings name, such as secrets: another one when one of them has
    // changed.
    std::string files{};
    bool operator==(const sink_config_s&) const = default;
};

struct http_config_s {
    std::string host;                          // a numeric address, an IPv6 one in brackets, or "localhost"
    int port = 0;                              // 0: any that is free
    std::string certFile, keyFile, tokenFile;  // empty: none
};

struct config_s {
    std::vector<source_config_s> sources;
    spool_config_s spool;
    std::vector<sink_config_s> sinks;
    std::string status = defaultStatusEndpoint;
    std::optional<http_config_s> http{};  // nothing: no HTTP
};

// Reads and checks the whole file. Nothing when there are mistakes; `mistakes` then has one line
// for each, with its path: `sinks[1].format: "xml" is not valid; use jsonl, csv or cloudevent`.
std::optional<config_s> readConfig(const std::string& file, std::vector<std::string>* mistakes);

// The same for a text; `name` stands for it in messages about its syntax.
std::optional<config_s> parseConfig(const std::string& text, const std::string& name,
                                    std::vector<std::string>* mistakes);

// A secret from a file: its first line, without the line end. Nothing, with the reason in `error`, when
// the file cannot be read, is empty, or may be read by every user.
std::optional<std::string> readSecret(const std::string& file, std::string* error);

// All lines of such a file but the empty ones. None, with the reason, under the same conditions.
std::vector<std::string> readSecrets(const std::string& file, std::string* error);
