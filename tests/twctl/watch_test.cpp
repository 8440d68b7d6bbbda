// SPDX-License-Identifier: MIT
// The peer is an XPUB socket: it sees a subscription arrive, so that nothing is
// sent before somebody listens.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <regex>
#include <sstream>

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
        "ab\xba\x01\x03"s + "a\"\xff\xc0\x01\x02"s;
    // A legend, the frame, and its line.
    const std::tuple<const char*, std::string, std::string> cases[] = {
        {"OFF: the text as it is", R"({"data":{"eventNum":1}})", R"({"data":{"eventNum":1}})"},
        {"STRING", "\x02\x01\0\0{\"data\":{}}"s, R"(subscriber=258 kind=json {"data":{}})"},
        {"a number whose first byte is a brace", "{\0\0\0{}"s, "subscriber=123 kind=json {}"},
        {"BINARY, every kind of field", "\x01\0\x01\0"s + full,
         R"(subscriber=1 kind=full {"tag_id":"3034","timestamp_millis":1000,"pc":"3000","rssi_float":-47.3,)"
         R"("rssi_int":-47,"channel":902750,"brand_id":true,"mac":"ab","user_defined":"a\")"
         "\xef\xbf\xbd"
         R"(","event_num":2})"},
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
    process_s client("bash",
                     typed("watch tags --gaps --subscriber 258 --count 2 --connect " + peer.endpoint));
    ASSERT_EQ(peer.hear(), "\x01\x02\x01");
    peer.send({"\x02\0\0\0{\"eventNum\":1}"s});
    peer.send({"\x02\x01\0\0{\"eventNum\":2}"s});
    peer.send({"\x02\x01\0\0{\"eventNum\":4}"s});
    EXPECT_EQ(client.waitForExit(), 0);
    EXPECT_EQ(client.output(),
              "twctl: gaps are not counted: one of several subscribers gets only some of the reports\n"
              "subscriber=258 kind=json {\"eventNum\":2}\nsubscriber=258 kind=json {\"eventNum\":4}\n");
}

namespace {

// "O7": report 7 of the form OFF, "S7" STRING, "B7" BINARY; "R" is a reduced report, "x" is none.
std::string reportFrame(const std::string& word) {
    const std::string number = word.substr(1);
    const std::string text =
        R"({"data":{"a":"\"eventNum\":1","eventNum":)" + number + R"(,"idHex":"30)" + number + R"(aa"}})";
    return word[0] == 'O'   ? text
           : word[0] == 'S' ? "\x01\0\0\0"s + text
           : word[0] == 'B' ? "\x01\0\x01\0\x0a\x02\x30\x34\xc0\x01"s + char(std::stoi(number))
           : word[0] == 'R' ? "\x01\0\x02\0\x0a\x02\x30\x34"s
                            : word;
}

// The daemon's account: next number, held back, pending, and when it started.
std::string accountReply(int next, int heldBack, int pending, const std::string& since) {
    return R"(Success: {"since":")" + since + R"(","tagPackets":9,"fates":{"heldBack":)" +
           std::to_string(heldBack) + R"(,"pending":)" + std::to_string(pending) + R"(},"nextEventNum":)" +
           std::to_string(next) + "}";
}

}  // namespace

// The daemon is asked before the first report if there is a reply for it, and at the end.
TEST(Watch, TellsWhichReportsNeverCameAndHowManyTheDaemonHeldBack) {
    const std::string twoAndThree = "reports 2 to 3 never came\n", held = "the daemon held back ";
    struct case_s {
        std::string options, reports, told, before = {}, after = {};
    };
    const case_s cases[] = {
        {"--gaps", "O1 S2 B3 R x B4 O5", ""},
        {"", "O1 B4 S6", "3 of the reports 2 to 5 never came, in 2 gaps\n"},
        {"--gaps", "B9 S20 O22",
         "reports 10 to 19 never came\nreport 21 never came\n11 of the reports 10 to 21 never came, in 2 "
         "gaps\n"},
        {"--epc 306", "O1 O4 O6", "3 of the reports 2 to 5 never came, in 2 gaps\n"},
        {"", "O7 O9 O0 O2",
         "report 8 never came\nthe daemon has restarted: report 0 came after report 9\nreport 1 never "
         "came\n"},
        {"--gaps", "O1 O5 O3 O2 O4 O6",
         "reports 2 to 4 never came\nreport 3 came late\nreport 2 came late\nreport 4 came late\n"},
        {"--gaps", "O1 O4", twoAndThree + twoAndThree + held + "1 of them\n", accountReply(1, 0, 0, "a"),
         accountReply(5, 1, 0, "a")},
        // 0 and 5, of which nothing came, may be among the three
        {"--gaps", "O1 O4", twoAndThree + twoAndThree + held + "1 to 2 of them\n", accountReply(0, 7, 0, "a"),
         accountReply(6, 10, 0, "a")},
        {"--gaps", "O1 O4", twoAndThree + twoAndThree + held + "up to 1 of them\n",
         accountReply(1, 0, 1, "a"), accountReply(5, 1, 0, "a")},
        {"", "O60 O63", "reports 61 to 62 never came\n" + held + "up to 2 of them\n", "",
         accountReply(64, 9, 0, "a")},
        {"", "O1 O4", twoAndThree + held + "none of them\n", "", accountReply(5, 0, 0, "a")},
        {"--gaps", "O1 O4",
         twoAndThree + twoAndThree +
             "the daemon has restarted since and cannot tell how many of them it held back\n",
         accountReply(1, 0, 0, "a"), accountReply(9, 1, 0, "b")},
        {"", "O1 O4", twoAndThree, "", "Failure: Command Not Found"},
    };
    const peer_s daemon(ZMQ_REP);
    ASSERT_EQ(zmq_bind(daemon.handle, daemon.endpoint.c_str()), 0);
    for (const auto& [options, reports, told, before, after] : cases) {
        SCOPED_TRACE(options + " " + reports + " " + after);
        const auto answer = [&](const std::string& reply) {
            if (!reply.empty()) {
                EXPECT_EQ(daemon.hear(), "account");
                daemon.send({reply + "\0"s});
            }
        };
        const peer_s peer(ZMQ_XPUB);
        zmq_connect(peer.handle, peer.endpoint.c_str());
        const std::string asked = after.empty() ? "" : " --daemon " + daemon.file;
        process_s client(
            "bash",
            typed("watch tags --bind " + peer.file + asked + " " + options + " --count " +
                      (options.starts_with("--epc") ? "1"
                                                    : std::to_string(1 + std::ranges::count(reports, ' '))),
                  "exec 2>&1 > /dev/null;"));
        answer(before);
        ASSERT_EQ(peer.hear(), everything);
        std::istringstream words(reports);
        for (std::string word; words >> word;) {
            peer.send({reportFrame(word)});
        }
        answer(after);
        EXPECT_EQ(client.waitForExit(), 0);
        EXPECT_EQ(client.output(), std::regex_replace(told, std::regex("([^\n]+\n)"), "twctl: $1"));
    }
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
