// SPDX-License-Identifier: MIT
// The parameter space, the scenario, and what is refused.
#include <set>

#include "radio.hpp"

namespace {

TEST_F(Radio, RecordsComeBackAsWrittenAndNoLonger) {
    const struct {
        const char* legend;
        unsigned id;
        std::size_t size;
    } cases[] = {
        {"first select", 0x0101, 76},     {"last select", 0x0120, 76},     {"inventory set", 0x02FF, 520},
        {"last olio", 0x07FF, 40},        {"first channel", 0x0801, 12},   {"last channel", 0x087F, 12},
        {"last access", 0x033F, 528},     {"id filter", 0x1001, 72},       {"stop, two ports", 0x0005, 16},
        {"stop, four ports", 0x0015, 20}, {"start, two ports", 0xD003, 6}, {"start, four ports", 0xD005, 10},
        {"custom fields", 0x0009, 4},     {"cable loss", 0x120E, 1},       {"tag height", 0x10EF, 2},
        {"transmit delay", 0x10F3, 2},    {"RSSI threshold", 0x10FE, 1},   {"last report", 0x10FF, 8},
    };
    ASSERT_EQ(connect("{}"), RXE_OK);
    for (const auto& row : cases) {
        SCOPED_TRACE(row.legend);
        // Enable 0 first, so that no rule on the other fields applies.
        std::vector<std::uint8_t> record(row.size, 1), read(row.size + 1, 0xEE);
        record[0] = 0;
        record.back() = row.size == 4 ? 0 : record.back();  // the mask has 20 bits
        const auto id = static_cast<unsigned short>(row.id);
        ASSERT_EQ(RXE_setParam(id, record.data()), RXE_OK);
        ASSERT_EQ(RXE_getParam(id, read.data()), RXE_OK);
        EXPECT_EQ(read.back(), 0xEE) << "written beyond the record";
        read.pop_back();
        if (row.id == 0x0005) {
            record[14] = record[15] = 0;  // beyond the rule's fields
        }
        EXPECT_EQ(read, record);
    }
}

TEST_F(Radio, FactsOfTheScenario) {
    ASSERT_EQ(
        connect(R"({"firmware": "1.4.87.3", "library": "2.2.33.1", "antennas": [1, 3], "maxTxPower": 31.5,
                          "temperatures": {"pa": 90, "ambient": -5}})"),
        RXE_OK);
    REL_VERSION_s version = {};
    ASSERT_EQ(RXE_getAPIVerNum(&version, nullptr), RXE_OK);
    EXPECT_EQ(version.patch, 33);
    ASSERT_EQ(RXE_getParam(RXE_PARAM_FW_VERSION, &version), RXE_OK);
    EXPECT_EQ(version.major * 1000 + version.patch, 1087);
    std::uint16_t antennas = 0;
    std::uint32_t power = 0;
    std::int16_t pa = 0, ambient = 0;
    EXPECT_EQ(RXE_getParam(RXE_PARAM_ANTENNA_STATE, &antennas), RXE_OK);
    EXPECT_EQ(RXE_getParam(RXE_PARAM_MAX_TX_POWER, &power), RXE_OK);
    EXPECT_EQ(RXE_getParam(RXE_PARAM_PA_TEMP, &pa), RXE_OK);
    EXPECT_EQ(RXE_getParam(RXE_PARAM_AMB_TEMP, &ambient), RXE_OK);
    EXPECT_EQ(antennas, 5);
    EXPECT_EQ(power, 315U);
    EXPECT_EQ(pa, 90);
    EXPECT_EQ(ambient, -5);
    EXPECT_EQ(RXE_getParam(RXE_PARAM_LIVENESS, &pa), RXE_OK);
    std::uint8_t degrees = 0x83;
    EXPECT_EQ(RXE_setNVMParam(RXE_NVM_PA_HI_TEMP, &degrees), RXE_OK);
    EXPECT_EQ(RXE_setNVMParam(RXE_NVM_AMB_HI_TEMP, &degrees), RXE_OK);
    EXPECT_NE(RXE_setNVMParam(RXE_PARAM_OLIO + 4, &degrees), RXE_OK);
}

TEST_F(Radio, RefusesBadRecordsAndKeepsTheOldOnes) {
    ASSERT_EQ(connect("{}"), RXE_OK);
    const OLIO_s good = olio(1, 1, 1);
    const auto olioWith = [&](auto change) {
        OLIO_s record = good;
        change(&record);
        return record;
    };
    for (const int stopType : {0, 11, 0x7F, 0x80}) {
        EXPECT_NE(
            set(0x0401, olioWith([&](OLIO_s* o) { o->stopType = static_cast<std::uint8_t>(stopType); })),
            RXE_OK);
    }
    for (const int stopType : {1, 10, 0x81, 0xFF}) {
        EXPECT_EQ(
            set(0x0401, olioWith([&](OLIO_s* o) { o->stopType = static_cast<std::uint8_t>(stopType); })),
            RXE_OK);
    }
    EXPECT_NE(set(0x0401, olioWith([](OLIO_s* o) { o->transmitPower = 331; })), RXE_OK);
    EXPECT_NE(set(0x0401, olioWith([](OLIO_s* o) { o->enable = 2; })), RXE_OK);
    SELECT_OP_s select = {};
    select.enable = 1;
    select.action = 8;
    EXPECT_NE(set(0x0101, select), RXE_OK);
    select.enable = 2;  // not a Select, so its bytes mean something else
    EXPECT_EQ(set(0x0101, select), RXE_OK);
    INVENTORY_OP_s inventory = {};
    inventory.enable = inventory.protocol = 1;
    inventory.initialQ = 16;
    EXPECT_NE(set(0x0201, inventory), RXE_OK);
    ACCESS_OP_s access = {};
    access.enable = 1;
    for (const int type : {0, 9, 10, 16}) {
        access.type = static_cast<std::uint8_t>(type);
        EXPECT_NE(set(0x0301, access), RXE_OK) << type;
    }
    access.type = RXE_ACCESS_LOCK;
    access.payload = 1U << 20;
    EXPECT_NE(set(0x0301, access), RXE_OK);
    EXPECT_NE(set(RXE_PARAM_CUSTOM_FIELDS, std::uint32_t{1U << 20}), RXE_OK);
    EXPECT_NE(set(RXE_PARAM_CHANNEL + 1, CHANNEL_s{1, {}, 433920, 100, 0}), RXE_OK);
    EXPECT_NE(set(RXE_PARAM_LAST_REPORT, REPORT_FILTER_LAST_REPORT_s{1, 2, {}, 1}), RXE_OK);
    EXPECT_NE(set(RXE_PARAM_PACKET_ENABLE, PACKET_ENABLE_s{1, 0, 0}), RXE_OK);
    OLIO_s kept = {};
    ASSERT_EQ(RXE_getParam(0x0401, &kept), RXE_OK);
    EXPECT_EQ(kept.stopType, 0xFF) << "the last record that was taken";

    std::uint8_t room[1024] = {};
    for (const unsigned id : {0x0000U, 0x0002U, 0x0121U, 0x0340U, 0x0880U, 0x1241U, 0xFFFFU, 0x0400U}) {
        EXPECT_NE(RXE_getParam(static_cast<unsigned short>(id), room), RXE_OK) << id;
    }
    EXPECT_NE(RXE_setParam(RXE_PARAM_FW_VERSION, room), RXE_OK);
    EXPECT_NE(RXE_getParam(RXE_PARAM_PACKET_ENABLE, room), RXE_OK);
    EXPECT_NE(RXE_getParam(0x0401, nullptr), RXE_OK);
    EXPECT_NE(RXE_setParam2(0x0401, nullptr, true, true), RXE_OK);
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
    enable({CW_ON, 0x0BFF});
    EXPECT_EQ(bits(772 / 32), 1U << 772 % 32);
    EXPECT_EQ(bits(31), 1U << 31);
    ASSERT_EQ(set(RXE_PARAM_PACKET_ENABLE, PACKET_ENABLE_s{0, 0, 0}), RXE_OK);
    EXPECT_EQ(bits(772 / 32) | bits(31), 0U);
    EXPECT_EQ(bits(0), 1U << 5) << "tag packets stay";
}

TEST_F(Radio, BeforeAndAfterAConnection) {
    std::uint32_t record = 0;
    REL_VERSION_s version = {};
    char device[] = "/dev/ttyS1", none[] = "";
    const auto allRefused = [&] {
        EXPECT_NE(RXE_getParam(1, &record), RXE_OK);
        EXPECT_NE(RXE_setParam(9, &record), RXE_OK);
        EXPECT_NE(RXE_setParam2(9, &record, true, false), RXE_OK);
        EXPECT_NE(RXE_setNVMParam(0x403, &record), RXE_OK);
        EXPECT_NE(RXE_setCallback(keep), RXE_OK);
        EXPECT_NE(RXE_start(), RXE_OK);
        EXPECT_NE(RXE_stop(), RXE_OK);
        EXPECT_NE(RXE_resetDb(), RXE_OK);
        EXPECT_NE(RXE_getErr(), RXE_OK);
        EXPECT_NE(RXE_txFakeTags(1), RXE_OK);
        EXPECT_NE(RXE_enablePacketLogging((directory / "log").c_str()), RXE_OK);
        EXPECT_NE(RXE_disablePacketLogging(), RXE_OK);
        EXPECT_NE(RXE_disconnect(), RXE_OK);
        EXPECT_EQ(RXE_resume(), RXE_NO_START_ONGOING);
        EXPECT_EQ(RXE_getAPIVerNum(&version, nullptr), RXE_OK);
    };
    allRefused();
    EXPECT_NE(RXE_connect(nullptr, 460800), RXE_OK);
    EXPECT_NE(RXE_connect(none, 460800), RXE_OK);
    EXPECT_NE(RXE_connect(device, 12345), RXE_OK);
    ASSERT_EQ(connect("{}"), RXE_OK);
    EXPECT_NE(RXE_connect(device, 460800), RXE_OK);
    EXPECT_EQ(RXE_stop(), RXE_OK) << "stop when idle";
    EXPECT_EQ(RXE_disconnect(), RXE_OK);
    allRefused();
}

TEST_F(Radio, ErrorLogTellsTheLastRefusal) {
    ASSERT_EQ(connect("{}"), RXE_OK);
    std::uint8_t record = 9;
    const RXE_API_STATUS refusal = RXE_setParam2(RXE_PARAM_DYNAMIC_RANGE, &record, true, true);
    ASSERT_NE(refusal, RXE_OK);
    ASSERT_EQ(RXE_getErr(), RXE_OK);
    ASSERT_TRUE(waitFor([] { return count(ERROR_LOG) == 1; }));
    const std::string text(packets.back().payload.begin(), packets.back().payload.end());
    EXPECT_EQ(text.find("ERRLOG"), 0U);
    EXPECT_NE(text.find(RXE_strerror(refusal)), std::string::npos) << text;
    EXPECT_STRNE(RXE_strerror(refusal), RXE_strerror(static_cast<RXE_API_STATUS>(99999)));
    EXPECT_STRNE(RXE_strerror(RXE_NO_START_ONGOING), RXE_strerror(static_cast<RXE_API_STATUS>(99999)));
}

TEST_F(Radio, ScenarioMistakesNameTheirKey) {
    const struct {
        const char *scenario, *named;
    } cases[] = {
        {"{", "JSON"},
        {"[]", "object"},
        {R"({"colour": 1})", "\"colour\""},
        {R"({"firmware": "2.1.50"})", "\"firmware\""},
        {R"({"firmware": "2.1.50.256"})", "\"firmware\""},
        {R"({"seed": -1})", "\"seed\""},
        {R"({"seed": 18446744073709551615})", "\"seed\""},
        {R"({"clock": "slow"})", "\"clock\""},
        {R"({"tagsPerSecond": 0})", "\"tagsPerSecond\""},
        {R"({"tags": {"count": 1.5}})", "\"tags.count\""},
        {R"({"tags": {"companyPrefix": "06141"}})", "\"tags.companyPrefix\""},
        {R"({"tags": {"companyPrefix": "061414"}})", "\"tags.itemReference\""},
        {R"({"tags": {"epcPrefix": "ABC"}})", "\"tags.epcPrefix\""},
        {R"({"tags": {"epcPrefix": "ABCD", "epcBits": 24}})", "\"tags.epcBits\""},
        {R"({"tags": {"epcPrefix": "ABCD", "epcBits": 16}})", "\"tags.firstSerial\""},
        {R"({"temperatures": {"pa": "hot"}})", "\"temperatures.pa\""},
        {R"({"antennas": [0]})", "\"antennas[0]\""},
        {R"({"gpi": ["low", "up"]})", "\"gpi[1]\""},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.scenario);
        testing::internal::CaptureStderr();
        const RXE_API_STATUS status = connect(row.scenario);
        const std::string line = testing::internal::GetCapturedStderr();
        EXPECT_NE(status, RXE_OK);
        EXPECT_NE(line.find(row.named), std::string::npos) << line;
        EXPECT_EQ(std::count(line.begin(), line.end(), '\n'), 1) << line;
    }
}

// An EPC known from the tag data standard's own worked example.
TEST_F(Radio, GeneratedEpcsAreSgtins) {
    ASSERT_EQ(
        connect(
            R"({"clock": "fast", "tags": {"count": 1, "companyPrefix": "0614141", "itemReference": "812345",
                          "filter": 3, "firstSerial": 6789}})"),
        RXE_OK);
    configure({olio(1, 1, 1)});
    ASSERT_EQ(set(RXE_PARAM_CUSTOM_FIELDS, std::uint32_t{RXE_FIELD_EPC}), RXE_OK);
    PER_RADIO_STOP_s stop = {};
    stop.olioLoops = 1;
    ASSERT_EQ(set(RXE_PARAM_RADIO_STOP, stop), RXE_OK);
    run();
    const auto tag =
        std::find_if(packets.begin(), packets.end(), [](auto& p) { return p.type == TAG_CUSTOM; });
    ASSERT_NE(tag, packets.end());
    EXPECT_EQ(tag->payload, (std::vector<std::uint8_t>{0x8D, 0x30, 0x74, 0x25, 0x7B, 0xF7, 0x19, 0x4E, 0x40,
                                                       0x00, 0x00, 0x1A, 0x85}));
}

}  // namespace
