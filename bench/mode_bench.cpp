// SPDX-License-Identifier: MIT
// The cost of parsing a full mode request into a record and rendering it again, as a ratio to a bare
// json::parse and dump of the same text. Both run in turn in one process; the verdict is the median of
// the ratios of neighbouring rounds. The exit status is 1 when it is above the aim.
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "measure.hpp"
#include "mode/language.hpp"

namespace {

using nlohmann::json;

constexpr double aim = 10;
constexpr int rounds = 400;
constexpr std::size_t beams = 50;

json select(std::size_t pointer) {
    return {{"target", "S1"},     {"action", "INVA_INVB"}, {"membank", "EPC"},
            {"pointer", pointer}, {"length", 32},          {"mask", "30342f1a"}};
}
json read(std::size_t pointer) {
    return {{"type", "READ"}, {"config", {{"membank", "USER"}, {"wordPointer", pointer}, {"wordCount", 4}}}};
}

// Every key that no other key excludes, with a different value for each antenna where the key allows
// it.
json fullRequest() {
    json request = json::parse(R"({
        "type": "CUSTOM", "beams": [], "transmitPower": [], "linkProfile": [], "antennaStopCondition": [],
        "query": [], "selects": [], "accesses": [], "delayAfterSelects": 5,
        "filter": {"value": "1a85", "match": "suffix", "operation": "include"},
        "radioStartConditions": {"type": "GPI", "gpis": [{"port": 1, "signal": "HIGH", "debounceTime": 20}]},
        "radioStopConditions": {"duration": 60, "antennaCycles": 9, "tagCount": 500,
                                "gpis": [{"port": 1, "signal": "LOW"}, {"port": 2, "signal": "LOW"}]},
        "tagMetaData": ["ANTENNA", "RSSI", "CHANNEL", "PC", "XPC", "CRC", "HEATMAP", "MAC", "TAGURI", "EPCURI",
                        "HOSTNAME", "SEEN_COUNT", "PHASE", "BEARING", "LOCATION", {"userDefined": "dock4"}],
        "rssiFilter": {"threshold": -60}, "modeSpecificSettings": {},
        "delayBetweenAntennaCycles": {"type": "NO_UNIQUE_TAGS", "duration": 9}})");
    for (std::size_t i = 0; i < beams; ++i) {
        request["beams"].push_back({{"azimuth", 5 * i}, {"elevation", 45}, {"polarization", "PHI"}});
        request["transmitPower"].push_back(20.5);
        request["linkProfile"].push_back(201);
        request["antennaStopCondition"].push_back({{"type", "DURATION"}, {"value", 100 + i}});
        request["query"].push_back(
            {{"sel", "ALL"}, {"session", "S2"}, {"target", "A"}, {"tagPopulation", i + 1}});
        request["selects"].push_back(i < 32 ? json{select(i)} : json::array());
        request["accesses"].push_back(json{read(i)});
    }
    return request;
}

void parseAndRender(const std::string& text) {
    mode_configuration_s mode;
    json root;
    std::string reply;
    if (parseModeRequest(text, &root, &mode, &reply) != 0) {
        std::fprintf(stderr, "%s\n", reply.c_str());
        std::exit(2);
    }
    copyModeConfiguration(&mode, &mode_configuration);
    getCurrentMode(&reply, GET_CURRENT_MODE_METHOD_e::VERBOSE);
}

}  // namespace

int main() {
    setModelName("QDX4400");
    readerFacts.max_ants = 14;
    readerFacts.max_tx_pwr_x_10 = 360;
    readerFacts.rssiFilterSupported = true;
    initMode();
    const std::string text = fullRequest().dump();
    std::vector<double> ratios;
    std::vector<double> costs;
    std::size_t bytes = 0;
    for (int round = 0; round < rounds; ++round) {
        const double bare = secondsOf([&] { bytes += json::parse(text).dump().size(); });
        costs.push_back(secondsOf([&] { parseAndRender(text); }));
        ratios.push_back(costs.back() / bare);
    }
    const double ratio = median(ratios);
    std::printf("request of %zu bytes: ratio %.2f  aim %.1f %s  %.0f us\n", bytes / rounds, ratio, aim,
                ratio <= aim ? "met" : "MISSED", median(costs) * 1e6);
    return ratio <= aim ? 0 : 1;
}
