// SPDX-License-Identifier: MIT
// The command "status": the stats of a heartbeat as text that has the shape of JSON, with the
// members in a fixed order and a blank behind most colons. Unlike a heartbeat it always asks
// the radio. Main thread.
#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>

#include "connection.hpp"
#include "engine_io/parameters.hpp"
#include "reader_facts.hpp"
#include "requests.hpp"
#include "requests/report.hpp"
#include "stat_names.hpp"
#include "util.hpp"

namespace requests {

namespace {

// {"1": value, ...}
template <class Values, class Append>
void appendByPort(const Values& values, Append append, std::string* out) {
    *out += "{";
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
    appendByPort(getTagReadsByPort(), append, out);
}

void appendWord(const char* word, std::string* out) {
    sprintfStrAppend(out, "\"%s\"", word);
}

void appendAntennas(std::string* out) {
    updateDisconnectedAntennas();
    std::map<unsigned, bool> states;
    const auto [first, last] = reportedPorts();
    for (unsigned port = first; port <= last; ++port) {
        states[port] = !disconnected_antenna[port];
    }
    const auto append = [](bool connected, std::string* text) {
        appendWord(connectionWord(connected), text);
    };
    appendByPort(states, append, out);
}

// 15 is "1.5".
void appendTenths(int tenths, std::string* out) {
    sprintfStrAppend(out, "%d.%d", tenths / 10, tenths % 10);
}

void appendUptime(std::string* out) {
    const clock_time_s up = getUptime();
    sprintfStrAppend(out, "\"%lu:%02lu:%02lu\"", up.hours, up.minutes, up.seconds);
}

void appendTemperature(std::string* out) {
    const temperatures_s read = readTemperatures();
    sprintfStrAppend(out, "{\"ambient\":%d", read.ambient);
    if (thisModel().amplifierTemperature) {
        sprintfStrAppend(out, ",\"pa\":%d", read.pa);
    }
    *out += "}";
}

void appendEcho(std::string* out) {
    nlohmann::json echo;
    getEchoStateJson(&echo);
    *out += echo.dump(4);
}

// The order of the reply. `append` writes the value; without it the stat is a plain counter.
struct status_stat_s {
    std::string_view name;
    void (*append)(std::string* out);
};
constexpr status_stat_s stats[] = {
    {vocabulary::numTagReads, nullptr},
    {vocabulary::numTagReadsPerAntenna, appendTagReadsByPort},
    {vocabulary::numRadioPacketsRxed, nullptr},
    {vocabulary::numDataMessagesTxed, nullptr},
    {vocabulary::cpuUtilization, [](std::string* out) { appendTenths(get_cpu_util(), out); }},
    {vocabulary::ramUtilization, [](std::string* out) { appendTenths(get_mem_util(), out); }},
    {vocabulary::uptime, appendUptime},
    {vocabulary::numErrors, nullptr},
    {vocabulary::numWarnings, nullptr},
    {vocabulary::radioConnection,
     [](std::string* out) { appendWord(connectionWord(RXE_still_connected), out); }},
    {vocabulary::radioActivity, [](std::string* out) { appendWord(activityWord(isStartOngoing()), out); }},
    {vocabulary::antennas, appendAntennas},
    {vocabulary::temperature, appendTemperature},
    {vocabulary::aarEcho, appendEcho},  // only when asked for by name
};
constexpr std::size_t nStatsUnasked = std::size(stats) - 1;
static_assert(std::size(stats) == std::size(vocabulary::stats));

// Quirk: where the reader has no echoes their name adds nothing, and the comma stays.
void appendStat(std::string_view name, std::string* out) {
    if (name == vocabulary::aarEcho && !thisModel().arrayReader) {
        return;
    }
    const auto* stat = std::ranges::find(stats, name, &status_stat_s::name);
    if (stat == std::end(stats)) {
        sprintfStrAppend(out, "\"%s\": \"unknown param\"", std::string(name).c_str());
        return;
    }
    out->append("\"").append(name).append("\": ");
    if (stat->append != nullptr) {
        stat->append(out);
    } else {
        *out += std::to_string(findCounter(name)->read());
    }
}

}  // namespace

int statusHandler(std::vector<std::string>* tokens, std::string* reply) {
    *reply = "Success: {";
    if (tokens->size() == 1) {
        for (std::size_t i = 0; i < nStatsUnasked; ++i) {
            *reply += i == 0 ? "" : ",";
            appendStat(stats[i].name, reply);
        }
    }
    for (std::size_t i = 1; i < tokens->size(); ++i) {
        *reply += i == 1 ? "" : ", ";
        appendStat((*tokens)[i], reply);
    }
    *reply += "}";
    return 0;
}

}  // namespace requests
