// SPDX-License-Identifier: MIT
// The shipped scenarios under the daemon for 20 seconds of the radio's time, as fast as
// it goes, and 10 real ones of the built-in scenario: what engine/README.md says to
// expect. The sick reader's alarms are heard in events_test.cpp.
#include <gtest/gtest.h>

#include "support/reports.hpp"

namespace {

using nlohmann::json;

using tags_t = std::tuple<const char*, long, long>;  // a prefix of EPCs, and how many at least and at most

const std::string everyRead = R"({"type": "SIMPLE", "reportFilter": {}, "tagMetaData": ["ANTENNA"],
    "radioStopConditions": {"duration": 20}})";
const std::string eachOnce = R"({"type": "SIMPLE", "radioStopConditions": {"duration": 20}})";
const std::string eachOnceForTenSeconds = R"({"type": "SIMPLE", "radioStopConditions": {"duration": 10}})";
const std::string byTrigger = R"({"type": "CUSTOM", "reportFilter": {}, "tagMetaData": ["ANTENNA"],
    "radioStartConditions": {"type": "GPI_WITH_RESTART", "gpis": [{"port": 1, "signal": "HIGH"}]},
    "radioStopConditions": {"gpis": [{"port": 1, "signal": "LOW"}]}})";

const struct case_s {
    const char* name;
    const std::string& mode;
    std::vector<tags_t> tags;
    std::set<int> antennas = {};
} cases[] = {
    // those that lie about, and fifteen a second that pass by, in the second half too
    {"", eachOnceForTenSeconds, {{"3034257bf7194e4", 20, 24}, {"3034257bf71", 155, 189}}},
    // three pallets of 36 cartons, each with its label
    {"dock-door", byTrigger, {{"3054257bf468d48", 104, 108}, {"31d4257bf4", 2, 3}}, {1, 2, 3, 4}},
    // and an item that comes, moves and goes; port 4 is not connected
    {"shelf", everyRead, {{"3034257bf6a", 58, 60}, {"3034257bf7194e4000000bb8", 1, 1}}, {1, 2, 3}},
    // at most 42 in the first half
    {"conveyor", everyRead, {{"3434257bf4", 72, 84}}, {1, 2}},
    {"crowd", eachOnce, {{"3034257bf6", 950, 1000}}},
    // and those that walk through
    {"sales-floor", eachOnce, {{"3334257bf4", 170, 180}, {"3034257bf7", 6, 12}}},
};

// With the fast clock. A mode that waits for triggers has no end, but from 20 seconds on
// no antenna hears anything.
std::string scenarioOf(const case_s& row) {
    if (*row.name == '\0') {
        return "";
    }
    json scenario = json::parse(
        readTextFile(std::string(TARNWICK_SOURCE_DIR "/examples/scenarios/") + row.name + ".json"));
    scenario["clock"] = "fast";
    for (int port = 1; row.mode == byTrigger && port <= 4; ++port) {
        scenario["events"].push_back({{"at", 20}, {"event", "antenna"}, {"port", port}, {"state", "lost"}});
    }
    return scenario.dump();
}

TEST(Scenarios, bringWhatIsToldOfThem) {
    for (const case_s& row : cases) {
        SCOPED_TRACE(row.name);
        const consumer_s data(dataEndpoint);
        const consumer_s lines(gpioLedEndpoint);
        const char* const profile = row.name == std::string("sales-floor") ? "QDX4400" : "PN5100";
        reader_s reader({.serverArguments = {"--profile", profile}, .scenario = scenarioOf(row)});
        data.waitForPublisher();
        lines.waitForPublisher();
        ASSERT_EQ(ask("mode " + row.mode), "Success");
        ASSERT_EQ(ask("start"), "Success");
        int runs = row.mode == byTrigger ? 3 : 1;  // that are still to end
        for (report_stream_s stream{lines}; runs > 0;) {
            runs -= stream.next().starts_with("RADIO_STOP,") ? 1 : 0;
        }
        ASSERT_EQ(ask("stop"), "Success");

        std::multiset<std::string> ids;
        std::set<int> antennas;
        for (const std::string& frame : framesOf(data, std::chrono::milliseconds(500))) {
            const json report = json::parse(frame);
            ids.insert(idOf(report));
            antennas.insert(report["data"].value("antenna", 0));
        }
        const std::set<std::string> tags(ids.begin(), ids.end());
        for (const auto& [prefix, least, most] : row.tags) {
            const auto count = std::ranges::count_if(
                tags, [&start = prefix](const std::string& id) { return id.starts_with(start); });
            EXPECT_GE(count, least) << prefix;
            EXPECT_LE(count, most) << prefix;
        }
        EXPECT_TRUE(row.mode == everyRead || row.mode == byTrigger || tags.size() == ids.size());
        EXPECT_TRUE(row.antennas.empty() || antennas == row.antennas) << testing::PrintToString(antennas);
        EXPECT_EQ(reader.exit(), 0);
    }
}

}  // namespace
