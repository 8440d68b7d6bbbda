// SPDX-License-Identifier: MIT
// The document of the engine's state: a full configuration (rxe_documents.json)
// against what was written, what each model leaves out, and every failure on the way.
#include <gtest/gtest.h>

#include <array>
#include <nlohmann/json.hpp>

#include "configrxe.hpp"
#include "engine_io/channels.hpp"
#include "engine_io/olios.hpp"
#include "engine_io/operations.hpp"
#include "engine_io/parameters.hpp"
#include "reader_facts.hpp"
#include "support/engine_double.hpp"
#include "support/temp_dir.hpp"

namespace {

using nlohmann::json;

json document() {
    std::string reply;
    EXPECT_EQ(getFullCustomConfig(&reply), 0) << reply;
    return json::parse(reply);
}

// What rxe_documents.json has under this key.
json shown(const char* key) {
    return json::parse(readTextFile(TARNWICK_SOURCE_DIR "/tests/unit/rxe_documents.json")).at(key);
}

void supportEverything() {
    readerFacts.rssiFilterSupported = readerFacts.dynamicRangeSupported = readerFacts.cableLossSupported =
        readerFacts.txDelayIntervalSupported = true;
    readerFacts.max_ants = 2;
}

void writeEverything() {
    const std::uint8_t mask[] = {0xA1, 0xB2, 0xC0};
    const std::uint16_t words[] = {0x1234, 0xABCD};
    readerFacts.rxe_max_tx_pwr_x_10 = 300;
    setSelect(32, {1, 1, 7, 1, 32, 18, 0, 0, {0xA1, 0xB2, 0xC0}});
    setInvParams(255, 1, 3, 2, 1, 4);
    setAccessRead(63, 1, 3, 1, 2);
    setAccessMultiWordWrite(2, 1, 3, 5, 2, words);
    setAccessLock(3, 1, 0x802);
    setOlio(1, {1, 0, 2, 3, 2, 0, 500, 255, 0x80000000, 255, {}, 0x8000000000000001, 201, {}});
    setOlio(2, {1, 0, 4, 4, 0x82, 0, 50, 100, 0, 255, {}, 0, 0, {}});
    setOlio(4, {1, 0, 4, 4, 1, 0, 1, 100, 0, 255, {}, 0, 0, {}});  // behind a disabled one: not seen
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
    engine_double::setRecord(0x20, std::uint32_t{1U << 5});
    engine_double::setRecord(0x3F, std::uint32_t{1U << 30 | 1U << 31});
    // enable 2, the length wanted, not at once, suite 3, 12 bits, and behind them
    // a byte that does not count.
    engine_double::setRecord(0x101, std::array<std::uint8_t, sizeof(SELECT_OP_s)>{2, 1, 0, 3, 12, 0, 0, 0, 0,
                                                                                  0, 0xAB, 0xC0, 0xFF});
}

TEST(RxeConfigJson, TheDocumentShowsWhatWasWritten) {
    supportEverything();
    setModelName("PN8200");
    writeEverything();
    const json expected = shown("document");
    EXPECT_EQ(document(), expected) << json::diff(document(), expected);
}

TEST(RxeConfigJson, EachModelAndFirmwareShowsWhatItHas) {
    writeEverything();
    json expected = document();
    EXPECT_FALSE(expected.contains("rssiDetectFilter"));
    for (const char* key : {"txDelayInterval", "delayAfterSelects", "dynamicRange", "cableLoss", "aarHeight",
                            "tagHeight", "staticVDynamic"}) {
        EXPECT_EQ(expected[key], "not supported") << key;
    }
    supportEverything();
    setTxDelayInterval(0, 40);
    setDynamicRange(3);
    setModelName("QDX4400");
    expected.update(json::parse(R"({"txDelayInterval": "disabled", "dynamicRange": "UNKNOWN",
        "cableLoss": [{"antenna": 1, "cableLoss": 0.0}, {"antenna": 2, "cableLoss": 1.5}], "aarHeight": 15.5,
        "tagHeight": 3.0, "staticVDynamic": 9, "rssiDetectFilter": -70})"));
    EXPECT_EQ(document(), expected);
    setModelName("PN5100-ASIC");
    EXPECT_EQ(document()["delayAfterSelects"], 3000);
}

TEST(RxeConfigJson, AFailedReadIsTheWholeReply) {
    // By model, the parameter that cannot be read and what is told of it.
    const std::pair<const char*, std::vector<std::pair<int, std::string>>> cases[] = {
        {"PN8200",
         {{0x401, "olio"},
          {0x120, "select"},
          {0x2ff, "inventory"},
          {0x33f, "access"},
          {0x15, "radio stop condition"},
          {0x3f, "packet bitmask"},
          {0x9, "custom fields"},
          {0x885, "hopPerRound"},
          {0x886, "hopPerOlio"},
          {0x87f, "channel"},
          {0x10ff, "tagReportInterval"},
          {0xd001, "gpioDirections"},
          {0xd005, "gpioStart"},
          {0x10ea, "filter"},
          {0x10fe, "rssi detect filter"},
          {0x10f3, "txDelayInterval"},
          {0x10f5, "delayAfterSelects"},
          {0x888, "dynamic range"},
          {0x1202, "cable loss"},
          {0x10fb, "block size"}}},
        {"PN5100", {{0x5, "radio stop condition"}, {0xd003, "gpioStart"}}},
        {"QDX4400", {{0x10ee, "aar height"}, {0x10ef, "tag height"}, {0x10ed, "static v dynamic"}}}};
    supportEverything();
    for (const auto& [model, reads] : cases) {
        setModelName(model);
        for (const auto& [id, what] : reads) {
            engine_double::reset();
            engine_double::failOn("RXE_getParam", id);
            std::string reply;
            EXPECT_NE(getFullCustomConfig(&reply), 0);
            EXPECT_EQ(reply, "Failure: error getting " + what);
            EXPECT_EQ(engine_double::calls().back().id, static_cast<unsigned>(id));
        }
    }
}

// Its masks stand for what the engine holds: a challenge among the selects, and of
// the accesses the lower 32.
TEST(RxeConfigJson, OneOlioAloneShowsWhatItsMasksStandFor) {
    writeEverything();
    setSelect(3, {1, 4, 1, 2, 32, 12, 0, 0, {0xA1, 0xB0}});
    setInvParams(2, 1, 2, 1, 2, 7);
    setOlio(9, {1, 0, 2, 0xFFF3, 6, 0, 250, 300, 5, 2, {}, 0xFFFFFFFF00000002, 201, {}});
    std::string reply;
    json out;
    ASSERT_EQ(getEnabledOlio(&reply, &out, 9), 0);
    EXPECT_EQ(out["olios"], json::array({shown("olio")}));
    const std::pair<int, std::string> failures[] = {
        {0x202, "inventory"}, {0x103, "select"}, {0x302, "access"}};
    for (const auto& [id, what] : failures) {
        engine_double::reset();
        setOlio(9, {1, 0, 2, 2, 6, 0, 250, 300, 5, 2, {}, 2, 201, {}});
        engine_double::failOn("RXE_getParam", id);
        EXPECT_NE(getEnabledOlio(&reply, &out, 9), 0);
        EXPECT_EQ(reply, "Failure: error getting " + what);
    }
    EXPECT_NE(getEnabledOlio(&reply, &out, 1024), 0);
    EXPECT_EQ(reply, "Failure: olio id not supported");
    EXPECT_NE(getSelect(&reply, &out, 33), 0);
    EXPECT_EQ(reply, "Failure: select id not supported");
}

TEST(RxeConfigJson, MonopulseOrCentreOfMassStandsAlone) {
    std::string reply;
    json out;
    const char* texts[] = {"monopulse for az and el", "monopulse for el/COM and az",
                           "monopulse for az/COM and el", "COM for az and el", "4 (unkonwn)"};
    for (int value = 0; value < 5; ++value) {
        setMonoOrCOM(value);
        EXPECT_EQ(getMonoOrCOM(&reply, &out), 0);
        EXPECT_EQ(out["monoOrCom"], texts[value]);
    }
}

}  // namespace
