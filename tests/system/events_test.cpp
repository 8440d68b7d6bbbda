// SPDX-License-Identifier: MIT
// What a subscriber of `events` hears of a sick reader: each alarm once, as JSON,
// and heartbeats that say what `status` says.
#include <gtest/gtest.h>

#include <map>
#include <regex>

#include "support/reports.hpp"

namespace {

using nlohmann::json;

constexpr const char* eventsEndpoint = "ipc:///tmp/events";

// The scenario that ships, in a third of its time.
std::string hastySickReader() {
    json scenario = json::parse(readTextFile(TARNWICK_SOURCE_DIR "/examples/scenarios/sick-reader.json"));
    for (json& event : scenario["events"]) {
        event["at"] = event["at"].get<double>() * 0.35;
    }
    return scenario.dump();
}

// Checks the form of an alarm and that its number is the next of its type.
std::string messageOf(const std::string& text, std::map<std::string, int>* numbers) {
    const json alarm = json::parse(text);
    EXPECT_EQ(alarm.dump(), text) << "compact, sorted";
    const std::string type = alarm["type"];
    EXPECT_TRUE(type == "error" || type == "warning") << text;
    EXPECT_EQ(alarm["data"]["eventNum"], ++(*numbers)[type]) << text;
    static const std::regex time("\\d{4}(-\\d\\d){2}T\\d\\d(:\\d\\d){2}\\.\\d{3}[+-]\\d{4}");
    EXPECT_TRUE(std::regex_match(alarm["timestamp"].get<std::string>(), time)) << text;
    EXPECT_TRUE(alarm.size() == 4 && alarm["component"] == "TW" && alarm["data"].size() == 2) << text;
    return type + " " + alarm["data"]["message"].get<std::string>();
}

TEST(Events, aSickReaderRaisesEachAlarmOnceAndStatusAgreesWithTheHeartbeat) {
    const consumer_s events(eventsEndpoint);
    reader_s reader({.scenario = hastySickReader()});
    events.waitForPublisher();
    ASSERT_EQ(ask(R"(events {"heartbeat": {"period": 1, "stats": ["weather"]}})"), "Success");
    ASSERT_EQ(ask("start"), "Success");

    std::map<std::string, int> numbers;
    std::map<std::string, int> alarms;  // by text
    std::map<std::string, std::vector<int>> temperatures;
    const std::regex temperature("(.*) @ (-?\\d+) C");
    while (alarms["error Antenna Disconnected on Port 4"] == 0) {
        const std::optional<frames_t> event = events.receive();
        ASSERT_TRUE(event && event->size() == 1);
        if (event->front().ends_with(R"("type":"heartbeat"})")) {
            continue;
        }
        const std::string message = messageOf(event->front(), &numbers);
        std::smatch parts;
        if (std::regex_match(message, parts, temperature)) {
            temperatures[parts[1]].push_back(std::stoi(parts[2]));
        } else {
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
    const std::vector<int>& high = temperatures["warning Ambient Temperature High"];
    ASSERT_FALSE(high.empty());
    for (std::size_t i = 1; i < high.size(); ++i) {
        EXPECT_GT(std::abs(high[i] - high[i - 1]), 5);
    }
    EXPECT_FALSE(temperatures["error PA Temperature Critical"].empty());

    // At rest both say the same, but for what was measured at another moment. The
    // second heartbeat comes ten seconds after the start.
    ASSERT_EQ(ask("stop"), "Success");
    json heartbeat;
    json status;
    EXPECT_TRUE(eventually([&] {
        const std::string text = events.receive().value_or(frames_t{"{}"}).front();
        heartbeat = json::parse(text);
        status = json::parse(ask("status").substr(std::string("Success: ").size()));
        for (const char* moment : {"cpuUtilization", "ramUtilization", "uptime", "temperature"}) {
            EXPECT_EQ(status.erase(moment), 1U);
            heartbeat["data"].erase(moment);
        }
        return heartbeat["type"] == "heartbeat" && heartbeat["data"] == status;
    })) << heartbeat
        << status;
    EXPECT_EQ(status["radioActivity"], "inactive");
    EXPECT_EQ(reader.exit(), 0);
}

}  // namespace
