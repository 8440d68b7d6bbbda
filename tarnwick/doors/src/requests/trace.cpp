// SPDX-License-Identifier: MIT
// The command "trace": follows single tags, and shows as JSON what became of each of their packets.
// Main thread.
#include <algorithm>
#include <cctype>
#include <iterator>
#include <nlohmann/json.hpp>
#include <optional>

#include "command_words.hpp"
#include "fates.hpp"
#include "radio.hpp"
#include "requests.hpp"
#include "util.hpp"

namespace requests {

namespace {

using nlohmann::json;
using bytes_t = std::vector<std::uint8_t>;

constexpr std::int64_t microsecondsOfSecond = 1'000'000;

std::string isoTime(const timeval& time) {
    std::string text;
    getISOString(&time, &text);
    return text;
}

std::string hexOf(const std::uint8_t* bytes, std::size_t count) {
    std::string text;
    appendHex(bytes, count, &text);
    return text;
}

// Nothing for a text that is not an EPC or its beginning.
std::optional<bytes_t> bytesOf(const std::string& hex) {
    const bool isHex =
        std::ranges::all_of(hex, [](unsigned char digit) { return std::isxdigit(digit) != 0; });
    if (!isHex || hex.empty() || hex.size() % 2 != 0 || hex.size() > 2 * maxEpcBytes) {
        return std::nullopt;
    }
    bytes_t bytes;
    for (std::size_t i = 0; i < hex.size(); i += 2) {
        bytes.push_back(hex2int(hex[i], hex[i + 1]));
    }
    return bytes;
}

std::string_view formOf(std::uint8_t form) {
    switch (form) {
        case DATA_ANALYTICS_BINARY:
            return vocabulary::analyticsBinary.name;
        case DATA_ANALYTICS_STRING:
            return vocabulary::analyticsString.name;
        default:
            return vocabulary::analyticsOff.name;
    }
}

json packetJson(const traced_packet_s& packet) {
    constexpr double kilohertzOfMegahertz = 1000;
    json row = {
        {"time", isoTime(packet.time)},
        {"epc", hexOf(packet.epc.data(), packet.epcBytes)},
        {"antenna", packet.antenna},
    };
    if (packet.channel != 0) {  // the mode does not ask for it
        row["channel"] = packet.channel / kilohertzOfMegahertz;
    }
    if (packet.rssi != noRssi) {
        row["peakRssi"] = packet.rssi;
    }
    const std::string reason(packet.reason.data(), packet.reasonBytes);
    if (packet.quietUntil != 0) {
        row["key"] = reason;
        row["until"] =
            isoTime({packet.quietUntil / microsecondsOfSecond, packet.quietUntil % microsecondsOfSecond});
    }
    if (packet.fate == vocabulary::fateCount) {
        row["fate"] = vocabulary::pendingFate;
        return row;
    }
    row["fate"] = vocabulary::fates[packet.fate].name;
    if (const auto fate = vocabulary::fate_e{packet.fate}; fate == vocabulary::fate_e::filtered) {
        row["rule"] = reason;
    } else if (fate == vocabulary::fate_e::sent) {
        row["form"] = formOf(packet.form);
        row["listeners"] = packet.listeners;
        if (packet.eventNum != noEventNum) {
            row["eventNum"] = packet.eventNum;
        }
    }
    return row;
}

json headJson(const trace_s& trace) {
    return {{"epc", hexOf(trace.prefix.data(), trace.prefix.size())},
            {"since", isoTime(trace.since)},
            {"packets", trace.packets}};
}

void list(std::string* reply) {
    json traces = json::array();
    for (const trace_s& trace : getTraces()) {
        traces.push_back(headJson(trace));
    }
    *reply = "Success: " + json{{"traces", traces}}.dump();
}

void add(const bytes_t& prefix, std::string* reply) {
    *reply = addTrace(prefix)
                 ? "Success"
                 : "Failure: " + std::to_string(maxTraces) + " EPCs are traced already, remove one first";
}

void refuseUnknown(const bytes_t& prefix, std::string* reply) {
    *reply = "Failure: " + hexOf(prefix.data(), prefix.size()) + " is not traced";
}

void remove(const bytes_t& prefix, std::string* reply) {
    *reply = "Success";
    if (!removeTrace(prefix)) {
        refuseUnknown(prefix, reply);
    }
}

void show(const bytes_t& prefix, std::string* reply) {
    const std::optional<trace_s> trace = getTrace(prefix);
    if (!trace) {
        refuseUnknown(prefix, reply);
        return;
    }
    json shown = headJson(*trace);
    json& last = shown["last"] = json::array();
    std::ranges::transform(trace->last, std::back_inserter(last), packetJson);
    *reply = "Success: " + shown.dump(-1, ' ', false, json::error_handler_t::replace);
}

struct trace_action_s {
    std::string_view word;
    void (*run)(const bytes_t& prefix, std::string* reply);
};
constexpr trace_action_s actions[] = {
    {vocabulary::traceAdd.name, add},
    {vocabulary::traceRemove.name, remove},
    {vocabulary::traceShow.name, show},
};

}  // namespace

int traceHandler(std::vector<std::string>* tokens, std::string* reply) {
    if (tokens->size() == 2 && (*tokens)[1] == vocabulary::traceList.name) {
        list(reply);
        return 0;
    }
    const auto* action = tokens->size() < 2 ? std::end(actions)
                                            : std::ranges::find(actions, (*tokens)[1], &trace_action_s::word);
    if (action == std::end(actions)) {
        *reply = "Failure: trace needs one of add, remove, list, show";
        return 0;
    }
    const std::optional<bytes_t> prefix = tokens->size() == 3 ? bytesOf((*tokens)[2]) : std::nullopt;
    if (!prefix) {
        *reply =
            "Failure: trace needs an EPC or its beginning in hexadecimal digits, two for each byte, at "
            "most " +
            std::to_string(maxEpcBytes) + " bytes";
        return 0;
    }
    action->run(*prefix, reply);
    return 0;
}

}  // namespace requests
