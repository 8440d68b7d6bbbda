// SPDX-License-Identifier: MIT
// Many reports a second: they leave in batches, on both channels, none is lost,
// and no batch stays open.
#include <gtest/gtest.h>

#include "support/reports.hpp"

namespace {

constexpr std::size_t maxBatchBytes = 1500;

std::size_t filledFrames(const frames_t& message) {
    std::size_t count = 0;
    for (const std::string& frame : message) {
        count += frame.empty() ? 0 : 1;
    }
    return count;
}

// A frame joins a batch while the batch is not above the limit; the one that
// finds it above the limit ends it. So all but the last two stay within it.
void expectProperBatch(const frames_t& message) {
    std::size_t bytes = 0;
    for (std::size_t i = 0; i + 2 < message.size(); ++i) {
        EXPECT_FALSE(message[i].empty());
        bytes += message[i].size();
    }
    EXPECT_LE(bytes, maxBatchBytes);
}

TEST(Batching, gathersUnderLoadAndEndsWithTheRadio) {
    const consumer_s data(dataEndpoint);
    const consumer_s lines(gpioLedEndpoint);
    reader_s reader({.scenario = manyTags});
    data.waitForPublisher();
    lines.waitForPublisher();
    ASSERT_EQ(ask("start"), "Success");

    std::uint64_t reports = 0;
    std::uint64_t lastNumber = 0;
    const auto take = [&](const frames_t& message) {
        expectProperBatch(message);
        for (const std::string& frame : message) {
            if (!frame.empty()) {
                const std::uint64_t number = numberOf(nlohmann::json::parse(frame));
                EXPECT_TRUE(reports == 0 || number == lastNumber + 1) << number << " after " << lastNumber;
                lastNumber = number;
                ++reports;
            }
        }
    };
    // The first half second is sent singly, until it has been measured.
    std::size_t largest = 0;
    for (int batches = 0; batches < 10;) {
        const std::optional<frames_t> message = data.receive();
        ASSERT_TRUE(message);
        take(*message);
        largest = std::max(largest, filledFrames(*message));
        batches += message->size() > 1 ? 1 : 0;
    }
    EXPECT_GE(largest, 5U);

    ASSERT_EQ(ask("stop"), "Success");
    while (const std::optional<frames_t> message = data.receive(std::chrono::milliseconds(1'000))) {
        take(*message);
    }
    std::uint64_t tagLines = 0;
    bool batched = false;
    bool stopped = false;
    while (const std::optional<frames_t> message = lines.receive(std::chrono::milliseconds(1'000))) {
        expectProperBatch(*message);
        batched = batched || filledFrames(*message) > 1;
        for (const std::string& line : *message) {
            tagLines += line.starts_with("TAG_READ,") ? 1 : 0;
            stopped = stopped || line.starts_with("RADIO_STOP,");
        }
    }
    EXPECT_TRUE(batched);
    EXPECT_TRUE(stopped) << "the stop line waits in an open batch";
    EXPECT_EQ(tagLines, reports);  // one line for each report, and none is left behind
    EXPECT_EQ(reader.exit(), 0);
}

}  // namespace
