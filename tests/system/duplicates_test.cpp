// SPDX-License-Identifier: MIT
// Tags of one EPC told apart by their TIDs: each is reported once in its quiet time.
#include <gtest/gtest.h>
#include <zmq.h>

#include <set>

#include "support/reports.hpp"

namespace {

using nlohmann::json;

constexpr int tagCount = 500;
constexpr const char* epc = "3034257bf7194e40000003e9";

std::string tidOf(int tag) {
    char tid[32];
    std::snprintf(tid, sizeof tid, "e2801160600002%010x", tag);
    return tid;
}

std::string scenario() {
    json tags;
    for (int tag = 0; tag < tagCount; ++tag) {
        tags.push_back(
            {{"epc", epc}, {"tid", tidOf(tag)}, {"position", {0.02 * (tag % 25), 0.02 * (tag / 25), 1}}});
    }
    return json{{"tags", tags}, {"clock", "fast"}}.dump();
}

TEST(Duplicates, EachTidIsReportedOnceInItsTimeAndOnceMoreAfterAReset) {
    const consumer_s data(dataEndpoint);
    reader_s reader({.scenario = scenario()});
    data.waitForPublisher();
    ASSERT_EQ(ask(R"(mode {"type": "CUSTOM", "tagMetaData": ["PC", "CRC", "TID"],
        "reportFilter": {"type": "RADIO_WIDE", "duration": 600, "addl_keys": ["TID"]}})"),
              "Success");
    ASSERT_EQ(ask("start"), "Success");
    report_stream_s reports(data);
    for (const bool afterReset : {false, true}) {
        if (afterReset) {  // while the radio reads
            const socket_s radio(ZMQ_REQ);
            ASSERT_EQ(zmq_connect(radio.handle, "ipc:///tmp/rxe_engine"), 0);
            radio.send({"database full"});
            ASSERT_EQ(radio.receive(), frames_t{"ok"});
        }
        std::set<std::string> seen;
        while (seen.size() < tagCount) {
            const json report = json::parse(reports.next());
            EXPECT_EQ(idOf(report), epc);
            EXPECT_TRUE(seen.insert(report["data"]["TID"]).second) << report;
        }
        EXPECT_EQ(ask("tag_info"), "Success: Current Tag Info DB Size : 500");
        const std::string list = ask("tag_info v");
        for (int tag = 0; tag < tagCount; ++tag) {
            EXPECT_NE(list.find(tidOf(tag) + ", Timestamp: "), std::string::npos) << tag;
        }
    }
    EXPECT_EQ(ask("status numErrors radioActivity"),
              R"(Success: {"numErrors": 1, "radioActivity": "active"})");
    ASSERT_EQ(ask("stop"), "Success");
    EXPECT_FALSE(data.receive(std::chrono::milliseconds(200)));
    EXPECT_EQ(reader.exit(), 0);
}

}  // namespace
