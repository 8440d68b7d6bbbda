// SPDX-License-Identifier: MIT
// The simulator's road through a real array reader's daemon, without its radio: at
// each rate in each form, and spread over three subscribers.
#include <gtest/gtest.h>

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

// Adds the reports that come to each within `time` to `counts`.
void countReports(const subscribers_t& subscribers, steady_clock::duration time, std::vector<long>* counts) {
    for (const auto end = steady_clock::now() + time; steady_clock::now() < end;) {
        for (std::size_t i = 0; i < subscribers.size(); ++i) {
            while (const std::optional<frames_t> frames = subscribers[i]->receive(1ms)) {
                // A prefix tells nothing about further frames.
                EXPECT_TRUE(subscribers.size() == 1 || frames->size() == 1);
                (*counts)[i] += std::ssize(*frames) - std::ranges::count(*frames, "");
            }
        }
    }
}

long tagReads() {
    const std::string status = ask("status numTagReads");
    return nlohmann::json::parse(status.substr(status.find('{')))["numTagReads"];
}

// The prefixes are those of subscribers from outside; none for the local consumer.
const std::pair<std::string, std::vector<std::string>> forms[] = {
    {"OFF", {}},
    {"STRING", {{"\1\0\0", 3}, {"\2\0\0", 3}, {"\3\0\0", 3}}},
    {"BINARY", {{"\1\0\1", 3}, {"\2\0\1", 3}, {"\3\0\1", 3}}},
};

TEST(SimBearing, arrivesAtItsRateInEachFormAndEvenlySpread) {
    subscribers_t subscribers;
    subscribers.push_back(std::make_unique<consumer_s>(dataEndpoint));
    reader_s reader({.serverArguments = {"--profile", "QDX4400"}, .prepare = writeRoom});
    for (const auto& [form, prefixes] : forms) {
        ASSERT_EQ(ask("subscribers " + std::to_string(std::max(prefixes.size(), 1UL))), "Success");
        ASSERT_EQ(ask("data_analytics " + form), "Success");
        prefixes.empty() ? void() : subscribers.clear();
        for (const std::string& prefix : prefixes) {
            subscribers.push_back(std::make_unique<outside_subscriber_s>(prefix));
        }
        // Until each has a report: connecting takes its time.
        ASSERT_EQ(ask("start sim_bearing 400 0"), "Success");
        for (const auto& subscriber : subscribers) {
            ASSERT_TRUE(subscriber->receive());
        }
        ASSERT_EQ(ask("stop"), "Success");
        std::vector<long> counts(subscribers.size());
        countReports(subscribers, 150ms, &counts);
        for (const long rate : {10L, 1'000L, 10'000L}) {
            SCOPED_TRACE(form + " at " + std::to_string(rate));
            const long before = tagReads();
            ASSERT_EQ(ask("start sim_bearing " + std::to_string(rate) + " 0 std_az=1"), "Success");
            std::ranges::fill(counts, 0);
            ASSERT_TRUE(eventually([&] {  // until its files are read a stop would pass it by
                countReports(subscribers, 5ms, &counts);
                return tagReads() > before;
            }));
            countReports(subscribers, 850ms, &counts);
            const auto asked = steady_clock::now();
            ASSERT_EQ(ask("stop"), "Success");
            const bool inTime = steady_clock::now() - asked < 1s;  // else cut off in its slice
            countReports(subscribers, 150ms, &counts);
            const long slice = rate / 4, reads = tagReads() - before;
            EXPECT_TRUE(reads % slice == 0 || !inTime) << reads;
            EXPECT_GE(reads, inTime ? 3 * slice : slice);
            EXPECT_LE(reads, 5 * slice);
            const long arrived = std::reduce(counts.begin(), counts.end());
            // A last batch stays open, here and from the run before. For half a second,
            // before the rate has been measured, reports leave singly, and the socket
            // drops what is more than it holds, between 1,024 and 2,048.
            const long mayBeLost = subscribers.size() > 1 ? 0 : 2 * std::max(slice - 1024, 0L);
            EXPECT_LE(arrived, reads + 40);
            EXPECT_GE(arrived, reads - mayBeLost - 40);
            const long share = arrived / static_cast<long>(subscribers.size());
            for (std::size_t i = 0; rate == 10'000 && i < subscribers.size(); ++i) {
                EXPECT_NEAR(counts[i], share, share * 0.05) << "subscriber " << i + 1;
            }
        }
    }
    EXPECT_EQ(reader.exit(), 0);
}

}  // namespace
