// SPDX-License-Identifier: MIT
// The peer is an XPUB socket: it sees a subscription arrive, so that nothing is
// sent before somebody listens.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include "twctl/peer.hpp"

using namespace std::string_literals;
namespace fs = std::filesystem;

namespace {

const std::string everything = "\x01"s;  // the subscription with an empty prefix

process_options_s watchTags(const peer_s& peer, const std::string& more = "") {
    return typed("watch tags --bind " + peer.file + " " + more);
}

}  // namespace

TEST(Watch, FramesOfAllThreeFormsBecomeLines) {
    const std::string full =
        "\x0a\x02\x30\x34\x10\xe8\x07\x1a\x02\x30\x00\x35\x33\x33\x3d\xc2\x38\x5d\x50\xde\x8c\x37"
        "\x98\x01\x01\xa2\x01\x02"s +
        "ab\xba\x01\x03"s + "a\"\xff\xc0\x01\x07"s;
    // A legend, the frame, and its line.
    const std::tuple<const char*, std::string, std::string> cases[] = {
        {"OFF: the text as it is", R"({"data":{"eventNum":1}})", R"({"data":{"eventNum":1}})"},
        {"STRING", "\x02\x01\0\0{\"data\":{}}"s, R"(subscriber=258 kind=json {"data":{}})"},
        {"a number whose first byte is a brace", "{\0\0\0{}"s, "subscriber=123 kind=json {}"},
        {"BINARY, every kind of field", "\x01\0\x01\0"s + full,
         R"(subscriber=1 kind=full {"tag_id":"3034","timestamp_millis":1000,"pc":"3000","rssi_float":-47.3,)"
         R"("rssi_int":-47,"channel":902750,"brand_id":true,"mac":"ab","user_defined":"a\")"
         "\xef\xbf\xbd"
         R"(","event_num":7})"},
        {"an id is hex, also when its bytes are letters", "\0\0\x02\0\x0a\x02"s + "AB",
         R"(subscriber=0 kind=reduced {"tag_id":"4142"})"},
        {"a binary report cut short", "\x01\0\x01\0\x0a\x09"s, "unreadable frame of 6 bytes: 010001000a09"},
        {"an unknown kind", "\x01\0\x03\0{}"s, "unreadable frame of 6 bytes: 010003007b7d"},
        {"shorter than a header", "\x01\0"s, "unreadable frame of 2 bytes: 0100"},
        {"one frame stays one line", "{\"a\n\":\"\x7f\"}", R"({"a\u000a":"\u007f"})"},
    };
    const peer_s peer(ZMQ_XPUB);
    process_s client("bash", watchTags(peer, "--count " + std::to_string(std::size(cases) + 3)));
    zmq_connect(peer.handle, peer.endpoint.c_str());
    ASSERT_EQ(peer.hear(), everything);
    std::string expected;
    for (const auto& [legend, frame, line] : cases) {
        peer.send({frame});
        expected += line + "\n";
    }
    // A batch counts by report, and its empty end is none.
    for (const frames_t& batch : {frames_t{"{1}", "{2}", ""}, {""}, {"{3}"}, {"{4}"}}) {
        peer.send(batch);
    }
    EXPECT_EQ(client.waitForExit(), 0);
    EXPECT_EQ(client.output(), expected + "{1}\n{2}\n{3}\n");
    EXPECT_FALSE(fs::exists(peer.file));
}

TEST(Watch, ASubscriberTakesOnlyItsNumber) {
    const peer_s peer(ZMQ_XPUB);
    zmq_bind(peer.handle, peer.endpoint.c_str());
    process_s client("bash", typed("watch tags --subscriber 258 --count 1 --connect " + peer.endpoint));
    ASSERT_EQ(peer.hear(), "\x01\x02\x01");
    peer.send({"\x02\0\0\0{\"n\":1}"s});
    peer.send({"\x02\x01\0\0{\"n\":2}"s});
    EXPECT_EQ(client.waitForExit(), 0);
    EXPECT_EQ(client.output(), "subscriber=258 kind=json {\"n\":2}\n");
}

TEST(Watch, EndsWithItsSocketRemoved) {
    // Further options, the signal that ends it, and its status.
    const std::tuple<std::string, int, int> cases[] = {
        {"", SIGINT, 0}, {"", SIGTERM, 0}, {"--seconds 1", 0, 0}, {"--seconds 1 --count 1", 0, 2}};
    for (const auto& [more, signal, status] : cases) {
        SCOPED_TRACE(more + std::to_string(signal));
        const peer_s peer(ZMQ_XPUB);
        zmq_connect(peer.handle, peer.endpoint.c_str());
        process_s client("bash", watchTags(peer, more));
        ASSERT_EQ(peer.hear(), everything);
        ASSERT_TRUE(fs::exists(peer.file));
        client.signal(signal);  // 0 is none
        EXPECT_EQ(client.waitForExit(), status);
        EXPECT_EQ(client.output(), status == 0 ? "" : "twctl: 0 of 1 frames within 1 s\n");
        EXPECT_FALSE(fs::exists(peer.file));
    }
}

TEST(Watch, DoesNotTakeAnEndpointFromALiveListenerButFromADeadOne) {
    const peer_s peer(ZMQ_XPUB);
    zmq_connect(peer.handle, peer.endpoint.c_str());
    process_s first("bash", watchTags(peer));
    ASSERT_EQ(peer.hear(), everything);
    process_s second("bash", watchTags(peer, "--seconds 5"));
    EXPECT_EQ(second.waitForExit(), 3);
    EXPECT_THAT(second.output(), testing::HasSubstr("another process listens there"));
    peer.send({"{}"});
    EXPECT_TRUE(first.waitForOutput("{}\n"));

    first.signal(SIGKILL);
    EXPECT_EQ(first.waitForExit(), 128 + SIGKILL);
    ASSERT_TRUE(fs::exists(peer.file));
    process_s third("bash", watchTags(peer, "--seconds 0.2"));
    EXPECT_EQ(third.waitForExit(), 0);
}

TEST(Watch, AReaderThatLeavesEndsItQuietly) {
    const peer_s peer(ZMQ_XPUB);
    const std::string line = "set -o pipefail; \"$0\" watch events --bind " + peer.file + " | head -n 1";
    process_s shell("bash", {{"-c", line, twctlProgram}, {}, {}});
    zmq_connect(peer.handle, peer.endpoint.c_str());
    ASSERT_EQ(peer.hear(), everything);
    peer.send({"GPI_1_H,now"});  // after this line nothing more is sent
    EXPECT_EQ(shell.waitForExit(), 0);
    EXPECT_EQ(shell.output(), "GPI_1_H,now\n");
}
