// SPDX-License-Identifier: MIT
// The radio's reports on their way to subscribers, in batches.
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

}  // namespace
