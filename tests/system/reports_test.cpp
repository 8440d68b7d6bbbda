// SPDX-License-Identifier: MIT
// The radio's reports on their way to subscribers: in batches, in each form, and from a
// packet log.
#include <gtest/gtest.h>

#include "support/reports.hpp"

namespace {

// Many a second leave in batches, on both channels, none is lost, and no batch stays open.
TEST(Reports, gatherUnderLoadUntilTheRadioEnds) {
    const consumer_s data(dataEndpoint);
    const consumer_s lines(gpioLedEndpoint);
    reader_s reader({.scenario = manyTags});
    data.waitForPublisher();
    lines.waitForPublisher();
    ASSERT_EQ(ask("start"), "Success");

    // The first half second is sent singly, until it has been measured.
    frames_t reports;
    std::size_t largest = 0;
    for (int batches = 0; batches < 10;) {
        const frames_t message = data.receive().value();
        std::ranges::remove_copy(message, std::back_inserter(reports), "");
        largest = std::max(largest, message.size());
        batches += message.size() > 1 ? 1 : 0;
    }
    EXPECT_GE(largest, 6U);  // with the empty one at its end

    ASSERT_EQ(ask("stop"), "Success");
    std::ranges::copy(framesOf(data, std::chrono::milliseconds(500)), std::back_inserter(reports));
    for (std::uint64_t number = nlohmann::json::parse(reports[0])["data"]["eventNum"];
         const std::string& report : reports) {
        EXPECT_EQ(nlohmann::json::parse(report)["data"]["eventNum"], number++);
    }
    std::size_t tagLines = 0;
    bool batched = false;
    for (std::string last; !last.starts_with("RADIO_STOP,");) {  // it waits in no open batch
        const frames_t message = lines.receive().value();
        for (const std::string& line : message) {
            tagLines += line.starts_with("TAG_READ,") ? 1 : 0;
            last = line.empty() ? last : line;
        }
        batched = batched || message.size() > 2;
    }
    EXPECT_TRUE(batched);
    EXPECT_EQ(tagLines, reports.size());  // one line for each report, and none is left behind
    EXPECT_EQ(reader.exit(), 0);
}

// The EPC of a report behind its header: subscriber 1, 16 bits, low byte first; kind; 0.
std::string epcOf(const std::string& frame) {
    if (frame.starts_with(std::string("\1\0\0\0", 4))) {
        return idOf(nlohmann::json::parse(frame.substr(4)));
    }
    EXPECT_EQ(frame.substr(0, 6), std::string("\1\0\1\0\x0a\x0c", 6));  // tag_id, 12 bytes
    return frame.substr(6, 12);
}

// For a subscriber from outside, while the radio reads, and the way back to the local consumer.
TEST(Reports, takeTheFormOfTheCommand) {
    const consumer_s local(dataEndpoint);
    reader_s reader({.scenario = manyTags});
    local.waitForPublisher();
    ASSERT_EQ(ask("data_analytics STRING"), "Success");
    const outside_subscriber_s outside;
    ASSERT_EQ(ask("start"), "Success");

    // The form changes under way; the socket and its subscribers stay.
    report_stream_s reports{outside};
    std::string seen = epcOf(reports.next());
    for (const std::string epc : {tagPrefix, "\x30\x34\x25\x7b\xf7\x19\x4e"}) {
        while (epc != tagPrefix && seen.size() == 24) {  // still on their way
            seen = epcOf(reports.next());
        }
        for (int i = 0; i < 50; ++i, seen = epcOf(reports.next())) {
            ASSERT_TRUE(seen.starts_with(epc)) << seen;
        }
        ASSERT_EQ(ask("data_analytics BINARY"), "Success");
    }

    ASSERT_EQ(ask("stop"), "Success");
    ASSERT_EQ(ask("data_analytics OFF"), "Success");
    local.waitForPublisher();
    ASSERT_EQ(ask("start"), "Success");
    EXPECT_TRUE(idOf(nlohmann::json::parse(report_stream_s{local}.next())).starts_with(tagPrefix));
    EXPECT_EQ(reader.exit(), 0);
}

// That the daemon had the engine write, for a daemon that takes up the mode of the one before.
TEST(Reports, areTheSameFromThePacketLogOfTheDockDoor) {
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
        for (report_stream_s stream{data}; reports[replays].size() < 30;) {
            nlohmann::json report = nlohmann::json::parse(stream.next());
            report.erase("timestamp");
            reports[replays].push_back(report.dump());
        }
        EXPECT_EQ(ask("stop"), "Success");
        EXPECT_EQ(reader.exit(), 0);
        EXPECT_EQ(reader.log().find(" ERROR "), std::string::npos) << reader.log();
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
