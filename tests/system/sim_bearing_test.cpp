// SPDX-License-Identifier: MIT
// The simulator's road through a real array reader's daemon, without its radio: at
// each rate in each form, and spread over three subscribers.
#include <gtest/gtest.h>
#include <zmq.h>

#include <future>
#include <numeric>

#include "support/reports.hpp"

namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

void writeRoom(const std::filesystem::path& directory) {
    writeTextFile(directory / "aar.json", R"({"aar_info": [{"x":0,"y":0,"z":4,"orientation":0}]})");
    nlohmann::json room;
    for (int tag = 0; tag <= 600; ++tag) {  // the last is a spare
        char id[32];  // so that their CRCs spread evenly: 200, 201 and 199 tags for a subscriber
        std::snprintf(id, sizeof id, "E2801160200070CC%08X", tag);
        room["tag_info"].push_back({{"tag_id", id}, {"x", tag % 20}, {"y", 1 + tag / 40}, {"z", 1}});
    }
    writeTextFile(directory / "tag.json", room.dump());
}

using subscribers_t = std::vector<std::unique_ptr<socket_s>>;

// Reports that come to each within `time`; all are waited on at once.
std::vector<long> reportsWithin(const subscribers_t& subscribers, steady_clock::duration time) {
    const auto end = steady_clock::now() + time;
    std::vector<std::future<long>> takers;
    for (const auto& subscriber : subscribers) {
        takers.push_back(std::async(std::launch::async, [end, &subscriber] {
            long count = 0;
            for (auto now = steady_clock::now(); now < end; now = steady_clock::now()) {
                const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - now) + 1ms;
                const frames_t frames = subscriber->receive(left).value_or(frames_t{});
                count += static_cast<long>(frames.size()) - std::ranges::count(frames, "");
            }
            return count;
        }));
    }
    std::vector<long> counts;
    for (std::future<long>& taker : takers) {
        counts.push_back(taker.get());
    }
    return counts;
}

long tagReads() {
    const std::string status = ask("status numTagReads");
    return nlohmann::json::parse(status.substr(status.find('{')))["numTagReads"];
}

const struct {
    const char *form, *subscribers;
    std::vector<std::string> prefixes;  // of subscribers from outside; none for the local consumer
} forms[] = {
    {"OFF", "1", {}},
    {"STRING", "3", {{"\1\0\0", 3}, {"\2\0\0", 3}, {"\3\0\0", 3}}},
    {"BINARY", "1", {{"\1\0\1", 3}}},
};

TEST(SimBearing, arrivesAtItsRateInEachFormAndEvenlySpread) {
    subscribers_t subscribers;
    subscribers.push_back(std::make_unique<consumer_s>(dataEndpoint));
    reader_s reader({.serverArguments = {"--profile", "QDX4400"}, .prepare = writeRoom});
    for (const auto& row : forms) {
        ASSERT_EQ(ask(std::string("subscribers ") + row.subscribers), "Success");
        ASSERT_EQ(ask(std::string("data_analytics ") + row.form), "Success");
        for (const std::string& prefix : row.prefixes) {
            if (&prefix == &row.prefixes.front()) {
                subscribers.clear();
            }
            const socket_s& added = *subscribers.emplace_back(std::make_unique<socket_s>(ZMQ_SUB));
            const int noLimit = 0;  // a slice of 2,500 reports comes at once
            zmq_setsockopt(added.handle, ZMQ_RCVHWM, &noLimit, sizeof noLimit);
            zmq_setsockopt(added.handle, ZMQ_SUBSCRIBE, prefix.data(), prefix.size());
            ASSERT_EQ(zmq_connect(added.handle, tcpDataEndpoint), 0);
        }
        // Until each has a report: connecting takes its time.
        ASSERT_EQ(ask("start sim_bearing 400 0"), "Success");
        for (const auto& subscriber : subscribers) {
            ASSERT_TRUE(subscriber->receive());
        }
        ASSERT_EQ(ask("stop"), "Success");
        reportsWithin(subscribers, 150ms);
        for (const long rate : {10L, 1'000L, 10'000L}) {
            SCOPED_TRACE(std::string(row.form) + " at " + std::to_string(rate));
            const long before = tagReads();
            ASSERT_EQ(ask("start sim_bearing " + std::to_string(rate) + " 0 std_az=1"), "Success");
            const std::vector<long> first = reportsWithin(subscribers, 850ms);
            ASSERT_EQ(ask("stop"), "Success");
            const std::vector<long> rest = reportsWithin(subscribers, 150ms);
            const long reads = tagReads() - before;
            const long slice = rate / 4;
            EXPECT_EQ(reads % slice, 0) << "whole slices";
            EXPECT_GE(reads, 3 * slice);
            EXPECT_LE(reads, 5 * slice);
            const long arrived =
                std::reduce(first.begin(), first.end()) + std::reduce(rest.begin(), rest.end());
            // A last batch stays open, here and from the run before. For half a second,
            // before the rate has been measured, reports leave singly, and the socket
            // drops what is more than it holds, between 1,024 and 2,048.
            const long mayBeLost = subscribers.size() > 1 ? 0 : 2 * std::max(slice - 1024, 0L);
            EXPECT_LE(arrived, reads + 40);
            EXPECT_GE(arrived, reads - mayBeLost - 40);
            const long share = arrived / static_cast<long>(subscribers.size());
            for (std::size_t i = 0; rate == 10'000 && i < subscribers.size(); ++i) {
                EXPECT_NEAR(first[i] + rest[i], share, share * 0.05) << "subscriber " << i + 1;
            }
        }
    }
    EXPECT_EQ(reader.exit(), 0);
}

}  // namespace
