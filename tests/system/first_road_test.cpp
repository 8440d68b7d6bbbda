// SPDX-License-Identifier: MIT
// From a start to tag reports and back: server, engine, daemon and the programs
// beside it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "support/reports.hpp"

namespace {

using testing::HasSubstr;
using testing::MatchesRegex;

// The time as "2026-03-01T08:05:09.007+0100".
const std::string timePattern =
    "[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}[+-][0-9]{4}";

TEST(FirstRoad, leadsFromStartToTagReportsAndBack) {
    const consumer_s data(dataEndpoint);
    const consumer_s lines(gpioLedEndpoint);
    // Slow enough that nothing is batched.
    reader_s reader({.scenario = R"({"tagsPerSecond": 20, "tags": {"count": 24}})"});
    data.waitForPublisher();
    lines.waitForPublisher();
    EXPECT_FALSE(std::filesystem::exists(reader.directory.path / "autoStart.txt"));

    EXPECT_EQ(ask("start"), "Success");
    EXPECT_EQ(reader.file("autoStart.txt"), "true");
    EXPECT_EQ(ask("start"), "Failure: Start currently ongoing. Issue a stop prior to issuing a start.");

    report_stream_s reports(data);
    std::set<std::string> missing = builtInTags();
    std::uint64_t previous = 0;
    while (!missing.empty()) {
        const nlohmann::json report = nlohmann::json::parse(reports.next());
        ASSERT_EQ(report.at("type"), "SIMPLE");
        ASSERT_THAT(report.at("timestamp").get<std::string>(), MatchesRegex(timePattern));
        ASSERT_TRUE(builtInTags().contains(idOf(report))) << report;
        ASSERT_TRUE(previous == 0 || numberOf(report) == previous + 1) << report << " after " << previous;
        previous = numberOf(report);
        missing.erase(idOf(report));
    }

    EXPECT_EQ(ask("stop"), "Success");
    EXPECT_EQ(reader.file("autoStart.txt"), "false");
    std::map<std::string, int> seen;
    while (seen["RADIO_STOP"] == 0) {
        const std::optional<frames_t> message = lines.receive();
        ASSERT_TRUE(message) << "no RADIO_STOP line among " << testing::PrintToString(seen);
        for (const std::string& line : *message) {
            if (!line.empty()) {
                EXPECT_THAT(line, MatchesRegex("[A-Z_]+," + timePattern));
                ++seen[line.substr(0, line.find(','))];
            }
        }
    }
    EXPECT_EQ(seen["RADIO_START"], 1);
    EXPECT_EQ(seen["TAG_READ"], 24);  // each tag once

    EXPECT_EQ(ask("start doNotPersistState"), "Success");
    EXPECT_EQ(reader.file("autoStart.txt"), "false");
    EXPECT_EQ(reader.exit(), 0);
    EXPECT_THAT(reader.log(), HasSubstr("main goodbye\n"));
    EXPECT_THAT(reader.log(), testing::Not(HasSubstr("Z ERROR ")));
}

}  // namespace
