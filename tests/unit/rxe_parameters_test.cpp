// SPDX-License-Identifier: MIT
// Single engine parameters: their wire form, their memory, their failures.
#include <gmock/gmock.h>

#include <functional>

#include "logger.hpp"
#include "rxe_intfc.hpp"
#include "support/engine_double.hpp"

namespace {

constexpr auto failing = static_cast<RXE_API_STATUS>(77);

std::string lastCall() {
    return engine_double::describe(engine_double::calls().back());
}

// The writers that a mode does not reach, and those whose arguments it never varies.
TEST(RxeParameters, EachWriterSendsItsRecord) {
    static const std::uint16_t words[256] = {0x0102, 0x0304};
    const std::pair<std::string, std::function<RXE_API_STATUS()>> cases[] = {
        {"10ec 34", [] { return setPeakThreshold(0x1234); }},
        {"0303 010b000003000100020002010403", [] { return setAccessMultiWordWrite(3, 1, 3, 1, 2, words); }},
        {"0304 0106000003000100ff0002010403", [] { return setAccessBlockWrite(4, 1, 3, 1, 255, words); }},
        {"0305 0103000078563412", [] { return setAccessKill(5, 1, 0x12345678); }},
        {"1000 -", disableAllIDFilters}};
    for (const auto& [call, write] : cases) {
        EXPECT_EQ(write(), RXE_OK);
        EXPECT_EQ(lastCall(), "setParam2 " + call);
    }
    engine_double::failOn("RXE_setParam2", 0x1000, failing);
    EXPECT_EQ(disableAllIDFilters(), failing);
}

TEST(RxeParameters, WhatTheEngineCannotKnowNeverReachesIt) {
    static const std::uint16_t words[256] = {};
    static const std::uint8_t mask[67] = {};
    const std::function<RXE_API_STATUS()> requests[] = {
        [] { return setAccessMultiWordWrite(1, 1, 3, 0, 256, words); },
        [] { return setAccessBlockWrite(1, 1, 3, 0, 256, words); },
        [] { return setIDFilter(1, 1, 32, 536, mask, 67); },
        [] { return setIDFilter(235, 1, 32, 8, mask, 1); },
        [] { return setOlio(1024, 1, 1, 1, 1, 1, 100, 0, 1, 0, 201); },
        [] { return enableChannel(128, 915250); },
        [] { return setCableLossX10(-1, 1); },
        [] { return setCableLossX10(16, 1); }};
    const auto errors = getErrorCount();
    for (const auto& request : requests) {
        EXPECT_EQ(static_cast<int>(request()), 1);
    }
    EXPECT_TRUE(engine_double::calls().empty());
    EXPECT_EQ(getErrorCount(), errors + std::size(requests));
    EXPECT_EQ(getTxAntForOlio(1024), 0);
    EXPECT_EQ(getChannelForChannelIdx(65535), 0U);
}

TEST(RxeParameters, PacketsAreSentOnlyWhenTheyChange) {
    const auto sent = [](auto request, std::uint16_t id) {
        engine_double::clearCalls();
        EXPECT_EQ(request(id), RXE_OK);
        return engine_double::calls().size();
    };
    EXPECT_EQ(sent(disablePacketType, 780), 0U);
    EXPECT_EQ(sent(enablePacketType, 780), 1U);
    EXPECT_EQ(sent(enablePacketType, 780), 0U);
    EXPECT_EQ(sent(disablePacketType, 780), 1U);
    EXPECT_EQ(lastCall(), "setParam2 0004 00000c03");
    EXPECT_EQ(sent(enablePacketType, 4000) + sent(enablePacketType, 4000), 2U);
    EXPECT_EQ(sent(enablePacketType, 897), 1U);
    EXPECT_EQ(disableAllPackets(), RXE_OK);
    EXPECT_EQ(sent(enablePacketType, 897), 1U);
    engine_double::failOn("RXE_setParam2", 4, failing);
    EXPECT_EQ(enablePacketType(913), failing);
    EXPECT_EQ(disableAllPackets(), failing);
    engine_double::reset();
    EXPECT_EQ(sent(enablePacketType, 913) + sent(enablePacketType, 897), 1U);
}

TEST(RxeParameters, CustomFieldsAreRememberedOnlyWhenAccepted) {
    EXPECT_EQ(setCustomFields(0), RXE_OK);
    EXPECT_TRUE(engine_double::calls().empty());
    engine_double::failOn("RXE_setParam2", 9, failing);
    EXPECT_EQ(setCustomFields(0x3C01), failing);
    engine_double::reset();
    EXPECT_EQ(setCustomFields(0x3C01), RXE_OK);
    EXPECT_EQ(setCustomFields(0x3C01), RXE_OK);
    EXPECT_EQ(engine_double::calls().size(), 1U);
}

// A changed channel stands one entry further along than in the snapshot.
TEST(RxeParameters, ChangedChannelsStandOneFurtherAndAreReset) {
    ASSERT_EQ(getInitialChannels(), RXE_OK);
    initial_channel_state = true;
    engine_double::clearCalls();
    EXPECT_EQ(resetInitialChannels(), RXE_OK);
    EXPECT_TRUE(engine_double::calls().empty());

    EXPECT_EQ(enableChannel(127, 920000), RXE_OK);
    EXPECT_EQ(lastCall(), "setParam2 087f 01000000c0090e");
    EXPECT_EQ(getChannelForChannelIdx(127), 920000U);
    EXPECT_EQ(disableChannel(2), RXE_OK);
    EXPECT_EQ(lastCall(), "setParam2 0802 000000004cc90d002c01");
    EXPECT_EQ(current_channels[1].enable, 1);
    EXPECT_EQ(current_channels[2].enable, 0);

    engine_double::failOn("RXE_setParam2", 0x803, failing);
    EXPECT_EQ(resetInitialChannels(), failing);
    EXPECT_EQ(current_channels[2].enable, 0);
    engine_double::reset();
    EXPECT_EQ(resetInitialChannels(), RXE_OK);
    EXPECT_EQ(engine_double::calls().size(), 127U);
    EXPECT_TRUE(initial_channel_state);
    EXPECT_EQ(getChannelForChannelIdx(2), 904000U);

    AAREchoResults results{};
    std::uint32_t frequency = 0;
    EXPECT_EQ(get_aar_echo_info(2, &results, &frequency), RXE_OK);
    EXPECT_EQ(frequency, 904000U);
    EXPECT_EQ(get_aar_echo_info(4, &results, &frequency), RXE_OK);
    EXPECT_EQ(frequency, 0xFFFFFFFF);
}

TEST(RxeParameters, ShadowCommandSwitchesEveryWrite) {
    for (const bool enabled : {true, false, true}) {
        std::vector<std::string> tokens{"configrxe", "shadow", enabled ? "enable" : "disable"};
        std::string reply;
        EXPECT_EQ(handleShadowRequest(&tokens, &reply), 0);
        EXPECT_EQ(setGPIODir(1), RXE_OK);
        EXPECT_EQ(engine_double::calls().back().shadow, enabled);
    }
}

}  // namespace
