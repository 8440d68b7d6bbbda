// SPDX-License-Identifier: MIT
// The parameter space, the scenario, and what is refused.
#include <gmock/gmock.h>

#include <array>

#include "radio.hpp"

namespace {

TEST_F(Radio, RecordsComeBackAsWrittenAndNoLonger) {
    // The first and the last of each range, then what stands alone.
    const std::pair<unsigned, std::size_t> cases[] = {
        {0x0101, 76},  {0x0120, 76}, {0x02FF, 520}, {0x07FF, 40}, {0x0801, 12}, {0x087F, 12},
        {0x033F, 528}, {0x1001, 72}, {0x0005, 16},  {0x0015, 20}, {0xD003, 6},  {0xD005, 10},
        {0x0009, 4},   {0x120E, 1},  {0x10EF, 2},   {0x10F3, 2},  {0x10FE, 1},  {0x10FF, 8}};
    ASSERT_EQ(connect("{}"), RXE_OK);
    for (const auto& [id, size] : cases) {
        // Enable 0 first, so that no rule on the other fields applies.
        std::vector<std::uint8_t> record(size, 1), read(size + 1, 0xEE);
        record[0] = 0;
        record.back() = size == 4 ? 0 : record.back();  // the mask has 20 bits
        ASSERT_EQ(RXE_setParam(static_cast<unsigned short>(id), record.data()), RXE_OK) << id;
        ASSERT_EQ(RXE_getParam(static_cast<unsigned short>(id), read.data()), RXE_OK) << id;
        if (id == 0x0005) {
            record[14] = record[15] = 0;  // beyond the rule's fields
        }
        record.push_back(0xEE);
        EXPECT_EQ(read, record) << id;
    }
}

TEST_F(Radio, FactsOfTheScenario) {
    open(R"("model": "PN8200", "firmware": "1.4.87.3", "library": "2.2.33.1", "antennas": [1, 3],
        "maxTxPower": 31.5, "temperatures": {"pa": 90, "ambient": -5})");
    const auto facts = [](unsigned short id) {
        std::int32_t value = 0;
        EXPECT_EQ(RXE_getParam(id, &value), RXE_OK);
        return value;
    };
    EXPECT_EQ((std::array{facts(RXE_PARAM_FW_VERSION), facts(RXE_PARAM_ANTENNA_STATE),
                          facts(RXE_PARAM_MAX_TX_POWER), facts(RXE_PARAM_PA_TEMP), facts(RXE_PARAM_AMB_TEMP),
                          facts(RXE_PARAM_LIVENESS)}),
              (std::array{0x03570401, 5, 315, 90, 0xFFFB, 0}));
    REL_VERSION_s version = {};
    ASSERT_EQ(RXE_getAPIVerNum(&version, nullptr), RXE_OK);
    EXPECT_EQ(version.patch, 33);
    std::uint8_t degrees = 0x83;
    EXPECT_EQ(RXE_setNVMParam(RXE_PARAM_OLIO + 4, &degrees), 5);
    EXPECT_STREQ(RXE_strerror(set(RXE_PARAM_RADIO_STOP, stopRecord(0, 1))),
                 "this reader or its firmware has no such parameter");
    open(R"("model": "QDX4400", "antennas": [{"port": 0}, {"port": 3, "connected": false}])");
    EXPECT_EQ(facts(RXE_PARAM_ANTENNA_STATE), 0x3FFB) << "elements of an array";
}

// A good record for each id, one field of it changed at a time.
TEST_F(Radio, RefusesBadRecordsAndKeepsTheOldOnes) {
    ASSERT_EQ(connect("{}"), RXE_OK);
    ASSERT_EQ(set(0x0401, olio(1, 1, 1)), RXE_OK);
    ASSERT_EQ(set(0x0101, SELECT_OP_s{1, 0, 0, 0, 0, 0, 0, 0, {}}), RXE_OK);
    query(0, 0, 0);
    ASSERT_EQ(set(0x0301, ACCESS_OP_s{1, RXE_ACCESS_READ, {}, {}, 0, {}, 0, 0, 0}), RXE_OK);
    ASSERT_EQ(set(0x0302, ACCESS_OP_s{1, RXE_ACCESS_LOCK, {}, {}, 0, {}, 0, 0, 0}), RXE_OK);
    ASSERT_EQ(set(0x0303, ACCESS_OP_s{1, RXE_ACCESS_BLOCK_WRITE, {}, {}, 1, {}, 0, 0, 0}), RXE_OK);
    ASSERT_EQ(RXE_setParam(0x1001, std::array<std::uint8_t, 72>{1}.data()), RXE_OK);
    ASSERT_EQ(set(RXE_PARAM_LAST_REPORT, REPORT_FILTER_LAST_REPORT_s{1, 0, {}, 1}), RXE_OK);
    const struct {
        unsigned id;
        std::size_t offset, bytes;
        std::vector<std::uint64_t> good, bad, unmodelled;
    } cases[] = {
        {0x0401, offsetof(OLIO_s, enable), 1, {1}, {2, 255}, {}},
        {0x0401, offsetof(OLIO_s, transmitAntenna), 2, {1, 16, 17, 5897, 5937}, {0}, {}},
        {0x0401, offsetof(OLIO_s, receiveAntenna), 2, {16, 5897, 5937, 0xFFF0, 0xFFF5}, {0, 0xFFF6}, {}},
        {0x0401, offsetof(OLIO_s, stopType), 1, {1, 10, 0x81, 0xFF}, {0, 11, 0x7F, 0x80}, {}},
        {0x0401, offsetof(OLIO_s, transmitPower), 2, {0, 330}, {331, 0x7FFF, 0x8000, 0xFFFF}, {}},
        {0x0401, offsetof(OLIO_s, linkProfileIndex), 2, {0, 3, 1719}, {1, 2, 100, 1720, 0xFFFF}, {}},
        {0x0101, offsetof(SELECT_OP_s, target), 1, {0, 4}, {5, 255}, {}},
        {0x0101, offsetof(SELECT_OP_s, action), 1, {0, 7}, {8, 255}, {}},
        {0x0101, offsetof(SELECT_OP_s, membank), 1, {0, 3}, {4, 255}, {}},
        {0x0201, offsetof(INVENTORY_OP_s, protocol), 1, {1}, {0, 2, 4}, {3}},
        {0x0201, offsetof(INVENTORY_OP_s, sel), 1, {0, 3}, {4}, {}},
        {0x0201, offsetof(INVENTORY_OP_s, session), 1, {0, 3}, {4}, {}},
        {0x0201, offsetof(INVENTORY_OP_s, target), 1, {0, 2}, {3}, {}},
        {0x0201, offsetof(INVENTORY_OP_s, initialQ), 1, {0, 15}, {16}, {}},
        {0x0301, offsetof(ACCESS_OP_s, enable), 1, {1}, {2}, {}},
        {0x0301, offsetof(ACCESS_OP_s, type), 1, {1, 2, 3, 5, 7}, {0, 9, 10, 16, 255}, {12, 13, 14, 15}},
        {0x0301, offsetof(ACCESS_OP_s, membank), 1, {0, 3}, {4}, {}},
        {0x0301, offsetof(ACCESS_OP_s, criteriaIdx), 1, {0, 63}, {64, 255}, {}},
        {0x0302, offsetof(ACCESS_OP_s, payload), 4, {0, 0xFFFFF}, {1U << 20, ~0U}, {}},
        {0x0303, offsetof(ACCESS_OP_s, wordCount), 2, {1, 257}, {0, 258, 0xFFFF}, {}},
        {0x0801, offsetof(CHANNEL_s, enable), 1, {0, 1}, {2}, {}},
        {0x0801, offsetof(CHANNEL_s, frequency), 4, {840000, 960000}, {0, 839999, 960001, ~0U}, {}},
        {0x1001, offsetof(REPORT_FILTER_ID_s, enable), 1, {1}, {2}, {}},
        {0x1001, offsetof(REPORT_FILTER_ID_s, bitLength), 2, {0, 528}, {529, 0xFFFF}, {}},
        {0x1001, offsetof(REPORT_FILTER_ID_s, bitPointer), 2, {0, 495}, {496, 0xFFFF}, {}},
        {0x10FF, offsetof(REPORT_FILTER_LAST_REPORT_s, enable), 1, {0, 1}, {2}, {}},
        {0x10FF, offsetof(REPORT_FILTER_LAST_REPORT_s, type), 1, {0, 1}, {2}, {}},
        {RXE_PARAM_CUSTOM_FIELDS, 0, 4, {0, 0xFFFFF}, {1U << 20, ~0U}, {}},
        {RXE_PARAM_NUM_ANTENNAS, 0, 2, {1, 64}, {0, 65}, {}},
        {RXE_PARAM_HOP_PER_ROUND, 0, 1, {0, 1}, {2}, {}},
        {RXE_PARAM_DYNAMIC_RANGE, 0, 1, {0, 2}, {3}, {}},
        {RXE_PARAM_PEAK_THRESHOLD, 0, 1, {0, 12}, {13, 255}, {}},
        {RXE_PARAM_MONO_OR_COM, 0, 1, {0, 1}, {2}, {}},
        {RXE_PARAM_TX_DELAY_INTERVAL, 0, 2, {0, 0xFF02}, {3, 0xFFFF}, {}},
    };
    for (const auto& row : cases) {
        const auto id = static_cast<unsigned short>(row.id);
        std::uint8_t good[600] = {}, now[600] = {};
        ASSERT_EQ(RXE_getParam(id, good), RXE_OK);
        const auto expectAll = [&](const std::vector<std::uint64_t>& values, int status) {
            for (const std::uint64_t value : values) {
                SCOPED_TRACE(testing::Message() << std::hex << row.id << '+' << row.offset << ": " << value);
                std::copy_n(good, sizeof good, now);
                std::memcpy(now + row.offset, &value, row.bytes);
                EXPECT_EQ(RXE_setParam2(id, now, true, true), status);
                std::fill_n(now, sizeof now, std::uint8_t{});
                EXPECT_EQ(RXE_getParam(id, now), RXE_OK);
                EXPECT_TRUE(status == RXE_OK || std::equal(good, good + sizeof good, now)) << "changed";
                EXPECT_EQ(RXE_setParam(id, good), RXE_OK);
            }
        };
        expectAll(row.good, RXE_OK);
        expectAll(row.bad, 8);
        expectAll(row.unmodelled, 20);
    }
}

TEST_F(Radio, RefusesWhatIsNotThere) {
    ASSERT_EQ(connect("{}"), RXE_OK);
    for (const PACKET_ENABLE_s record : {PACKET_ENABLE_s{1, 0, 0}, {2, 0, 5}, {1, 0, 1024}, {0, 0, 0xFFFF}}) {
        EXPECT_EQ(set(RXE_PARAM_PACKET_ENABLE, record), 8);
    }
    ASSERT_EQ(RXE_getErr(), RXE_OK);
    ASSERT_TRUE(waitFor([] { return count(RXE_PACKET_ERROR_LOG) == 1; }));
    const auto text = [](int status) { return RXE_strerror(static_cast<RXE_API_STATUS>(status)); };
    EXPECT_THAT(std::string(packets.back().payload.begin(), packets.back().payload.end()),
                testing::AllOf(testing::StartsWith("ERRLOG"), testing::HasSubstr(text(8))));
    EXPECT_STRNE(text(8), text(99999));
    EXPECT_STRNE(text(RXE_NO_START_ONGOING), text(99999));
    std::uint8_t room[1024] = {};
    for (const unsigned id : {0x0000U, 0x0002U, 0x0121U, 0x0340U, 0x0880U, 0x1241U, 0xFFFFU, 0x0400U}) {
        EXPECT_EQ(RXE_getParam(static_cast<unsigned short>(id), room), 5) << id;
    }
    EXPECT_EQ(RXE_setParam(RXE_PARAM_FW_VERSION, room), 7);
    EXPECT_EQ(RXE_getParam(RXE_PARAM_PACKET_ENABLE, room), 6);
    EXPECT_EQ(RXE_getParam(0x0401, nullptr), 4);
    EXPECT_EQ(RXE_setParam2(0x0401, nullptr, true, true), 4);
    EXPECT_EQ(RXE_setNVMParam(RXE_NVM_PA_HI_TEMP, nullptr), 4);
    EXPECT_EQ(RXE_setCallback(nullptr), 4);
    EXPECT_EQ(RXE_getAPIVerNum(nullptr, nullptr), 4);
}

TEST_F(Radio, IdZeroClearsTheWholeRange) {
    ASSERT_EQ(connect("{}"), RXE_OK);
    ASSERT_EQ(set(0x0401, olio(1, 1, 1)), RXE_OK);
    ASSERT_EQ(set(0x07FF, olio(1, 1, 1)), RXE_OK);
    EXPECT_NE(set(0x0400, olio(1, 1, 1)), RXE_OK) << "the whole range can only be disabled";
    ASSERT_EQ(set(0x0400, OLIO_s{}), RXE_OK);
    for (const unsigned short id : {0x0401, 0x07FF}) {
        OLIO_s record = {};
        ASSERT_EQ(RXE_getParam(id, &record), RXE_OK);
        EXPECT_EQ(record.enable, 0);
    }
    const auto bits = [](unsigned word) {
        std::uint32_t value = 0;
        EXPECT_EQ(RXE_getParam(static_cast<unsigned short>(0x0020 + word), &value), RXE_OK);
        return value;
    };
    enable({RXE_PACKET_CW_ON, RXE_PACKET_API_ERROR});
    EXPECT_EQ(bits(772 / 32), 1U << 772 % 32);
    EXPECT_EQ(bits(31), 1U << 31);
    ASSERT_EQ(set(RXE_PARAM_PACKET_ENABLE, PACKET_ENABLE_s{0, 0, 0}), RXE_OK);
    EXPECT_EQ(bits(772 / 32) | bits(31), 0U);
    EXPECT_EQ(bits(0), 1U << 5) << "tag packets stay";
}

}  // namespace
