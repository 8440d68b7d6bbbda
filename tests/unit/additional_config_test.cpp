// SPDX-License-Identifier: MIT
// The additional-keys database: which report may leave, whose place a new key
// takes, and what a client sees of it.

#include <algorithm>
#include <atomic>
#include <list>
#include <nlohmann/json.hpp>
#include <random>
#include <set>
#include <thread>

#include "additional_config.hpp"
#include "logger.hpp"
#include "mode/defaults.hpp"
#include "radio_fixture.hpp"

namespace {

using nlohmann::json;

std::string printed(bool detailed, const time_value_s& now) {
    std::string text = "untouched";
    return std::to_string(getCurrentTagInfoDB(&text, detailed, now)) + " " + text;
}

}  // namespace

TEST(AdditionalKeys, QuietTimeToTheMicrosecond) {
    constexpr time_value_s first{1000, 900'000};
    const std::tuple<float, time_value_s, int> rows[] = {
        {5, {1005, 900'000}, 0},    {5, {1005, 900'001}, 1},    {5, {1005, 100'000}, 0},
        {5, {990, 0}, 0},  // the clock went back
        {0.5F, {1001, 400'000}, 0}, {0.5F, {1001, 400'001}, 1}, {4294967295.0F, {4'000'000'000, 0}, 0},
    };
    for (const auto& [quiet, again, leaves] : rows) {
        resetTagInfoDB();
        ASSERT_EQ(setAddlKeysFilterConfig(false, quiet, 10), 0);
        EXPECT_EQ(report_line("key", first), 1);
        EXPECT_EQ(report_line("key", again), leaves) << quiet << " " << again.seconds;
    }

    // The quiet time runs from the last report, not from the last read.
    setAddlKeysFilterConfig(false, 5, 10);
    for (std::int64_t second = 0; second < 13; ++second) {
        EXPECT_EQ(report_line("another", {second, 0}), second % 6 == 0 ? 1 : 0) << second;
    }
}

TEST(AdditionalKeys, PrintedAsHeld) {
    ASSERT_EQ(setAddlKeysFilterConfig(false, 5, maxAddlKeysDBSize), 0);
    report_line("k", {100, 20});
    EXPECT_EQ(printed(true, {101, 750'020}),
              "0 Success: Current Tag Info DB Size : 1"
              "\nTag ID: k, Timestamp: 100.20, Time until expiration: -4.750000 seconds");
    additional_config::isAddlKeysEnabled = false;  // a mode without keys does not empty the database
    EXPECT_EQ(printed(false, {}), "-1 untouched");
    setAddlKeysFilterConfig(false, 5, 2);
    EXPECT_EQ(setAddlKeysFilterConfig(false, 5, maxAddlKeysDBSize + 1), -1) << "the size stays 2";
    for (const char* key : {"l", "m", "n"}) {
        report_line(key, {200, 0});
    }
    EXPECT_EQ(printed(false, {}), "0 Success: Current Tag Info DB Size : 2");
}

TEST(AdditionalKeys, KeyOfAReport) {
    const json full = {{"PC", "3000"}, {"idHex", "e2"}, {"CRC", "1d0f"}, {"TID", "e280"}, {"antenna", 2}};
    // Whether the antenna counts, what differs from the full report (null takes a member
    // away), the result and the key.
    const std::tuple<bool, json, int, const char*> rows[] = {
        {false, json::object(), 0, "3000e21d0fe280"},
        {true, json::object(), 0, "3000e21d0fe280_2"},
        {false, {{"antenna", nullptr}}, 0, "3000e21d0fe280"},
        {true, {{"antenna", nullptr}}, -1, ""},
        {true, {{"antenna", 2147483648}}, -3, ""},
        {false, {{"PC", nullptr}}, -1, ""},
        {false, {{"idHex", nullptr}}, -1, ""},
        {false, {{"CRC", 1}}, -2, ""},
        {false, {{"TID", nullptr}}, -1, ""},
        {false, 1, -2, ""},
    };
    json report;
    std::string key = "old";
    EXPECT_EQ(parse_json_for_addl_key(&report, &key), -1);  // the filter is off
    std::uint64_t errors = 0;
    for (const auto& [useAntenna, changes, result, expected] : rows) {
        SCOPED_TRACE(changes);
        EXPECT_EQ(getErrorCount(), errors);
        report["data"] = full;
        report["data"].merge_patch(changes);
        setAddlKeysFilterConfig(useAntenna, 5, 10);
        EXPECT_EQ(parse_json_for_addl_key(&report, &key), result);
        EXPECT_TRUE(result != 0 || key == expected) << key;
        errors += result != 0 ? 1 : 0;
    }
    report = nullptr;
    EXPECT_EQ(parse_json_for_addl_key(&report, &key), -1);
    EXPECT_EQ(getErrorCount(), errors + 1);
}

// Thousands of keys in random order, some of them long, against a plain list.
TEST(AdditionalKeys, ManyKeysAsAPlainListSaysIt) {
    constexpr std::size_t size = 700;
    constexpr std::int64_t quiet = 400;
    setAddlKeysFilterConfig(false, quiet, size);
    std::list<std::pair<std::string, std::int64_t>> expected;  // reported last first
    std::mt19937 random(7);
    for (std::int64_t second = 0; second < 20'000; ++second) {
        const auto number = random() % 1000;
        const std::string key = std::to_string(number) + std::string(number % 5 * 40, 'e');
        const auto known = std::ranges::find(expected, key, &std::pair<std::string, std::int64_t>::first);
        const bool leaves = known == expected.end() || second - known->second > quiet;
        if (leaves) {
            if (known != expected.end() || expected.size() == size) {
                expected.erase(known != expected.end() ? known : std::prev(known));
            }
            expected.emplace_front(key, second);
        }
        ASSERT_EQ(report_line(key, {second, 0}), leaves ? 1 : 0) << second;
    }
    std::string text = "0 Success: Current Tag Info DB Size : " + std::to_string(size);
    for (const auto& [key, second] : expected) {
        text += "\nTag ID: " + key + ", Timestamp: " + std::to_string(second) + ".0, expired";
    }
    EXPECT_EQ(printed(true, {1'000'000, 0}), text);
}

TEST_F(RadioTest, AReportWithoutAKeyLeavesUnfiltered) {
    setDefaultMode(&mode_configuration);
    setAddlKeysFilterConfig(false, 1000, 10);
    deliver(tagWithEpc("\xe2\x80"));
    deliver(tagWithEpc("\xe2\x80"));
    EXPECT_EQ(received(data).size(), 2U);
    EXPECT_EQ(getErrorCount(), 2U);
}

// The engine thread asks while the main thread sets, prints and empties.
TEST(AdditionalKeys, TwoThreads) {
    setAddlKeysFilterConfig(false, 0, 200);
    std::atomic<bool> done{false};
    const auto keyOf = [](std::size_t number) {
        return "key " + std::to_string(number) + std::string(number % 7 * 40, 'e');
    };
    std::thread engine([&] {
        for (std::int64_t second = 0; second < 1'000'000; ++second) {
            report_line(keyOf(static_cast<std::size_t>(second * 7 % 300)), {second, 0});
        }
        done = true;
    });
    for (int round = 0; !done; ++round) {
        std::istringstream text(printed(true, {60'000, 0}));
        std::set<std::string> lines;  // the head with the number of keys, and each key once
        for (std::string line; std::getline(text, line);) {
            lines.insert(line.substr(0, line.find(',')));
            if (line.starts_with("Tag ID: ")) {
                EXPECT_EQ(line.substr(8, line.find(',') - 8), keyOf(std::stoul(line.substr(12)))) << "torn";
            }
        }
        EXPECT_TRUE(
            lines.contains("0 Success: Current Tag Info DB Size : " + std::to_string(lines.size() - 1)));
        if (round % 3 == 0) {
            resetTagInfoDB();
        }
        setAddlKeysFilterConfig(false, 0, 200);
    }
    engine.join();
}
