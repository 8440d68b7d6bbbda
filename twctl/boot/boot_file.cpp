// SPDX-License-Identifier: MIT
#include "boot/boot_file.hpp"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "command_words.hpp"
#include "schema.hpp"
#include "stat_names.hpp"

namespace boot {

using nlohmann::json;

namespace {

// The schema with that of "events" in the place of the reference to it, whose definitions it takes over.
std::string wholeSchema() {
    json schema = json::parse(bootSchemaText);
    json events = json::parse(eventsSchemaText);
    schema["$defs"] = events["$defs"];
    events.erase("$defs");
    schema["properties"][std::string(vocabulary::events.word)] = events;
    return schema.dump();
}

}  // namespace

std::vector<std::string> findFaults(const json& file) {
    static const std::string schema = wholeSchema();
    return findSchemaFaults(schema.c_str(), file, "");
}

std::vector<std::string> findWarnings(const json& file) {
    std::vector<std::string> warnings;
    const std::string off(vocabulary::analyticsOff.name);
    const json one = 1;
    if (file.value(vocabulary::dataAnalytics.word, off) == off &&
        file.value(vocabulary::subscribers.word, one) > one) {
        warnings.emplace_back("subscribers: has no effect without data_analytics STRING or BINARY");
    }
    const json names = file.value(json::json_pointer("/events/heartbeat/stats"), json::array());
    const bool hasAll = std::ranges::all_of(vocabulary::stats, [&](std::string_view name) {
        return std::ranges::find(names, json(name)) != names.end();
    });
    if (!names.empty() && !hasAll) {
        warnings.emplace_back(
            "events.heartbeat.stats: the daemon starts with all names, and none can be taken away");
    }
    return warnings;
}

json soundPartOf(const json& file) {
    json sound = json::object();
    for (const auto& [key, value] : file.items()) {
        if (findFaults({{key, value}}).empty()) {
            sound[key] = value;
        }
    }
    return sound;
}

}  // namespace boot
