// SPDX-License-Identifier: MIT
// The document of the engine's state: a full configuration against what was
// written, what each model leaves out, and every failure on the way.
#include <gtest/gtest.h>

#include <array>
#include <nlohmann/json.hpp>

#include "rxe_intfc.hpp"
#include "support/engine_double.hpp"
#include "util.hpp"

namespace {

using nlohmann::json;

constexpr auto failing = static_cast<RXE_API_STATUS>(77);

json document() {
    std::string reply;
    EXPECT_EQ(getFullCustomConfig(&reply), 0) << reply;
    return json::parse(reply);
}

template <class Record>
void hold(unsigned id, const Record& record) {
    engine_double::setRecord(static_cast<unsigned short>(id), &record, sizeof(record));
}

void supportEverything() {
    rssiFilterSupported = dynamicRangeSupported = cableLossSupported = txDelayIntervalSupported = true;
    max_ants = 2;
}

void writeEverything() {
    const std::uint8_t mask[] = {0xA1, 0xB2, 0xC0};
    const std::uint16_t words[] = {0x1234, 0xABCD};
    rxe_max_tx_pwr_x_10 = 300;
    setSelect(32, 1, 1, 7, 1, 32, 18, mask, 0);
    setInvParams(255, 1, 3, 2, 1, 4);
    setAccessRead(63, 1, 3, 1, 2);
    setAccessMultiWordWrite(2, 1, 3, 5, 2, words);
    setAccessLock(3, 1, 0x802);
    setOlio(1, 1, 2, 3, 2, 500, 255, 0x80000000, 255, 0x8000000000000001, 201);
    setOlio(2, 1, 4, 4, 0x82, 50, 100, 0, 255, 0, 0);
    setOlio(4, 1, 4, 4, 1, 1, 100, 0, 255, 0, 0);  // behind a disabled one: not seen
    setGlobalStopConditions(1000, 2, 0xF005, 0x81, 0, 0, 0, 20);
    setGPIOStart(0x22, 0, 7, 0, 0);
    setCustomFields(RXE_FIELD_EPC | RXE_FIELD_PHASE);
    enableHopPerRound();
    enableLastReportedFilter(1, 30);
    setGPIODir(0x05);
    setIDFilter(234, 1, 16, 20, mask, 3);
    setRSSIDetectThreshold(-70);
    setTxDelayInterval(2, 40);
    setDynamicRange(2);
    setCableLossX10(2, 15);
    setBlockSize(4);
    setAARHeightX10(155);
    setTagHeightX10(30);
    setStaticVDynamic(9);
    setDelayAfterSelectsInterval(3000);
    for (const std::uint8_t channel : {1, 2, 3}) {
        disableChannel(channel);
    }
    hold(0x20, std::uint32_t{1U << 5});
    hold(0x3F, std::uint32_t{1U << 30 | 1U << 31});
    // enable 2, the length wanted, not at once, suite 3, 12 bits, and behind them
    // a byte that does not count.
    hold(0x101,
         std::array<std::uint8_t, sizeof(SELECT_OP_s)>{2, 1, 0, 3, 12, 0, 0, 0, 0, 0, 0xAB, 0xC0, 0xFF});
}

TEST(RxeConfigJson, TheDocumentShowsWhatWasWritten) {
    supportEverything();
    modelName = "PN8200";
    writeEverything();
    const json expected = json::parse(R"({"olios": [{"id": 1, "transmitAntenna": 2,
        "receiveAntenna": 3, "transmitPower": 25.5, "linkProfileIndex": 201,
        "stopConditions": [{"type": "dwellTime", "value": 500}], "inventoryIndex": 255,
        "selectBitMask": "0x80000000", "accessBitMask": "0x8000000000000001"}, {"id": 2,
        "transmitAntenna": 4, "receiveAntenna": 4, "transmitPower": 10.0, "linkProfileIndex": 0,
        "stopConditions": [{"type": "inventoryRounds", "value": 2}, {"type": "dwellTime", "value": 50}],
        "inventoryIndex": 255, "selectBitMask": "0x00000000", "accessBitMask": "0x0"}],
        "selects": [{"id": 32, "target": "s1", "action": "-/flip", "membank": "epc", "bitPointer": 32,
        "bitLength": 18, "mask": "a1b2c0"}], "challenges": [{"id": 1, "includeResponseLength": true,
        "immediateResponse": false, "cryptoSuiteIndex": 3, "bitLength": 12, "message": "abc0"}],
        "inventories": [{"id": 255, "protocol": "epcGen2", "queryConfig": {"sel": "sl", "session": "s2",
        "target": "b", "initialQ": 4}}], "accesses": [{"id": 2, "type": "multiwordwrite",
        "config": {"wordPointer": 5, "wordCount": 2, "membank": "user", "data": ["1234", "abcd"]}}, {"id": 3,
        "type": "lock", "config": {"maskAction": "00802"}}, {"id": 63, "type": "read",
        "config": {"membank": "user", "wordPointer": 1, "wordCount": 2, "wordCountExpected": 2}}],
        "stopConditions": {"duration": 1000, "olioLoops": 2, "noMoreUniqueTags": 5, "gpis": [{"port": 4,
        "signal": "LOW", "dwellTime": 20}]}, "packets": ["TAG_INFO_CUSTOM", "0x03fe", "API_ERROR"],
        "tagMetaData": ["EPC", "PHASE"], "hopPerRound": true, "hopPerOlio": false, "channels": [{"id": 4,
        "frequency": 904500, "maxPower": 30.0}], "tagReportInterval": {"duration": 30, "type": "perOlio"},
        "gpioDirections": [{"port": 1, "direction": "in"}, {"port": 2, "direction": "out"}, {"port": 3,
        "direction": "in"}, {"port": 4, "direction": "out"}], "gpioStart": {"gpis": [{"port": 2,
        "signal": "HIGH", "dwellTime": 7}]}, "filters": [{"id": 234, "bitPointer": 16, "bitLength": 20,
        "mask": "a1b2"}], "rssiDetectFilter": -70, "txDelayInterval": {"type": "noUniqueReads",
        "duration": 40}, "delayAfterSelects": 3000, "dynamicRange": "HIGH", "cableLoss": [{"antenna": 1,
        "cableLoss": 0.0}, {"antenna": 2, "cableLoss": 1.5}], "aarHeight": "not supported",
        "tagHeight": "not supported", "staticVDynamic": "not supported", "blockSize": 4})");
    EXPECT_EQ(document(), expected) << json::diff(document(), expected);
}

TEST(RxeConfigJson, EachModelAndFirmwareShowsWhatItHas) {
    writeEverything();
    const json none = document();
    EXPECT_FALSE(none.contains("rssiDetectFilter"));
    for (const char* key : {"txDelayInterval", "delayAfterSelects", "dynamicRange", "cableLoss", "aarHeight",
                            "tagHeight", "staticVDynamic"}) {
        EXPECT_EQ(none[key], "not supported") << key;
    }
    supportEverything();
    setTxDelayInterval(0, 40);
    setDynamicRange(3);
    modelName = "QDX4400";
    const json changes = json::diff(none, document());
    const json expected = json::parse(R"({"txDelayInterval": "disabled", "dynamicRange": "UNKNOWN",
        "cableLoss": [{"antenna": 1, "cableLoss": 0.0}, {"antenna": 2, "cableLoss": 1.5}], "aarHeight": 15.5,
        "tagHeight": 3.0, "staticVDynamic": 9, "rssiDetectFilter": -70})");
    EXPECT_EQ(changes.size(), expected.size()) << changes;
    for (const json& change : changes) {
        EXPECT_EQ(change["value"], expected[change["path"].get<std::string>().substr(1)]) << change;
    }
    modelName = "PN5100-ASIC";
    EXPECT_EQ(document()["delayAfterSelects"], 3000);
}

TEST(RxeConfigJson, AFailedReadIsTheWholeReply) {
    // By model, the parameter that cannot be read and what is told of it.
    const std::pair<const char*, std::string> cases[] = {
        {"PN8200",
         "401 olio,120 select,2ff inventory,33f access,15 radio stop condition,3f packet bitmask,9 custom "
         "fields,885 hopPerRound,886 hopPerOlio,87f channel,10ff tagReportInterval,d001 gpioDirections,d005 "
         "gpioStart,10ea filter,10fe rssi detect filter,10f3 txDelayInterval,10f5 delayAfterSelects,888 "
         "dynamic range,1202 cable loss,10fb block size"},
        {"PN5100", "5 radio stop condition,d003 gpioStart"},
        {"QDX4400", "10ee aar height,10ef tag height,10ed static v dynamic"}};
    supportEverything();
    for (const auto& [model, reads] : cases) {
        modelName = model;
        for (const std::string& read : tokenizeCommaSeparatedString(&reads)) {
            std::size_t end = 0;
            const int id = std::stoi(read, &end, 16);
            engine_double::reset();
            engine_double::failOn("RXE_getParam", id, failing);
            std::vector<std::string> tokens{"configrxe", "custom"};
            std::string reply;
            EXPECT_EQ(configRXEHandler(&tokens, &reply), 0);
            EXPECT_EQ(reply, "Failure: error getting" + read.substr(end));
            EXPECT_EQ(engine_double::calls().back().id, static_cast<unsigned>(id));
        }
    }
}

TEST(RxeConfigJson, SingleItemsKnowTheirIds) {
    struct case_s {
        int (*get)(std::string*, json*, int);
        int first, last;
        const char* what;
    };
    const case_s cases[] = {{getChannel, 0, 127, "channel"},     {getSelect, 1, 32, "select"},
                            {getInventory, 1, 255, "inventory"}, {getAccess, 1, 63, "access"},
                            {getIDFilter, 1, 234, "filter"},     {getEnabledOlio, 0, 1023, "olio"}};
    for (const case_s& row : cases) {
        std::string reply;
        json out;
        EXPECT_EQ(row.get(&reply, &out, row.first), 0) << row.what;
        EXPECT_EQ(row.get(&reply, &out, row.last), 0) << row.what;
        for (const int id : {row.first - 1, row.last + 1}) {
            EXPECT_NE(row.get(&reply, &out, id), 0);
            EXPECT_EQ(reply, std::string("Failure: ") + row.what + " id not supported");
        }
    }
}

// Its masks stand for what the engine holds: a challenge among the selects, and of
// the accesses the lower 32.
TEST(RxeConfigJson, OneOlioAloneShowsWhatItsMasksStandFor) {
    writeEverything();
    const std::uint8_t mask[] = {0xA1, 0xB0};
    setSelect(3, 1, 4, 1, 2, 32, 12, mask, 0);
    setInvParams(2, 1, 2, 1, 2, 7);
    setOlio(9, 1, 2, 0xFFF3, 6, 250, 300, 5, 2, 0xFFFFFFFF00000002, 201);
    std::string reply;
    json out;
    ASSERT_EQ(getEnabledOlio(&reply, &out, 9), 0);
    EXPECT_EQ(out, json::parse(R"({"olios": [{"id": 9, "transmitAntenna": 2,
        "receiveAntenna": 65523, "transmitPower": 30.0, "linkProfileIndex": 201,
        "stopConditions": [{"type": "GPIO2-L", "value": 250}], "inventory": {"protocol": "epcGen2",
        "queryConfig": {"sel": "notSl", "session": "s1", "target": "ab", "initialQ": 7}},
        "selects": [{"id": 1, "includeResponseLength": true, "immediateResponse": false,
        "cryptoSuiteIndex": 3, "bitLength": 12, "message": "abc0"}, {"id": 3, "target": "sl",
        "action": "assert/-", "membank": "tid", "bitPointer": 32, "bitLength": 12, "mask": "a1b0"}],
        "accesses": [{"id": 2, "type": "multiwordwrite", "config": {"wordPointer": 5, "wordCount": 2,
        "membank": "user", "data": ["1234", "abcd"]}}]}]})"));
    const std::pair<int, const char*> failures[] = {
        {0x202, "inventory"}, {0x103, "select"}, {0x302, "access"}};
    for (const auto& [id, what] : failures) {
        engine_double::reset();
        setOlio(9, 1, 2, 2, 6, 250, 300, 5, 2, 2, 201);
        engine_double::failOn("RXE_getParam", id, failing);
        EXPECT_NE(getEnabledOlio(&reply, &out, 9), 0);
        EXPECT_EQ(reply, std::string("Failure: error getting ") + what);
    }
}

TEST(RxeConfigJson, ArrayReaderReadersStandAlone) {
    std::string reply;
    json out;
    setPeakThreshold(6);
    EXPECT_EQ(getPeakThreshold(&reply, &out), 0);
    const char* texts[] = {"monopulse for az and el", "monopulse for el/COM and az",
                           "monopulse for az/COM and el", "COM for az and el", "4 (unkonwn)"};
    for (int value = 0; value < 5; ++value) {
        setMonoOrCOM(value);
        EXPECT_EQ(getMonoOrCOM(&reply, &out), 0);
        EXPECT_EQ(out, json({{"peakThreshold", 6}, {"monoOrCom", texts[value]}}));
    }
    engine_double::failOn("RXE_getParam", -1, failing);
    EXPECT_NE(getPeakThreshold(&reply, &out), 0);
    EXPECT_EQ(reply, "Failure: error getting peak threshold");
    EXPECT_NE(getMonoOrCOM(&reply, &out), 0);
    EXPECT_EQ(reply, "Failure: error getting Monopulse or COM value");
}

}  // namespace
