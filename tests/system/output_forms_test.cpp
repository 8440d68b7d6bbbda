// SPDX-License-Identifier: MIT
// The forms of a tag report for subscribers from outside, and the way back to
// the local consumer.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "support/reports.hpp"

namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::StartsWith;

enum kind_e : char { textKind = 0, binaryKind = 1 };

// Subscriber number, 16 bits, low byte first; kind; 0.
std::string header(int subscriber, kind_e kind) {
    return {static_cast<char>(subscriber), '\0', kind, '\0'};
}

std::string hex(std::string_view bytes) {
    std::string text;
    for (const char byte : bytes) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned char>(byte));
        text += digits;
    }
    return text;
}

// The fields of a serialised report as text.
std::string decode(std::string_view bytes) {
    const std::string folder = TARNWICK_SOURCE_DIR "/tarnwick/proto";
    process_s protoc(
        "protoc", {{"--decode", "velmo.tag_data_report", "-I" + folder, folder + "/tw_msg.proto"}, {}, {}});
    protoc.write(bytes);
    protoc.closeInput();
    EXPECT_EQ(protoc.waitForExit(), 0) << protoc.output();
    return protoc.output();
}

TEST(OutputForms, followTheCommandForOneSubscriber) {
    const consumer_s local(dataEndpoint);
    reader_s reader({.scenario = manyTags});
    local.waitForPublisher();
    ASSERT_EQ(ask("data_analytics STRING"), "Success");
    ASSERT_EQ(ask("data_analytics"), "Success: data_analytics STRING");
    const outside_subscriber_s outside;
    ASSERT_EQ(ask("start"), "Success");

    report_stream_s reports(outside);
    for (int i = 0; i < 50; ++i) {
        const std::string frame = reports.next();
        ASSERT_EQ(frame.substr(0, 4), header(1, textKind));
        ASSERT_THAT(idOf(json::parse(frame.substr(4))), StartsWith(tagPrefix));
    }

    // The form changes under way; the socket and its subscribers stay.
    ASSERT_EQ(ask("data_analytics BINARY"), "Success");
    std::string frame = reports.next();
    while (frame.substr(0, 4) == header(1, textKind)) {
        frame = reports.next();
    }
    const std::string text = decode(frame.substr(4));
    for (const char* field : {"tag_id: ", "timestamp_millis: ", "event_num: "}) {
        EXPECT_THAT(text, HasSubstr(field));
    }
    for (int i = 0; i < 50; ++i, frame = reports.next()) {
        ASSERT_EQ(frame.substr(0, 4), header(1, binaryKind));
        ASSERT_EQ(frame.substr(4, 2), "\x0a\x0c");  // tag_id, 12 bytes
        ASSERT_THAT(hex(frame.substr(6, 12)), StartsWith(tagPrefix));
    }

    ASSERT_EQ(ask("stop"), "Success");
    ASSERT_EQ(ask("data_analytics OFF"), "Success");
    local.waitForPublisher();
    ASSERT_EQ(ask("start"), "Success");
    report_stream_s back(local);
    EXPECT_THAT(idOf(json::parse(back.next())), StartsWith(tagPrefix));
    EXPECT_EQ(reader.exit(), 0);
}

TEST(OutputForms, giveEachSubscriberItsOwnTags) {
    reader_s reader({.scenario = manyTags});
    ASSERT_EQ(ask("subscribers 3"), "Success");
    ASSERT_EQ(ask("data_analytics BINARY"), "Success");
    std::map<int, std::unique_ptr<outside_subscriber_s>> subscribers;
    for (int number = 1; number <= 3; ++number) {
        subscribers[number] = std::make_unique<outside_subscriber_s>(header(number, binaryKind).substr(0, 2));
    }
    ASSERT_EQ(ask("start"), "Success");
    std::map<std::string, int> owners;
    std::map<int, int> shares;
    EXPECT_TRUE(eventually([&] {
        for (const auto& [number, subscriber] : subscribers) {
            const std::optional<frames_t> message = subscriber->receive(std::chrono::milliseconds(10));
            if (message) {
                EXPECT_EQ(message->size(), 1U);  // the prefix tells nothing about further frames
                EXPECT_EQ(message->front().substr(0, 4), header(number, binaryKind));
                const auto owner = owners.emplace(message->front().substr(6, 12), number).first;
                EXPECT_EQ(owner->second, number) << hex(owner->first);
                ++shares[number];
            }
        }
        return owners.size() >= 100 && shares.size() == 3;
    })) << owners.size()
        << " tags arrived";
    EXPECT_EQ(reader.exit(), 0);
}

}  // namespace
