// SPDX-License-Identifier: MIT
// A packet log that the daemon had the engine write, played back to a daemon that takes
// up the mode of the one before.
#include <gtest/gtest.h>

#include "support/reports.hpp"

namespace {

TEST(PacketLog, ofTheDockDoorReplaysToTheSameReports) {
    const std::string scenario = readTextFile(TARNWICK_SOURCE_DIR "/examples/scenarios/dock-door.json");
    const temp_dir_s kept;
    std::vector<std::string> reports[2];  // without what every delivery has anew
    for (const bool replays : {false, true}) {
        const consumer_s data(dataEndpoint);
        reader_s reader({.scenario = scenario, .prepare = [&](const auto& directory) {
                             std::filesystem::create_directory(directory / "logs");
                             writeTextFile(directory / "mode_config.json", readTextFile(kept.path / "mode"));
                         }});
        data.waitForPublisher();
        if (!replays) {
            EXPECT_EQ(ask(R"(mode {"type": "SIMPLE", "reportFilter": {}, "tagMetaData": ["CHANNEL"]})"),
                      "Success");
            EXPECT_EQ(ask("logging radioPacketLog=ON"), "Success");
        }
        EXPECT_EQ(ask("start"), "Success");
        for (report_stream_s stream(data); reports[replays].size() < 30;) {
            nlohmann::json report = nlohmann::json::parse(stream.next());
            report.erase("timestamp");
            reports[replays].push_back(report.dump());
        }
        EXPECT_EQ(ask("stop"), "Success");
        EXPECT_EQ(reader.exit(), 0);
        if (!replays) {
            std::filesystem::rename(reader.directory.path / "logs/packet_log", kept.path / "log");
            std::filesystem::rename(reader.directory.path / "mode_config.json", kept.path / "mode");
        }
        setenv("RXE_REPLAY", (kept.path / "log").c_str(), 1);
        setenv("RXE_REPLAY_SPEED", "fast", 1);
    }
    EXPECT_EQ(reports[0], reports[1]);
}

}  // namespace
