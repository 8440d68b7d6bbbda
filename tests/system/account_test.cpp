// SPDX-License-Identifier: MIT
// The account closes at every moment, and what nobody heard is the gap that the next subscriber sees.
#include <gtest/gtest.h>
#include <zmq.h>

#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <thread>

#include "support/reports.hpp"

namespace {

using nlohmann::json;

json account() {
    return json::parse(ask("account").substr(std::string("Success: ").size()));
}

std::uint64_t sumOf(const json& numbers) {
    std::uint64_t sum = 0;
    for (const auto& [name, number] : numbers.items()) {
        sum += name == "antenna" || name == "tagPackets" ? 0 : number.get<std::uint64_t>();
    }
    return sum;
}

// 10,000 tags a second, while modes, forms and subscribers change.
TEST(Account, ClosesInEverySampleUnderLoad) {
    reader_s reader;
    ASSERT_EQ(ask("start sim 10000"), "Success");
    std::unique_ptr<outside_subscriber_s> subscriber;
    const std::string changes[] = {
        "data_analytics STRING",
        "subscribers 3",
        R"(mode {"type":"INVENTORY","filter":{"value":"3034","match":"prefix","operation":"exclude"}})",
        "data_analytics BINARY",
        "subscribers 1",
        R"(mode {"type":"INVENTORY"})",
        "data_analytics OFF",
    };
    std::uint64_t last = 0;
    for (std::size_t i = 0; i < 1000; ++i) {
        if (i % 20 == 0) {
            EXPECT_EQ(ask(changes[i / 20 % std::size(changes)]), "Success");
            subscriber.reset(i % 40 == 0 ? new outside_subscriber_s : nullptr);
        }
        const json now = account();
        const std::uint64_t tagPackets = now["tagPackets"];
        std::uint64_t ofAntennas = 0;
        for (const json& antenna : now["byAntenna"]) {
            ofAntennas += antenna["tagPackets"].get<std::uint64_t>();
        }
        ASSERT_EQ(sumOf(now["fates"]), tagPackets) << now;
        ASSERT_EQ(ofAntennas, tagPackets) << now;
        ASSERT_EQ(sumOf(now["forms"]), now["fates"]["sent"]) << now;
        ASSERT_GE(tagPackets, last);
        last = tagPackets;
    }
    EXPECT_EQ(ask("stop"), "Success");
    const json end = account();
    const json status = json::parse(ask("status numTagReads").substr(std::string("Success: ").size()));
    EXPECT_EQ(end["tagPackets"], status["numTagReads"]);
    EXPECT_GT(end["tagPackets"], 1000);
    EXPECT_EQ(reader.exit(), 0);
}

bool comesTrue(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + defaultPatience;
    while (!condition() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return condition();
}

bool awaitListeners(int count) {
    return comesTrue([&] { return account()["listeners"] == count; });
}

// Runs the radio until some more tags have come.
void readSomeTags() {
    constexpr std::uint64_t some = 50;
    const std::uint64_t begin = account()["tagPackets"];
    ASSERT_EQ(ask("start"), "Success");
    EXPECT_TRUE(comesTrue([&] { return account()["tagPackets"] >= begin + some; }));
    EXPECT_EQ(ask("stop"), "Success");
}

// Reads some tags. Returns the numbers of the reports that the subscriber gets.
std::vector<std::uint64_t> numbersHeard(const socket_s& subscriber) {
    readSomeTags();
    std::vector<std::uint64_t> numbers;
    for (const std::string& report : framesOf(subscriber, std::chrono::milliseconds(300))) {
        numbers.push_back(json::parse(report.substr(4))["data"]["eventNum"]);
    }
    return numbers;
}

TEST(Account, WhatNobodyHearsIsTheGapThatTheNextSubscriberSees) {
    reader_s reader({.scenario = manyTags});
    ASSERT_EQ(ask("data_analytics STRING"), "Success");
    auto subscriber = std::make_unique<outside_subscriber_s>();
    ASSERT_TRUE(awaitListeners(1));
    const socket_s wrongType(ZMQ_PULL);  // connects again and again, and is refused each time
    zmq_connect(wrongType.handle, "tcp://127.0.0.1:5160");
    const std::vector<std::uint64_t> before = numbersHeard(*subscriber);
    EXPECT_EQ(account()["unheard"], 0);

    subscriber.reset();
    ASSERT_TRUE(awaitListeners(0));
    readSomeTags();
    const std::uint64_t unheard = account()["unheard"];
    EXPECT_GE(unheard, 50U);

    subscriber = std::make_unique<outside_subscriber_s>();
    ASSERT_TRUE(awaitListeners(1));
    const std::vector<std::uint64_t> after = numbersHeard(*subscriber);
    ASSERT_FALSE(before.empty() || after.empty());
    EXPECT_EQ(after.front() - before.back() - 1, unheard);
    EXPECT_EQ(account()["unheard"], unheard);
    EXPECT_EQ(account()["nextEventNum"], after.back() + 1);
}

// The library keeps messages for a local consumer that was there; when they are too many, they are
// refused. One that was never there hears nothing.
TEST(Account, TheQueueOfALocalConsumerThatIsAwayFills) {
    reader_s reader;
    ASSERT_EQ(ask("start sim 5000"), "Success");
    EXPECT_TRUE(comesTrue([] { return account()["unheard"] > 100; }));
    EXPECT_EQ(account()["fates"]["refused"], 0);
    auto consumer = std::make_unique<consumer_s>(dataEndpoint);
    ASSERT_TRUE(awaitListeners(1));
    ASSERT_TRUE(consumer->receive()) << "from now on the library keeps reports for it";
    const std::uint64_t unheard = account()["unheard"];
    consumer.reset();
    ASSERT_TRUE(awaitListeners(0));
    EXPECT_TRUE(comesTrue([] { return account()["fates"]["refused"] > 100; }));
    EXPECT_EQ(account()["unheard"], unheard);
    EXPECT_EQ(ask("stop"), "Success");
}

}  // namespace
