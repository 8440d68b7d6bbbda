// SPDX-License-Identifier: MIT
// Many reports a second: they leave in batches, on both channels, none is lost,
// and no batch stays open.
#include <gtest/gtest.h>

#include "support/reports.hpp"

namespace {

TEST(Batching, gathersUnderLoadAndEndsWithTheRadio) {
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
        const std::optional<frames_t> message = data.receive();
        ASSERT_TRUE(message);
        std::ranges::remove_copy(*message, std::back_inserter(reports), "");
        largest = std::max(largest, message->size());
        batches += message->size() > 1 ? 1 : 0;
    }
    EXPECT_GE(largest, 6U);  // with the empty one at its end

    ASSERT_EQ(ask("stop"), "Success");
    std::ranges::copy(framesOf(data, std::chrono::milliseconds(500)), std::back_inserter(reports));
    std::vector<std::uint64_t> numbers;
    for (const std::string& report : reports) {
        numbers.push_back(nlohmann::json::parse(report)["data"]["eventNum"]);
        EXPECT_EQ(numbers.back(), numbers[0] + numbers.size() - 1);
    }
    std::size_t tagLines = 0;
    bool batched = false;
    for (std::string last; !last.starts_with("RADIO_STOP,");) {  // it waits in no open batch
        const std::optional<frames_t> message = lines.receive();
        ASSERT_TRUE(message) << last;
        tagLines +=
            std::ranges::count_if(*message, [](const auto& line) { return line.starts_with("TAG_READ,"); });
        batched = batched || message->size() > 2;
        std::ranges::for_each(*message, [&](const auto& line) { last = line.empty() ? last : line; });
    }
    EXPECT_TRUE(batched);
    EXPECT_EQ(tagLines, reports.size());  // one line for each report, and none is left behind
    EXPECT_EQ(reader.exit(), 0);
}

}  // namespace
