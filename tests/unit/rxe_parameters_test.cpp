// SPDX-License-Identifier: MIT
// Single engine parameters: their wire form, their memory, their failures.
#include <gmock/gmock.h>

#include <functional>

#include "configrxe.hpp"
#include "engine_io/channels.hpp"
#include "engine_io/olios.hpp"
#include "engine_io/operations.hpp"
#include "engine_io/packets.hpp"
#include "engine_io/parameters.hpp"
#include "logger.hpp"
#include "support/engine_double.hpp"

namespace {

TEST(RxeParameters, AllIDFiltersEndWithOneWrite) {
    EXPECT_EQ(disableAllIDFilters(), RXE_OK);
    EXPECT_EQ(engine_double::lastCall(), "setParam2 1000 -");
    engine_double::failOn("RXE_setParam2", 0x1000);
    EXPECT_EQ(disableAllIDFilters(), 77);
}

TEST(RxeParameters, WhatTheEngineCannotKnowNeverReachesIt) {
    static const std::uint16_t words[256] = {};
    static const std::uint8_t mask[67] = {};
    const std::function<RXE_API_STATUS()> requests[] = {
        [] { return setAccessMultiWordWrite(1, 1, 3, 0, 256, words); },
        [] { return setAccessBlockWrite(1, 1, 3, 0, 256, words); },
        [] { return setIDFilter(1, 1, 32, 536, mask, 67); },
        [] { return setIDFilter(235, 1, 32, 8, mask, 1); },
        [] { return setOlio(1024, {}); },
        [] { return enableChannel(128, 915250); },
        [] { return setCableLossX10(-1, 1); },
        [] { return setCableLossX10(16, 1); }};
    const auto errors = getErrorCount();
    for (const auto& request : requests) {
        EXPECT_EQ(static_cast<int>(request()), 1);
    }
    EXPECT_TRUE(engine_double::calls().empty());
    EXPECT_EQ(getErrorCount(), errors + std::size(requests));
    EXPECT_EQ(setAccessBlockWrite(1, 1, 3, 0, 255, words), RXE_OK) << "the most words";
    EXPECT_EQ(getTxAntForOlio(1024), 0);
    EXPECT_EQ(getChannelForChannelIdx(65535), 0U);
}

TEST(RxeParameters, WhatTheEngineRefusesIsNotRemembered) {
    EXPECT_EQ(enablePacketType(897), RXE_OK);
    engine_double::failOn("RXE_setParam2", -1);
    EXPECT_EQ(enablePacketType(913), 77);
    EXPECT_EQ(disableAllPackets(), 77);
    EXPECT_EQ(setCustomFields(0x3C01), 77);
    engine_double::reset();
    EXPECT_EQ(enablePacketType(913) + enablePacketType(897) + setCustomFields(0x3C01), RXE_OK);
    EXPECT_EQ(engine_double::calls().size(), 2U) << "897 was on already";
}

// A changed channel stands one entry further along than in the snapshot.
TEST(RxeParameters, ChangedChannelsStandOneFurtherAndAreReset) {
    ASSERT_EQ(getInitialChannels(), RXE_OK);
    initial_channel_state = true;
    engine_double::clearCalls();
    EXPECT_EQ(resetInitialChannels(), RXE_OK);
    EXPECT_TRUE(engine_double::calls().empty());

    EXPECT_EQ(enableChannel(127, 920000), RXE_OK);
    EXPECT_EQ(engine_double::lastCall(), "setParam2 087f 01000000c0090e");
    EXPECT_EQ(getChannelForChannelIdx(127), 920000U);
    EXPECT_EQ(disableChannel(2), RXE_OK);
    EXPECT_EQ(engine_double::lastCall(), "setParam2 0802 000000004cc90d002c01");
    EXPECT_EQ(current_channels[1].enable, 1);
    EXPECT_EQ(current_channels[2].enable, 0);

    engine_double::failOn("RXE_setParam2", 0x803);
    EXPECT_EQ(resetInitialChannels(), 77);
    EXPECT_EQ(current_channels[2].enable, 0);
    engine_double::reset();
    EXPECT_EQ(resetInitialChannels(), RXE_OK);
    EXPECT_EQ(engine_double::calls().size(), 127U);
    EXPECT_TRUE(initial_channel_state);
    EXPECT_EQ(getChannelForChannelIdx(2), 904000U);
}

TEST(RxeParameters, ShadowCommandSwitchesEveryWrite) {
    for (const bool enabled : {true, false, true}) {
        std::vector<std::string> tokens{"configrxe", "shadow", enabled ? "enable" : "disable"};
        std::string reply;
        EXPECT_EQ(handleShadowRequest(&tokens, &reply), 0);
        EXPECT_EQ(setGPIODir(1), RXE_OK);
        EXPECT_EQ(engine_double::lastCall() == "setParam2 d001 01", enabled);
    }
}

}  // namespace
