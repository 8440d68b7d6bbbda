// SPDX-License-Identifier: MIT
// The document of the engine's state: a full configuration against what was
// written, what each model leaves out, and every failure on the way.
#include <gtest/gtest.h>

#include <array>
#include <nlohmann/json.hpp>

#include "rxe_intfc.hpp"
#include "support/engine_double.hpp"

namespace {

using nlohmann::json;

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
    rxe_max_tx_pwr_x_10 = 300;
    setSelect(32, 1, 1, 7, 1, 32, 18, mask, 0);
    setInvParams(255, 1, 3, 2, 1, 4);
    setAccessRead(63, 1, 3, 1, 2);
    setOlio(1, 1, 2, 3, 2, 500, 255, 0x80000000, 255, 1, 201);
    setOlio(2, 1, 4, 4, 0x82, 50, 100, 0, 255, 0, 0);
    setOlio(4, 1, 4, 4, 1, 1, 100, 0, 255, 0, 0);  // behind a disabled one: not seen
    setGlobalStopConditions(1000, 2, 0xF005, 0, 0, 0, 0, 0);
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
    disableChannel(1);
    disableChannel(2);
    disableChannel(3);
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
    const json expected = json::parse(R"({
        "olios": [
            {"id": 1, "transmitAntenna": 2, "receiveAntenna": 3, "transmitPower": 25.5, "linkProfileIndex": 201,
             "stopConditions": [{"type": "dwellTime", "value": 500}], "inventoryIndex": 255,
             "selectBitMask": "0x80000000", "accessBitMask": "0x1"},
            {"id": 2, "transmitAntenna": 4, "receiveAntenna": 4, "transmitPower": 10.0, "linkProfileIndex": 0,
             "stopConditions": [{"type": "inventoryRounds", "value": 2}, {"type": "dwellTime", "value": 50}],
             "inventoryIndex": 255, "selectBitMask": "0x00000000", "accessBitMask": "0x0"}],
        "selects": [{"id": 32, "target": "s1", "action": "-/flip", "membank": "epc", "bitPointer": 32,
            "bitLength": 18, "mask": "a1b2c0"}],
        "challenges": [{"id": 1, "includeResponseLength": true, "immediateResponse": false,
            "cryptoSuiteIndex": 3, "bitLength": 12, "message": "abc0"}],
        "inventories": [{"id": 255, "protocol": "epcGen2",
            "queryConfig": {"sel": "sl", "session": "s2", "target": "b", "initialQ": 4}}],
        "accesses": [{"id": 63, "type": "read", "config": {"membank": "user", "wordPointer": 1,
            "wordCount": 2, "wordCountExpected": 2}}],
        "stopConditions": {"duration": 1000, "olioLoops": 2, "noMoreUniqueTags": 5},
        "packets": ["TAG_INFO_CUSTOM", "0x03fe", "API_ERROR"],
        "tagMetaData": ["EPC", "PHASE"],
        "hopPerRound": true, "hopPerOlio": false,
        "channels": [{"id": 4, "frequency": 904500, "maxPower": 30.0}],
        "tagReportInterval": {"duration": 30, "type": "perOlio"},
        "gpioDirections": [{"port": 1, "direction": "in"}, {"port": 2, "direction": "out"},
            {"port": 3, "direction": "in"}, {"port": 4, "direction": "out"}],
        "gpioStart": {"gpis": [{"port": 2, "signal": "HIGH", "dwellTime": 7}]},
        "filters": [{"id": 234, "bitPointer": 16, "bitLength": 20, "mask": "a1b2"}],
        "rssiDetectFilter": -70, "txDelayInterval": {"type": "noUniqueReads", "duration": 40},
        "delayAfterSelects": 3000, "dynamicRange": "HIGH",
        "cableLoss": [{"antenna": 1, "cableLoss": 0.0}, {"antenna": 2, "cableLoss": 1.5}],
        "aarHeight": "not supported", "tagHeight": "not supported", "staticVDynamic": "not supported",
        "blockSize": 4})");
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
    const json array = document();
    EXPECT_EQ(array["aarHeight"], 15.5);
    EXPECT_EQ(array["tagHeight"], 3.0);
    EXPECT_EQ(array["staticVDynamic"], 9);
    EXPECT_EQ(array["txDelayInterval"], "disabled");
    EXPECT_EQ(array["dynamicRange"], "UNKNOWN");
    EXPECT_EQ(array["delayAfterSelects"], "not supported");
    modelName = "PN5100-ASIC";
    EXPECT_EQ(document()["delayAfterSelects"], 3000);
}

TEST(RxeConfigJson, AFailedReadIsTheWholeReply) {
    struct case_s {
        unsigned id;
        const char *model, *what;
    };
    const case_s cases[] = {
        {0x401, "PN8200", "olio"},
        {0x120, "PN8200", "select"},
        {0x2FF, "PN8200", "inventory"},
        {0x33F, "PN8200", "access"},
        {0x015, "PN8200", "radio stop condition"},
        {0x005, "PN5100", "radio stop condition"},
        {0x03F, "PN8200", "packet bitmask"},
        {0x009, "PN8200", "custom fields"},
        {0x885, "PN8200", "hopPerRound"},
        {0x886, "PN8200", "hopPerOlio"},
        {0x87F, "PN8200", "channel"},
        {0x10FF, "PN8200", "tagReportInterval"},
        {0xD001, "PN8200", "gpioDirections"},
        {0xD005, "PN8200", "gpioStart"},
        {0xD003, "PN5100", "gpioStart"},
        {0x10EA, "PN8200", "filter"},
        {0x10FE, "PN8200", "rssi detect filter"},
        {0x10F3, "PN8200", "txDelayInterval"},
        {0x10F5, "PN8200", "delayAfterSelects"},
        {0x0888, "PN8200", "dynamic range"},
        {0x1202, "PN8200", "cable loss"},
        {0x10EE, "QDX4400", "aar height"},
        {0x10EF, "QDX4400", "tag height"},
        {0x10ED, "QDX4400", "static v dynamic"},
        {0x10FB, "QDX4400", "block size"},
    };
    supportEverything();
    for (const case_s& row : cases) {
        modelName = row.model;
        engine_double::reset();
        engine_double::failOn("RXE_getParam", static_cast<int>(row.id), static_cast<RXE_API_STATUS>(77));
        std::vector<std::string> tokens{"configrxe", "custom"};
        std::string reply;
        EXPECT_EQ(configRXEHandler(&tokens, &reply), 0);
        EXPECT_EQ(reply, std::string("Failure: error getting ") + row.what);
        EXPECT_EQ(engine_double::calls().back().id, row.id);
    }
}

TEST(RxeConfigJson, SingleItemsKnowTheirIds) {
    struct case_s {
        int (*get)(std::string*, json*, int);
        int first, last;
        const char* what;
    };
    const case_s cases[] = {
        {getChannel, 0, 127, "channel"}, {getSelect, 1, 32, "select"},    {getInventory, 1, 255, "inventory"},
        {getAccess, 1, 63, "access"},    {getIDFilter, 1, 234, "filter"}, {getEnabledOlio, 0, 1023, "olio"},
    };
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
    // One olio alone shows what its masks stand for, a challenge among its selects.
    writeEverything();
    setOlio(9, 1, 1, 1, 1, 1, 100, 1, 255, 0, 0);
    std::string reply;
    json out;
    ASSERT_EQ(getEnabledOlio(&reply, &out, 9), 0);
    EXPECT_EQ(out["olios"][0]["selects"][0]["cryptoSuiteIndex"], 3);
    EXPECT_EQ(out["olios"][0]["inventory"]["queryConfig"]["session"], "s2");
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
    engine_double::failOn("RXE_getParam", -1, static_cast<RXE_API_STATUS>(77));
    EXPECT_NE(getPeakThreshold(&reply, &out), 0);
    EXPECT_EQ(reply, "Failure: error getting peak threshold");
    EXPECT_NE(getMonoOrCOM(&reply, &out), 0);
    EXPECT_EQ(reply, "Failure: error getting Monopulse or COM value");
}

}  // namespace
