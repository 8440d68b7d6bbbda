// SPDX-License-Identifier: MIT
// What a run delivers, in which order, and what ends it.
#include "radio.hpp"

namespace {

TEST_F(Radio, PacketsComeInTheOrderOfTheRun) {
    open(R"("tags": {"count": 3})");
    EXPECT_EQ(run({olio(2, 1, 2), olio(5, 1, 1)}, stopRecord(0, 25)).stopCause, 2);
    EXPECT_EQ(RXE_resume(), RXE_NO_START_ONGOING);

    std::vector<std::uint16_t> expected, types;
    std::vector<std::uint64_t> expectedWhere, where;
    for (int loop = 0; loop < 25; ++loop) {
        for (const int rounds : {2, 1}) {
            expectedWhere.push_back(rounds == 2 ? 1002 : 2005);
            expected.insert(expected.end(), {RXE_PACKET_ANTENNA_INFO, RXE_PACKET_CW_ON});
            for (int i = 0; i < rounds; ++i) {
                expected.insert(expected.end(),
                                {RXE_PACKET_INV_BEGIN, RXE_PACKET_TAG_INFO_CUSTOM, RXE_PACKET_TAG_INFO_CUSTOM,
                                 RXE_PACKET_TAG_INFO_CUSTOM, RXE_PACKET_INV_END});
            }
        }
    }
    expected.insert(expected.end(), {RXE_PACKET_START_INFO3, RXE_PACKET_END_OF_RUN});
    std::set<std::uint64_t> frequencies;
    for (const packet_s& packet : packets) {
        if (packet.type != RXE_PACKET_CMD_ONGOING) {
            types.push_back(packet.type);
        }
        if (packet.type == RXE_PACKET_ANTENNA_INFO) {
            where.push_back(bigEndian(packet, 0, 2) * 1000 + bigEndian(packet, 2, 2));
        }
        if (packet.type == RXE_PACKET_CW_ON) {
            frequencies.insert(bigEndian(packet, 4, 4));
        }
    }
    EXPECT_EQ(types, expected);
    EXPECT_EQ(where, expectedWhere);
    ASSERT_EQ(frequencies.size(), 50U) << "none again before all have been used";
    EXPECT_TRUE(*frequencies.begin() == 902750 && *frequencies.rbegin() == 927250);
    EXPECT_EQ(bigEndian(packets.back(), 0, 2), 0x0809U);
}

// Times are the engine's own clock; a round of ten tags takes some 45 ms, so a
// rule that is looked at between rounds is late by that much.
TEST_F(Radio, StopRules) {
    constexpr unsigned ANY = 0;
    const struct {
        const char* legend;
        OLIO_s olio;
        PER_RADIO_STOP_s stop;
        unsigned cause, rounds;
        double milliseconds, late;
    } cases[] = {
        {"rounds before the dwell time", olio(1, 0x82, 1000), stopRecord(0, 1), 2, 2, 90, 25},
        {"dwell time before the rounds", olio(1, 0xFF, 60), stopRecord(0, 1), 2, ANY, 60, 5},
        {"GPI 1 is low", olio(1, 4, 200), stopRecord(0, 1), 2, ANY, 225, 25},
        {"GPI 2 is high", olio(1, 5, 200), stopRecord(0, 1), 2, ANY, 225, 25},
        {"GPI 1 is never high", olio(1, 3, 0), stopRecord(700, 0), 4, ANY, 700, 5},
        {"tag count", olio(1, 2, 60000), stopRecord(0, 0, 25), 8, 3, 115, 15},
        {"no more unique tags", olio(1, 2, 60000), stopRecord(0, 0, 0xF002), 8, ANY, 2045, 15},
        {"radio-wide GPI, low on port 1", olio(1, 2, 60000), stopRecord(0, 0, 0, 0x10, 50), 16, ANY, 50, 5},
        {"radio-wide GPI on the other level", olio(1, 1, 1), stopRecord(300, 0, 0, 0x11, 50), 4, ANY, 300, 5},
    };
    open(R"("tags": {"count": 10}, "gpi": ["low", "high"])");
    for (const auto& row : cases) {
        SCOPED_TRACE(row.legend);
        ASSERT_EQ(RXE_resetDb(), RXE_OK);
        const START_INFO_s info = run({row.olio}, row.stop);
        EXPECT_EQ(info.stopCause, row.cause);
        if (row.rounds != ANY) {
            EXPECT_EQ(info.rounds, row.rounds);
        }
        EXPECT_NEAR(static_cast<double>(info.duration) / 1000, row.milliseconds, row.late);
        EXPECT_EQ(info.tagReads, count(RXE_PACKET_TAG_INFO_CUSTOM));
    }
}

TEST_F(Radio, RunsThatCannotBegin) {
    open("");
    EXPECT_EQ(run({}, stopRecord(0, 1)).stopCause, 64) << "no enabled olios";
    OLIO_s withoutSet = olio(1, 1, 1);
    withoutSet.inventoryIndex = 2;
    enable({RXE_PACKET_API_ERROR});
    EXPECT_EQ(run({olio(1, 1, 1), withoutSet}, stopRecord(0, 1)).stopCause, 1024)
        << "inventory set 2 is not enabled";
    EXPECT_EQ(packets.front(), (packet_s{RXE_PACKET_API_ERROR, {21, 0, 0, 0}}));
    EXPECT_EQ(count(RXE_PACKET_TAG_INFO_CUSTOM), 0U);
}

TEST_F(Radio, TagPacketsHaveTheFieldsAskedFor) {
    open(R"("tags": {"count": 1, "epcPrefix": "AB", "epcBits": 112})");
    std::vector<std::uint32_t> masks{0, 0x3C01, 0xFFFFF};
    for (int bit = 0; bit < 20; ++bit) {
        masks.push_back(1U << bit);
    }
    for (const std::uint32_t mask : masks) {
        SCOPED_TRACE(mask);
        ASSERT_EQ(set(RXE_PARAM_CUSTOM_FIELDS, mask), RXE_OK);
        run({olio(1, 1, 1)}, stopRecord(0, 1));
        const TAG_INFO_s info = recordsOf<TAG_INFO_s>(RXE_PACKET_TAG_INFO_CUSTOM).at(0);
        EXPECT_EQ(info.fields, mask);
        EXPECT_EQ(info.epcLength, mask & RXE_FIELD_EPC ? 112 : 0);
        EXPECT_EQ(info.epc[0], mask & RXE_FIELD_EPC ? 0xAB : 0);
        EXPECT_EQ(info.pc, mask & RXE_FIELD_PC ? 7 << 11 : 0);
        EXPECT_EQ(info.rssi < 0, (mask & RXE_FIELD_RSSI) != 0);
        EXPECT_EQ(info.tagCount, mask & RXE_FIELD_TAG_COUNT ? 1 : 0);
        EXPECT_EQ(info.azimuthConf, 0) << "a port has no bearing";
    }
}

TEST_F(Radio, OneSeedOneSeriesOfPackets) {
    const auto packetsOf = [this](const std::string& seed) {
        open("\"seed\": " + seed);
        run({olio(1, 2, 300), olio(2, 2, 300)}, stopRecord(0, 3));
        return packets;
    };
    const auto first = packetsOf("7");
    EXPECT_EQ(packetsOf("7"), first);
    EXPECT_NE(packetsOf("8"), first);
}

TEST_F(Radio, RealClockKeepsThePaceAndTellsThatItIsAlive) {
    ASSERT_EQ(connect("{}"), RXE_OK);
    OLIO_s fast = olio(1, 2, 60000);
    fast.linkProfileIndex = 1519;
    const auto begin = std::chrono::steady_clock::now();
    const START_INFO_s info = run({fast}, stopRecord(1500, 0));
    const std::chrono::duration<double> real = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(real.count(), 1.5 * 0.95);
    EXPECT_LT(real.count(), 3) << "or this machine is very busy";
    EXPECT_NEAR(info.tagReads, 1.5 * 1280, 1.5 * 1280 * 0.05);
    EXPECT_GE(count(RXE_PACKET_CMD_ONGOING), 6U);
}

// GPI 1 is high from 0.3 to 0.6 s, from 0.9 to 1.2 s and so on.
TEST_F(Radio, AStartTriggerTakesAnEdgeForEachRun) {
    for (const bool restarts : {false, true}) {
        open(R"("events": [{"at": 0.3, "every": 0.6, "event": "gpi", "port": 1, "level": "high"},
            {"at": 0.6, "every": 0.6, "event": "gpi", "port": 1, "level": "low"}])");
        configure({olio(1, 1, 1)});
        enable({RXE_PACKET_RESTART});
        ASSERT_EQ(set(RXE_PARAM_RADIO_STOP, stopRecord(0, 1)), RXE_OK);
        ASSERT_EQ(set(RXE_PARAM_GPIO_START, GPIO_START_s{0x11, 0, 100, 0}), RXE_OK);
        ASSERT_EQ(set(RXE_PARAM_AUTORESTART, static_cast<std::uint8_t>(restarts ? 2 : 0)), RXE_OK);
        packets.clear();
        ASSERT_EQ(RXE_start(), RXE_OK);
        EXPECT_EQ(RXE_resume(), RXE_OK);
        EXPECT_EQ(count(RXE_PACKET_ANTENNA_INFO), 0U) << "nothing goes on air before the trigger";
        ASSERT_TRUE(waitFor([&] { return count(RXE_PACKET_END_OF_RUN) == (restarts ? 3U : 1U); }));
        EXPECT_EQ(RXE_stop(), RXE_OK);
        EXPECT_EQ(RXE_resume(), RXE_NO_START_ONGOING);
        EXPECT_EQ(count(RXE_PACKET_ANTENNA_INFO), restarts ? 3U : 1U) << "one pass for each edge";
        EXPECT_EQ(count(RXE_PACKET_RESTART), restarts ? 3U : 0U);
        EXPECT_EQ(bigEndian(packets.back(), 2, 2), restarts ? 1U : 2U) << "the host, or the loops";
    }
}

TEST_F(Radio, FakeTagsComeAtTheirRateUntilStopped) {
    ASSERT_EQ(connect("{}"), RXE_OK);
    enable({RXE_PACKET_START_INFO3});
    EXPECT_NE(RXE_txFakeTags(0), RXE_OK);
    ASSERT_EQ(RXE_txFakeTags(300), RXE_OK);
    EXPECT_NE(RXE_resume(), RXE_NO_START_ONGOING);
    EXPECT_NE(RXE_start(), RXE_OK);
    ASSERT_TRUE(waitFor([] { return count(RXE_PACKET_TAG_INFO_CUSTOM) >= 150; }));
    EXPECT_EQ(RXE_stop(), RXE_OK);
    EXPECT_EQ(RXE_resume(), RXE_NO_START_ONGOING);
    std::set<std::string> different;
    for (const packet_s& packet : packets) {
        different.emplace(packet.payload.begin(), packet.payload.end());
    }
    EXPECT_EQ(different.size(), packets.size()) << "each tag is another one";
    EXPECT_EQ(packets.back().type, RXE_PACKET_END_OF_RUN);
    const START_INFO_s info = recordsOf<START_INFO_s>(RXE_PACKET_START_INFO3).at(0);
    EXPECT_EQ(info.stopCause, 1);
    EXPECT_NEAR(1e6 * static_cast<double>(different.size()) / static_cast<double>(info.duration), 300, 60);
}

}  // namespace
