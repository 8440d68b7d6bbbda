// SPDX-License-Identifier: MIT
// The shipped scenarios and the built-in one, each under the daemon for
// 20 seconds: what engine/README.md says to expect.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <thread>

#include "support/reports.hpp"

namespace {

using std::chrono::steady_clock;
using testing::AllOf;
using testing::Ge;
using testing::HasSubstr;
using testing::Le;

constexpr const char* eventsEndpoint = "ipc:///tmp/events";

struct observed_s {
    std::vector<nlohmann::json> reports;
    std::set<std::string> ids;
    std::set<int> antennas;
    std::size_t idsOfSecondHalf = 0;   // that were new then
    std::map<std::string, int> lines;  // GPIO and LED lines by their word
    std::string events;
    std::string log;
};

void takeAll(const socket_s& socket, const std::function<void(const std::string& frame)>& take) {
    while (const std::optional<frames_t> message = socket.receive(std::chrono::milliseconds(0))) {
        for (const std::string& frame : *message) {
            if (!frame.empty()) {
                take(frame);
            }
        }
    }
}

// `file` empty: the built-in scenario. `mode` empty: the daemon's own.
observed_s observe(const std::string& file, const std::string& mode, const std::string& profile = "PN5100") {
    constexpr std::chrono::seconds time{20};
    const consumer_s data(dataEndpoint);
    const consumer_s lines(gpioLedEndpoint);
    const consumer_s events(eventsEndpoint);
    const std::string path = std::string(TARNWICK_SOURCE_DIR) + "/examples/scenarios/" + file;
    reader_s reader({.serverArguments = {"--profile", profile},
                     .scenario = file.empty() ? "" : readTextFile(path),
                     .mode = mode});
    data.waitForPublisher();
    lines.waitForPublisher();
    events.waitForPublisher();
    EXPECT_EQ(ask("start"), "Success");
    observed_s seen;
    const auto begin = steady_clock::now();
    for (auto passed = steady_clock::duration::zero(); passed < time; passed = steady_clock::now() - begin) {
        takeAll(data, [&](const std::string& frame) {
            seen.reports.push_back(nlohmann::json::parse(frame));
            const nlohmann::json& report = seen.reports.back();
            const bool isNew = seen.ids.insert(idOf(report)).second;
            seen.idsOfSecondHalf += isNew && passed > time / 2 ? 1 : 0;
            seen.antennas.insert(report["data"].value("antenna", 0));
        });
        takeAll(lines, [&](const std::string& line) { ++seen.lines[line.substr(0, line.find(','))]; });
        takeAll(events, [&](const std::string& event) { seen.events += event + "\n"; });
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    EXPECT_EQ(ask("stop"), "Success");
    EXPECT_EQ(reader.exit(), 0);
    seen.log = reader.log();
    return seen;
}

// Ids that begin so, of the tags seen.
int countOf(const observed_s& seen, const std::string& prefix) {
    return static_cast<int>(
        std::ranges::count_if(seen.ids, [&](const std::string& id) { return id.starts_with(prefix); }));
}

const char* const everyRead = R"({"type": "SIMPLE", "reportFilter": {}, "tagMetaData": ["ANTENNA"]})";

TEST(Scenarios, theBuiltInOneKeepsBringingNewTags) {
    const observed_s seen = observe("", "");
    EXPECT_EQ(seen.ids.size(), seen.reports.size()) << "each tag once";
    EXPECT_GE(countOf(seen, "3034257bf7194e4"), 20) << "those that lie about";
    EXPECT_GE(seen.idsOfSecondHalf, 120U) << "some fifteen a second pass by";
}

TEST(Scenarios, dockDoorReadsAPalletForEachTrigger) {
    observed_s seen = observe("dock-door.json",
                              R"({"type": "CUSTOM", "reportFilter": {}, "tagMetaData": ["ANTENNA"],
            "radioStartConditions": {"type": "GPI_WITH_RESTART", "gpis": [{"port": 1, "signal": "HIGH"}]},
            "radioStopConditions": {"gpis": [{"port": 1, "signal": "LOW"}]}})");
    EXPECT_THAT(countOf(seen, "3054257bf468d48"), AllOf(Ge(104), Le(108))) << "three pallets of 36 cartons";
    EXPECT_THAT(countOf(seen, "31d4257bf4"), AllOf(Ge(2), Le(3))) << "each with its own label";
    EXPECT_GE(seen.antennas.size(), 2U);
    EXPECT_GE(seen.lines["GPI_1_H"], 2);
    EXPECT_GE(seen.lines["GPI_1_L"], 2);
    EXPECT_GE(seen.lines["RADIO_STOP"], 2) << "the falling edge ends the run";
}

TEST(Scenarios, shelfSeesAnItemComeMoveAndGo) {
    const observed_s seen = observe("shelf.json", everyRead);
    EXPECT_THAT(countOf(seen, "3034257bf6a"), AllOf(Ge(58), Le(60)));
    EXPECT_EQ(countOf(seen, "3034257bf7194e4000000bb8"), 1);
    EXPECT_EQ(seen.antennas, (std::set{1, 2, 3})) << "port 4 is not connected";
}

TEST(Scenarios, conveyorBringsFourCartonsASecond) {
    const observed_s seen = observe("conveyor.json", everyRead);
    EXPECT_THAT(countOf(seen, "3434257bf4"), AllOf(Ge(60), Le(84)));
    EXPECT_GE(seen.idsOfSecondHalf, 30U);
}

TEST(Scenarios, crowdOfAThousandIsReadInSeconds) {
    const observed_s seen = observe("crowd.json", "");
    EXPECT_THAT(countOf(seen, "3034257bf6"), AllOf(Ge(950), Le(1000)));
}

TEST(Scenarios, salesFloorIsSeenByManyBeams) {
    const observed_s seen = observe("sales-floor.json", everyRead, "QDX4400");
    EXPECT_THAT(countOf(seen, "3334257bf4"), AllOf(Ge(170), Le(180)));
    EXPECT_THAT(countOf(seen, "3034257bf7"), AllOf(Ge(6), Le(12))) << "those that walk through";
}

TEST(Scenarios, sickReaderTellsWhatAilsIt) {
    const observed_s seen = observe("sick-reader.json", everyRead);
    for (const char* text :
         {"Antenna Disconnected on Port 2", "Antenna Reconnected on Port 2", "Tx (PA) Failure on Port 3",
          "RXE Error: ERRLOG synthesizer out of lock", "Database warning: 90% full",
          "Database full, resetting database", "Ambient Temperature High @ ", "PA Temperature Critical @ ",
          "Antenna Disconnected on Port 4"}) {
        EXPECT_THAT(seen.log, HasSubstr(text));
        EXPECT_THAT(seen.events, HasSubstr(text));
    }
}

}  // namespace
