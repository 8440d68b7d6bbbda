// SPDX-License-Identifier: MIT
// The forms of a tag report for a subscriber from outside, while the radio reads, and the
// way back to the local consumer.
#include <gtest/gtest.h>

#include "support/reports.hpp"

namespace {

// The EPC of a report behind its header: subscriber 1, 16 bits, low byte first; kind; 0.
std::string epcOf(const std::string& frame) {
    if (frame.starts_with(std::string("\1\0\0\0", 4))) {
        return idOf(nlohmann::json::parse(frame.substr(4)));
    }
    EXPECT_EQ(frame.substr(0, 6), std::string("\1\0\1\0\x0a\x0c", 6));  // tag_id, 12 bytes
    return frame.substr(6, 12);
}

TEST(OutputForms, followTheCommandForOneSubscriber) {
    const consumer_s local(dataEndpoint);
    reader_s reader({.scenario = manyTags});
    local.waitForPublisher();
    ASSERT_EQ(ask("data_analytics STRING"), "Success");
    const outside_subscriber_s outside;
    ASSERT_EQ(ask("start"), "Success");

    // The form changes under way; the socket and its subscribers stay.
    report_stream_s reports(outside);
    const std::string epcs[] = {tagPrefix, "\x30\x34\x25\x7b\xf7\x19\x4e"};
    for (const std::string& epc : epcs) {
        std::string seen = epcOf(reports.next());
        while (&epc == &epcs[1] && seen.size() == 24) {
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
    EXPECT_TRUE(idOf(nlohmann::json::parse(report_stream_s(local).next())).starts_with(tagPrefix));
    EXPECT_EQ(reader.exit(), 0);
}

}  // namespace
