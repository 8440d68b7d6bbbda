// SPDX-License-Identifier: MIT
// What a subscriber of `events` hears of a sick reader: each alarm once, as JSON,
// and heartbeats that say what `status` says.
#include <gtest/gtest.h>

#include <map>
#include <regex>

#include "support/reports.hpp"

namespace {

using nlohmann::json;

// Checks the form of an alarm and that its number is the next of its type.
std::string messageOf(const std::string& text, std::map<std::string, int>* numbers) {
    const json alarm = json::parse(text);
    EXPECT_EQ(alarm.dump(), text) << "compact, sorted";
    const std::string type = alarm["type"];
    EXPECT_EQ(alarm["data"]["eventNum"], ++(*numbers)[type]) << text;
    const std::regex time("\\d{4}(-\\d\\d){2}T\\d\\d(:\\d\\d){2}\\.\\d{3}[+-]\\d{4}");
    EXPECT_TRUE(std::regex_match(alarm["timestamp"].get<std::string>(), time)) << text;
    EXPECT_TRUE(alarm.size() == 4 && alarm["component"] == "TW" && alarm["data"].size() == 2) << text;
    return type + " " + alarm["data"]["message"].get<std::string>();
}

TEST(Events, aSickReaderRaisesEachAlarmOnceAndStatusAgreesWithTheHeartbeat) {
    // The scenario that ships, in a third of its time.
    json scenario = json::parse(readTextFile(TARNWICK_SOURCE_DIR "/examples/scenarios/sick-reader.json"));
    for (json& event : scenario["events"]) {
        event["at"] = event["at"].get<double>() * 0.35;
    }
    const consumer_s events("ipc:///tmp/events");
    reader_s reader({.scenario = scenario.dump()});
    events.waitForPublisher();
    ASSERT_EQ(ask(R"(events {"heartbeat": {"period": 1, "stats": ["weather"]}})"), "Success");
    ASSERT_EQ(ask("start"), "Success");

    std::map<std::string, int> numbers, alarms;  // by type, by text
    while (alarms["error Antenna Disconnected on Port 4"] == 0) {
        const std::optional<frames_t> event = events.receive();
        ASSERT_TRUE(event && event->size() == 1);
        if (event->front().ends_with(R"("type":"heartbeat"})")) {
            continue;
        }
        const std::string message = messageOf(event->front(), &numbers);
        if (message.find(" Temperature ") == message.npos) {
            ++alarms[message.substr(0, message.find(". Will reset at"))];
        }
    }
    EXPECT_EQ(alarms, (std::map<std::string, int>{{"error Antenna Disconnected on Port 2", 1},
                                                  {"error Antenna Disconnected on Port 4", 1},
                                                  {"error Antenna Reconnected on Port 2", 1},
                                                  {"error Database full, resetting database", 1},
                                                  {"error RXE Error: ERRLOG synthesizer out of lock", 1},
                                                  {"error Tx (PA) Failure on Port 3", 1},
                                                  {"warning Database warning: 90% full", 1}}));

    // At rest both say the same, but for what was measured at another moment. The
    // second heartbeat comes ten seconds after the start.
    ASSERT_EQ(ask("stop"), "Success");
    json heartbeat, status;
    EXPECT_TRUE(eventually([&] {
        heartbeat = json::parse(events.receive().value_or(frames_t{"{}"}).front());
        status = json::parse(ask("status").substr(std::string("Success: ").size()));
        for (const char* moment : {"cpuUtilization", "ramUtilization", "uptime", "temperature"}) {
            EXPECT_EQ(status.erase(moment), 1U);
            heartbeat["data"].erase(moment);
        }
        return heartbeat["type"] == "heartbeat" && heartbeat["data"] == status;
    })) << heartbeat
        << status;
    EXPECT_EQ(reader.exit(), 0);
}

}  // namespace
