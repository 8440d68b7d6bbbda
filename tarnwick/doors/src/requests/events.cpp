// SPDX-License-Identifier: MIT
// The command "events": what heartbeats tell and which alarms are published. Main thread.
//
//   events                                                shows what is in force
//   events {"heartbeat": {"period": 30, "stats": [...]}}   changes one group or more
#include <iostream>
#include <iterator>
#include <limits>
#include <nlohmann/json.hpp>

#include "json_fields.hpp"
#include "requests.hpp"
#include "requests/report.hpp"
#include "stat_names.hpp"
#include "util.hpp"

namespace requests {

using nlohmann::json;

report_error_s report_error;
report_warning_s report_warning;
std::chrono::seconds heartbeat_period{10};

namespace {

const std::vector<std::string> default_heartbeat_stats(std::begin(vocabulary::stats),
                                                       std::end(vocabulary::stats));

}  // namespace

std::vector<std::string> heartbeat_stats = default_heartbeat_stats;

namespace {

// What a request sets. It takes effect when the whole request has been read without a failure.
struct events_settings_s {
    report_error_s errors;
    report_warning_s warnings;
    std::chrono::seconds period;
    std::vector<std::string> newStats;
};

// `settingsFatal` is the failure that ends the daemon.
enum result_e { settingsRead, settingsRefused, settingsFatal };

// A switch of a group: its key and its place.
template <class Group>
struct switch_s {
    const char* key;
    bool Group::*place;
};
constexpr switch_s<report_error_s> errorSwitches[] = {
    {"antenna", &report_error_s::antenna},
    {"radio", &report_error_s::radio},
    {"tarnwick", &report_error_s::tarnwick},
    {"database", &report_error_s::database},
};
constexpr switch_s<report_warning_s> warningSwitches[] = {
    {"radio_api", &report_warning_s::radio_api},
    {"tarnwick", &report_warning_s::tarnwick},
    {"database", &report_warning_s::database},
};

// A temperature limit: its key and its place.
struct limit_s {
    const char* key;
    std::int16_t report_warning_s::*place;
};
constexpr limit_s temperatureLimits[] = {
    {"pa", &report_warning_s::paLimit},
    {"ambient", &report_warning_s::ambientLimit},
};
constexpr std::int16_t lowestLimit = -128;  // degrees Celsius
constexpr std::int16_t highestLimit = 128;

template <class Group, class Switches>
bool readSwitches(const json& object, const Switches& switches, Group* group, std::string* reply) {
    for (const auto& row : switches) {
        if (getJsonValue(&object, row.key, &(group->*row.place), reply) != 0) {
            return false;
        }
    }
    return true;
}

template <class Group, class Switches>
void showSwitches(const Group& group, const Switches& switches, json* out) {
    for (const auto& row : switches) {
        (*out)[row.key] = group.*row.place;
    }
}

result_e readErrors(const json& object, events_settings_s* settings, std::string* reply) {
    return readSwitches(object, errorSwitches, &settings->errors, reply) ? settingsRead : settingsRefused;
}

// The temperatures first: the first key that fails is the reply.
result_e readWarnings(const json& object, events_settings_s* settings, std::string* reply) {
    json temperature;
    if (getJsonValueObject(&object, "temperature", &temperature, reply) != 0) {
        return settingsRefused;
    }
    for (const limit_s& limit : temperatureLimits) {
        if (getJsonValue(&temperature, limit.key, &(settings->warnings.*limit.place), reply, lowestLimit,
                         highestLimit) != 0) {
            return settingsRefused;
        }
    }
    return readSwitches(object, warningSwitches, &settings->warnings, reply) ? settingsRead : settingsRefused;
}

result_e readHeartbeat(const json& object, events_settings_s* settings, std::string* reply) {
    std::uint32_t period = 0;
    json stats;
    if (getJsonValue(&object, "period", &period, reply, 0, std::numeric_limits<std::uint32_t>::max()) != 0 ||
        getJsonValueArray(&object, "stats", &stats, reply) != 0) {
        return settingsRefused;
    }
    for (const json& stat : stats) {
        const auto* name = stat.get_ptr<const json::string_t*>();
        if (name == nullptr) {
            *reply = "Failure: \"stats\" must be an array containing only strings";
            return settingsFatal;
        }
        settings->newStats.push_back(*name);
    }
    // Quirk: a period above 2147483647 becomes negative, and heartbeats follow without pause.
    settings->period = std::chrono::seconds(static_cast<std::int32_t>(period));
    return settingsRead;
}

// A group of settings. It may be absent; one that is there must be complete.
struct group_s {
    const char* key;
    result_e (*read)(const json& object, events_settings_s* settings, std::string* reply);
};
constexpr group_s groups[] = {
    {"errors", readErrors},
    {"warnings", readWarnings},
    {"heartbeat", readHeartbeat},
};

result_e readSettings(const json& root, events_settings_s* settings, std::string* reply) {
    for (const group_s& group : groups) {
        json object;
        const int found = getJsonValueObject(&root, group.key, &object, reply);
        if (found == -1) {
            continue;
        }
        const result_e result = found == 0 ? group.read(object, settings, reply) : settingsRefused;
        if (result != settingsRead) {
            return result;
        }
    }
    return settingsRead;
}

void showSettings(std::string* reply) {
    json shown = {
        {"errors", json::object()},
        {"heartbeat", {{"period", heartbeat_period.count()}, {"stats", heartbeat_stats}}},
        {"warnings",
         {{"temperature", {{"ambient", report_warning.ambientLimit}, {"pa", report_warning.paLimit}}}}}};
    showSwitches(report_error, errorSwitches, &shown["errors"]);
    showSwitches(report_warning, warningSwitches, &shown["warnings"]);
    *reply = "Success: " + shown.dump();
}

}  // namespace

int eventsHandler(std::vector<std::string>* tokens, std::string* reply) {
    if (tokens->size() == 1) {
        showSettings(reply);
        return 0;
    }
    // Quirk: blanks between the tokens are gone, also those inside strings.
    const std::string request = joinStrings({tokens->begin() + 1, tokens->end()}, "");
    std::cout << request << std::endl;
    json root;
    std::string reason;
    if (!parseJsonText(request, &root, &reason)) {
        *reply = "Failure: events request does not contain a valid json object: Received: " + request;
        return 0;
    }
    events_settings_s settings{report_error, report_warning, heartbeat_period, {}};
    if (const result_e result = readSettings(root, &settings, reply); result != settingsRead) {
        return result == settingsFatal ? -1 : 0;
    }
    report_error = settings.errors;
    report_warning = settings.warnings;
    heartbeat_period = settings.period;
    heartbeat_stats.insert(heartbeat_stats.end(), settings.newStats.begin(), settings.newStats.end());
    *reply = "Success";
    return 0;
}

}  // namespace requests
