// SPDX-License-Identifier: MIT
// A packet log that the daemon had the engine write, played back to the daemon.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/reports.hpp"

namespace {

constexpr std::size_t reportCount = 30;

// The reports without what every delivery has anew.
std::vector<std::string> firstReports(const socket_s& data) {
    report_stream_s stream(data);
    std::vector<std::string> reports;
    while (reports.size() < reportCount) {
        nlohmann::json report = nlohmann::json::parse(stream.next());
        report.erase("timestamp");
        reports.push_back(report.dump());
    }
    return reports;
}

TEST(PacketLog, ofTheDockDoorReplaysToTheSameReports) {
    const std::string scenario =
        readTextFile(std::string(TARNWICK_SOURCE_DIR) + "/examples/scenarios/dock-door.json");
    const std::string mode =
        R"({"type": "SIMPLE", "reportFilter": {}, "tagMetaData": ["ANTENNA", "CHANNEL"]})";
    temp_dir_s kept;
    const std::filesystem::path log = kept.path / "packet_log";
    std::vector<std::string> recorded;
    {
        const consumer_s data(dataEndpoint);
        reader_s reader({.scenario = scenario, .mode = mode, .prepare = [](const auto& directory) {
                             std::filesystem::create_directory(directory / "logs");
                         }});
        data.waitForPublisher();
        EXPECT_EQ(ask("logging radioPacketLog=ON"), "Success");
        EXPECT_EQ(ask("start"), "Success");
        recorded = firstReports(data);
        EXPECT_EQ(ask("stop"), "Success");
        EXPECT_EQ(ask("logging radioPacketLog=OFF"), "Success");
        std::filesystem::copy_file(reader.directory.path / "logs/packet_log", log);
        EXPECT_EQ(reader.exit(), 0);
    }
    setenv("RXE_REPLAY", log.c_str(), 1);
    setenv("RXE_REPLAY_SPEED", "fast", 1);
    const consumer_s data(dataEndpoint);
    reader_s reader({.scenario = scenario, .mode = mode});
    data.waitForPublisher();
    EXPECT_EQ(ask("start"), "Success");
    EXPECT_EQ(firstReports(data), recorded);
    EXPECT_EQ(reader.exit(), 0);
}

}  // namespace
