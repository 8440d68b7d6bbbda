// SPDX-License-Identifier: MIT
// The heartbeat, and the sources that it shares with the `status` command. Main thread; the
// counters are written by the engine thread and read here without a lock.
#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>
#include <utility>

#include "connection.hpp"
#include "engine_io/channels.hpp"
#include "engine_io/parameters.hpp"
#include "logger.hpp"
#include "radio.hpp"
#include "reader_facts.hpp"
#include "requests.hpp"
#include "requests/report.hpp"
#include "stat_names.hpp"
#include "util.hpp"

namespace requests {

using nlohmann::json;

namespace {

std::uint64_t load(const std::atomic<std::uint64_t>& counter) {
    return counter.load(std::memory_order_relaxed);
}

constexpr counter_stat_s counters[] = {
    {vocabulary::numTagReads, [] { return load(radio::tagReadCount); }},
    {vocabulary::numRadioPacketsRxed, [] { return load(radio::packetRxCount); }},
    {vocabulary::numDataMessagesTxed, [] { return load(radio::msgTxCount); }},
    {vocabulary::numErrors, getErrorCount},
    {vocabulary::numWarnings, getWarningCount},
};

// What a heartbeat tells besides the counters. `active` is whether the radio runs: then the
// engine is not asked, and what the radio last reported is told.
using stat_to_json = void (*)(bool active, json* out);
struct heartbeat_stat_s {
    std::string_view name;
    stat_to_json toJson;
};

void uptimeToJson(bool, json* out) {
    const clock_time_s up = getUptime();
    *out = sprintfStr("%02lu:%02lu:%02lu", up.hours, up.minutes, up.seconds);
}

constexpr heartbeat_stat_s otherStats[] = {
    {vocabulary::numTagReadsPerAntenna, [](bool, json* out) { getNumTagReadsPerAntennaJson(out); }},
    {vocabulary::cpuUtilization, [](bool, json* out) { *out = get_cpu_util() / 10.0; }},
    {vocabulary::ramUtilization, [](bool, json* out) { *out = get_mem_util() / 10.0; }},
    {vocabulary::uptime, uptimeToJson},
    {vocabulary::radioConnection, [](bool, json* out) { *out = connectionWord(RXE_still_connected); }},
    {vocabulary::radioActivity, [](bool active, json* out) { *out = activityWord(active); }},
    {vocabulary::temperature, [](bool active, json* out) { getTemperatureJson(active, out); }},
    {vocabulary::antennas, [](bool active, json* out) { getAntennaStateJson(active, out); }},
    {vocabulary::aarEcho, [](bool, json* out) { getEchoStateJson(out); }},
};

// A name that is not known adds nothing, as the echoes on a reader without an array.
void addStat(const std::string& name, bool active, json* data) {
    if (const counter_stat_s* counter = findCounter(name)) {
        (*data)[name] = counter->read();
        return;
    }
    const auto* stat = std::ranges::find(otherStats, name, &heartbeat_stat_s::name);
    if (stat != std::end(otherStats) && (name != vocabulary::aarEcho || thisModel().arrayReader)) {
        stat->toJson(active, &(*data)[name]);
    }
}

// Two packets a second, over the last period, are a running radio, which must not be disturbed
// with questions. Otherwise the engine is asked.
bool isRadioActive() {
    if (std::cmp_greater_equal(get_num_RXE_packets_since_last_time(), 2 * heartbeat_period.count())) {
        return true;
    }
    check_RXE_connection();
    return isStartOngoing();
}

// The channel index of the next echo state, from 0. Written and read by getEchoStateJson.
std::uint8_t echoChannel = 0;

// In place of a frequency in kHz.
constexpr std::uint32_t channelNotEnabled = 0xFFFFFFFF;

}  // namespace

const counter_stat_s* findCounter(std::string_view name) {
    const auto* counter = std::ranges::find(counters, name, &counter_stat_s::name);
    return counter == std::end(counters) ? nullptr : counter;
}

const char* connectionWord(bool connected) {
    return connected ? vocabulary::connected : vocabulary::disconnected;
}

const char* activityWord(bool active) {
    return active ? vocabulary::active : vocabulary::inactive;
}

clock_time_s getUptime() {
    // A clock that was set back may put the start into the future.
    const auto seconds = static_cast<unsigned long>(std::max(get_proc_uptime(), 0));
    return {seconds / 3600, seconds / 60 % 60, seconds % 60};
}

std::map<unsigned, std::uint64_t> getTagReadsByPort() {
    std::map<unsigned, std::uint64_t> reads;
    if (thisModel().arrayReader) {
        const auto beams = getTagReadCountPerAntQDX();
        reads.insert(beams.begin(), beams.end());
        return reads;
    }
    const auto [first, last] = reportedPorts();
    for (unsigned port = first; port <= last; ++port) {
        reads[port] = load(radio::tagReadCountPerAnt[port]);
    }
    return reads;
}

temperatures_s readTemperatures() {
    temperatures_s read{-273, -273};
    getPATemp(&read.pa);
    getAmbTemp(&read.ambient);
    return read;
}

int getTemperatureJson(bool active, json* out) {
    const bool cached = active && current_amb_temp != noTemperature;
    const temperatures_s read =
        cached ? temperatures_s{current_amb_temp, current_pa_temp} : readTemperatures();
    *out = {{"ambient", read.ambient}};
    if (thisModel().amplifierTemperature) {
        (*out)["pa"] = read.pa;
    }
    return 0;
}

int getAntennaStateJson(bool active, json* out) {
    *out = json::object();
    if (!active) {
        updateDisconnectedAntennas();
    }
    const auto [first, last] = reportedPorts();
    for (unsigned port = first; port <= last; ++port) {
        (*out)[std::to_string(port)] = connectionWord(!disconnected_antenna[port]);
    }
    return 0;
}

int getNumTagReadsPerAntennaJson(json* out) {
    *out = json::object();
    for (const auto& [port, reads] : getTagReadsByPort()) {
        (*out)[std::to_string(port)] = reads;
    }
    return 0;
}

int getEchoStateJson(json* out) {
    *out = json::object();
    AAREchoResults results{};
    std::uint32_t frequency = channelNotEnabled;
    RXE_API_STATUS status = get_aar_echo_info(echoChannel, &results, &frequency);
    if (status == RXE_OK && frequency == channelNotEnabled) {
        echoChannel = 0;
        status = get_aar_echo_info(echoChannel, &results, &frequency);
    }
    if (status != RXE_OK || frequency == channelNotEnabled) {
        return 0;
    }
    ++echoChannel;
    json& elements = (*out)[std::to_string(frequency)];
    for (std::size_t i = 0; i < std::size(results.txPwrx10); ++i) {
        elements[std::to_string(i)] = {
            {"txPwrx10", static_cast<double>(results.txPwrx10[i])},
            {"rxPwrPreEchox10", static_cast<double>(results.rxPwrPreEchox10[i])},
            {"rxPwrPostEchox10", static_cast<double>(results.rxPwrPostEchox10[i])}};
    }
    return 0;
}

int getHeartbeat(std::string* out) {
    const bool active = isRadioActive();
    json data = json::object();
    for (const std::string& name : heartbeat_stats) {
        addStat(name, active, &data);
    }
    *out = json{{"component", "TW"}, {"data", std::move(data)}, {"type", "heartbeat"}}.dump();
    return 1;
}

}  // namespace requests
