// SPDX-License-Identifier: MIT
// The daemon's reply has the shape of JSON and is read as such, in the order in which it comes.
#include "status.hpp"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <nlohmann/json.hpp>

#include "alarms.hpp"
#include "command_words.hpp"
#include "exit_status.hpp"
#include "sockets.hpp"
#include "stat_names.hpp"

namespace {

using nlohmann::ordered_json;

// The daemon's word for a temperature that the radio did not tell.
constexpr int noTemperature = -273;

// A text without quotes, any other value as JSON.
std::string plain(const ordered_json& value) {
    return value.is_string() ? value.get<std::string>() : value.dump();
}

std::string percent(const ordered_json& value) {
    return plain(value) + " %";
}

// {"ambient": 29, "pa": 41} as "ambient 29 C, amplifier 41 C"
std::string temperatures(const ordered_json& value) {
    std::string text;
    for (const auto& [key, degrees] : value.items()) {
        text += (text.empty() ? "" : ", ") + (key == "pa" ? std::string("amplifier") : key) +
                (degrees == noTemperature ? " unknown" : " " + plain(degrees) + " C");
    }
    return text;
}

// {"1": 249, "2": 0} as "1: 249  2: 0"
std::string countsByPort(const ordered_json& value) {
    std::string text;
    for (const auto& [port, count] : value.items()) {
        text += (text.empty() ? "" : "  ") + port + ": " + plain(count);
    }
    return text.empty() ? "none" : text;
}

// {"1": "connected", "2": "disconnected"} as "1 connected; 2 disconnected"
std::string antennas(const ordered_json& value) {
    std::string text;
    for (const char* state : {vocabulary::connected, vocabulary::disconnected}) {
        std::string ports;
        for (const auto& [port, word] : value.items()) {
            ports += word == state ? (ports.empty() ? "" : ", ") + port : "";
        }
        text += ports.empty() ? "" : (text.empty() ? "" : "; ") + ports + " " + state;
    }
    return text.empty() ? "none" : text;
}

// The rows of the table from top to bottom. A row with `takesObject` shows plain JSON where the
// value is not an object, as for "unknown param".
struct status_row_s {
    std::string_view name;
    const char* label;
    std::string (*show)(const ordered_json& value);
    bool takesObject = false;
};
constexpr status_row_s rows[] = {
    {vocabulary::radioConnection, "radio", plain},
    {vocabulary::radioActivity, "activity", plain},
    {vocabulary::uptime, "up for", plain},
    {vocabulary::numTagReads, "tag reads", plain},
    {vocabulary::numTagReadsPerAntenna, "by antenna", countsByPort, true},
    {vocabulary::numRadioPacketsRxed, "radio packets", plain},
    {vocabulary::numDataMessagesTxed, "reports sent", plain},
    {vocabulary::numErrors, "errors", plain},
    {vocabulary::numWarnings, "warnings", plain},
    {vocabulary::cpuUtilization, "processor", percent},
    {vocabulary::ramUtilization, "memory", percent},
    {vocabulary::temperature, "temperature", temperatures, true},
    {vocabulary::antennas, "antennas", antennas, true},
    {vocabulary::aarEcho, "echo", plain},
};
static_assert(std::size(rows) == std::size(vocabulary::stats), "each stat has a row");

// Quirk of the daemon: a stat that this reader does not have leaves its comma behind, which is
// not JSON.
std::string withoutGaps(std::string text) {
    constexpr std::pair<std::string_view, std::string_view> gaps[] = {
        {", , ", ", "}, {"{, ", "{"}, {", }", "}"}};
    for (const auto& [gap, whole] : gaps) {
        for (std::size_t at; (at = text.find(gap)) != std::string::npos;) {
            text.replace(at, gap.size(), whole);
        }
    }
    return text;
}

std::string lineOf(const std::string& label, const std::string& value) {
    constexpr std::size_t labelWidth = 15;
    return label + std::string(label.size() < labelWidth ? labelWidth - label.size() : 1, ' ') + value;
}

std::string table(const ordered_json& status) {
    std::string text;
    for (const status_row_s& row : rows) {
        if (const auto member = status.find(row.name); member != status.end()) {
            const bool fits = !row.takesObject || member->is_object();
            text += lineOf(row.label, fits ? row.show(*member) : plain(*member)) + "\n";
        }
    }
    if (!text.empty()) {
        text.pop_back();
    }
    return text;
}

std::string alarmRows(const daemon_s& daemon, int count) {
    const alarms_s alarms = lastAlarms(endpointOf(daemon.endpoint), static_cast<std::size_t>(count));
    if (alarms.lines.empty()) {
        return "\n" + lineOf("last alarms", alarms.trouble.empty() ? "none" : alarms.trouble);
    }
    std::string text;
    for (const std::string& line : alarms.lines) {
        text += "\n" + lineOf(text.empty() ? "last alarms" : "", line);
    }
    return text;
}

}  // namespace

std::string statusNames() {
    std::string names;
    for (const status_row_s& row : rows) {
        names += (names.empty() ? "" : " ") + std::string(row.name);
    }
    return names;
}

int runStatus(const daemon_s& daemon, const status_request_s& request) {
    std::vector<std::string> words{std::string(vocabulary::status.word)};
    words.insert(words.end(), request.names.begin(), request.names.end());
    std::string reply;
    if (const int status = askDaemon(daemon, joinWords(words), &reply); status != exitSuccess) {
        return status;
    }
    if (isFailure(reply)) {
        return printReply(reply);
    }
    const ordered_json status = ordered_json::parse(withoutGaps(bodyOf(reply)), nullptr, false);
    if (!status.is_object()) {
        std::fprintf(stderr, "twctl: the reply is not a JSON object: %s\n", reply.c_str());
        return exitTrouble;
    }
    if (request.json) {
        return printText(status.dump());
    }
    const bool withAlarms = request.names.empty() && request.alarms > 0;
    return printText(table(status) + (withAlarms ? alarmRows(daemon, request.alarms) : ""));
}
