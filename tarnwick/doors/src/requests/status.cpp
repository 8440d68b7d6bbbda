// SPDX-License-Identifier: MIT
// The command "status": what a heartbeat tells, asked for, and written in a
// format of its own: members in a fixed order, a blank behind most colons.
#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>

#include "connection.hpp"
#include "engine_io/parameters.hpp"
#include "reader_facts.hpp"
#include "requests.hpp"
#include "requests/report.hpp"
#include "util.hpp"

namespace {

// "name": {"1": value, ...}
template <class Values, class Append>
void appendByPort(const char* name, const Values& values, Append append, std::string* out) {
    sprintfStrAppend(out, "\"%s\": {", name);
    const char* separator = "";
    for (const auto& [port, value] : values) {
        sprintfStrAppend(out, "%s\"%u\": ", separator, port);
        append(value, out);
        separator = ",";
    }
    *out += "}";
}

void appendTagReadsByPort(std::string* out) {
    const auto append = [](std::uint64_t count, std::string* text) { *text += std::to_string(count); };
    appendByPort("numTagReadsPerAntenna", getTagReadsByPort(), append, out);
}

void appendAntennas(std::string* out) {
    updateDisconnectedAntennas();
    std::map<unsigned, bool> states;
    const auto [first, last] = reportedPorts();
    for (unsigned port = first; port <= last; ++port) {
        states[port] = !disconnected_antenna[port];
    }
    const auto append = [](bool connected, std::string* text) {
        sprintfStrAppend(text, "\"%s\"", connectionWord(connected));
    };
    appendByPort("antennas", states, append, out);
}

void appendTenths(const char* name, int tenths, std::string* out) {
    sprintfStrAppend(out, "\"%s\": %d.%d", name, tenths / 10, tenths % 10);
}

void appendUptime(std::string* out) {
    const clock_time_s up = getUptime();
    sprintfStrAppend(out, "\"uptime\": \"%lu:%02lu:%02lu\"", up.hours, up.minutes, up.seconds);
}

void appendTemperature(std::string* out) {
    const temperatures_s read = readTemperatures();
    sprintfStrAppend(out, "\"temperature\": {\"ambient\":%d", read.ambient);
    if (thisModel().amplifierTemperature) {
        sprintfStrAppend(out, ",\"pa\":%d", read.pa);
    }
    *out += "}";
}

void appendWord(const char* name, const char* word, std::string* out) {
    sprintfStrAppend(out, "\"%s\": \"%s\"", name, word);
}

void appendEcho(std::string* out) {
    if (thisModel().arrayReader) {
        nlohmann::json echo;
        getEchoStateJson(&echo);
        *out += "\"aarEcho\": " + echo.dump(4);
    }
}

// Those without a function are plain counters.
struct status_stat_s {
    std::string_view name;
    void (*append)(std::string* out);
};
constexpr status_stat_s stats[] = {
    {"numTagReads", nullptr},
    {"numTagReadsPerAntenna", appendTagReadsByPort},
    {"numRadioPacketsRxed", nullptr},
    {"numDataMessagesTxed", nullptr},
    {"cpuUtilization", [](std::string* out) { appendTenths("cpuUtilization", get_cpu_util(), out); }},
    {"ramUtilization", [](std::string* out) { appendTenths("ramUtilization", get_mem_util(), out); }},
    {"uptime", appendUptime},
    {"numErrors", nullptr},
    {"numWarnings", nullptr},
    {"radioConnection",
     [](std::string* out) { appendWord("radioConnection", connectionWord(RXE_still_connected), out); }},
    {"radioActivity",
     [](std::string* out) { appendWord("radioActivity", activityWord(isStartOngoing()), out); }},
    {"antennas", appendAntennas},
    {"temperature", appendTemperature},
    {"aarEcho", appendEcho},  // only when asked for by name
};
constexpr std::size_t nStatsUnasked = std::size(stats) - 1;

void appendStat(const std::string& name, std::string* out) {
    const auto* stat = std::ranges::find(stats, name, &status_stat_s::name);
    if (stat != std::end(stats) && stat->append != nullptr) {
        stat->append(out);
    } else if (const counter_stat_s* counter = findCounter(name)) {
        *out += "\"" + name + "\": " + std::to_string(counter->read());
    } else {
        sprintfStrAppend(out, "\"%s\": \"unknown param\"", name.c_str());
    }
}

}  // namespace

int statusHandler(std::vector<std::string>* tokens, std::string* reply) {
    *reply = "Success: {";
    if (tokens->size() == 1) {
        for (std::size_t i = 0; i < nStatsUnasked; ++i) {
            *reply += i == 0 ? "" : ",";
            appendStat(std::string(stats[i].name), reply);
        }
    }
    for (std::size_t i = 1; i < tokens->size(); ++i) {
        *reply += i == 1 ? "" : ", ";
        appendStat((*tokens)[i], reply);
    }
    *reply += "}";
    return 0;
}
