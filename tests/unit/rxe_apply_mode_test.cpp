// SPDX-License-Identifier: MIT
// What the engine is told for a mode, and what a client hears when it refuses.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>

#include "apply/apply.hpp"
#include "engine_io/channels.hpp"
#include "logger.hpp"
#include "mode/defaults.hpp"
#include "support/engine_double.hpp"
#include "util.hpp"

namespace {

using enum filter_operation_e;
// A reader after its connection, and a mode of antennas 1 and 2.
mode_configuration_s& fresh(const char* model) {
    readerFacts = {};
    setModelName(model);
    readerFacts.regulatory_standard = "US FCC 15";
    readerFacts.max_ants = 4;
    readerFacts.rxe_max_tx_pwr_x_10 = 330;
    initial_channel_state = true;
    setDefaultMode(&mode_configuration);
    mode_configuration.antennas = {1, 2};
    mode_configuration.environment = ENVIRONMENT_PARAMS_e::NOT_USED;
    return mode_configuration;
}

void renewEngine() {
    engine_double::reset();
    EXPECT_EQ(baselineRXEConfiguration(true), RXE_OK);
    engine_double::clearCalls();
}

// All writes, "id record" each and separated by bars, but an olio as
// "olio id: tx rx stop/value power selects inventory accesses lp".
std::string writes() {
    std::string text;
    for (const auto& call : engine_double::calls()) {
        OLIO_s olio{};
        std::memcpy(&olio, call.record.data(), std::min(call.record.size(), sizeof(olio)));
        const bool isOlio = call.id > 0x400 && call.id <= 0x7FF && olio.enable != 0;
        text += isOlio
                    ? sprintfStr("olio %u: %u %x %u/%u %d %x %u %llx %u", call.id - 0x400,
                                 olio.transmitAntenna, olio.receiveAntenna, olio.stopType, olio.stopValue,
                                 olio.transmitPower, olio.selectBitMask, olio.inventoryIndex,
                                 static_cast<unsigned long long>(olio.accessBitMask), olio.linkProfileIndex)
                    : engine_double::describe(call).substr(sizeof("setParam2"));
        text += "|";
    }
    return text;
}

void giveSelects(mode_configuration_s& mode) {
    // 0xEE is beyond the length, never sent.
    const SELECT_OP_s select{1, 4, 2, 3, 0x102, 12, 0, 5, {0xA1, 0xB0, 0xEE}};
    mode.selectListPerAntenna.resize(2);
    mode.uniqueSelects = {select, select};
    mode.uniqueSelects[1].target = 0;
    mode.selectBitMasks = {2, 1};
}

ACCESS_OP_s access(std::uint8_t type) {
    const std::uint16_t count = type == RXE_ACCESS_READ ? 0x0202 : 2;
    return {1, type, {}, {{3, 0, 7}}, count, {0x1234, 0x5678}, 0, 0, 0};
}

// An access of every kind.
void giveAccesses(mode_configuration_s& mode) {
    mode.accessListPerAntenna.resize(2);
    for (const std::uint8_t type :
         {RXE_ACCESS_READ, RXE_ACCESS_WRITE, RXE_ACCESS_MULTIWORD_WRITE, RXE_ACCESS_BLOCK_WRITE,
          RXE_ACCESS_ACCESS, RXE_ACCESS_LOCK, RXE_ACCESS_KILL}) {
        mode.uniqueAccesses.push_back(access(type));
    }
    mode.accessBitMasks = {0x55, 0x2A};
}

void prefix(mode_configuration_s& mode, filter_operation_e operation, const std::string& digits) {
    mode.tagFilter.enabled = 1;
    mode.tagFilter.match = filter_match_e::PREFIX;
    mode.tagFilter.operation = operation;
    mode.tagFilter.value = digits;
}

const std::string query = "0201 01010001|";
const std::string gpis = "0005 -|d001 ff|10eb -|d003 -|";
const std::string forEver = "10ff 01000000ffffffff|";
const std::string end = gpis + forEver;
const std::string selects = "0101 0104020302010c000500a1b0|0102 0100020302010c000500a1b0|";

// Olio `id` of the antenna with the same number, as `writes` puts it.
std::string olio(int id, const std::string& rest) {
    const std::string number = std::to_string(id);
    return "olio " + number + ": " + number + " " + number + " " + rest + "|";
}
const std::string olio1 = olio(1, "129/250 270 0 1 0 201");
const std::string olio2 = olio(2, "129/250 270 0 1 0 201"), secondSelected = olio(2, "129/250 270 1 1 0 201");
const std::string selected = olio(1, "129/250 270 1 1 0 201") + secondSelected;

// Applies the mode in force: all writes behind those of the baseline.
void expectWrites(const std::string& expected) {
    SCOPED_TRACE(expected);
    renewEngine();
    EXPECT_EQ(baselineRXEConfiguration(false), RXE_OK);
    const std::string baseline = writes();
    engine_double::clearCalls();
    const auto warnings = getWarningCount();
    std::string reply;
    EXPECT_EQ(configureRXEForMode(mode_configuration, &reply), 0);
    EXPECT_EQ(reply, "Success");
    EXPECT_EQ(writes(), baseline + expected);
    EXPECT_EQ(getWarningCount() - warnings, expected.find(" 330 ") != std::string::npos ? 1U : 0U);
    EXPECT_EQ(getTxAntForOlio(1), mode_configuration.antennas[0]);
    EXPECT_EQ(toldAccesses.enabledAccessOpsPerOlio[1], rxe_intfc::olios[1].accessBitMask);
}

TEST(RxeApplyMode, OperationsAreWrittenInOrder) {
    // A start by GPI without restart, a stop without new tags, no report filter.
    mode_configuration_s& m = fresh("PN5100");
    prefix(m, INCLUDE, "3034A");
    m.radioStartConditions = {radio_start_type_e::GPI, {{2, 0, 258}}};
    m.radioStopConditions.noMoreUniqueTags = 10;
    m.reportFilter.type = report_filter_type_e::NONE;
    expectWrites("0101 010104012000100000003034|" + query + selected +
                 "0005 0000000000000af0|d001 ff|10eb -|d003 200000000201|10ff -|");

    // A prefix of 32 bytes, whose length wraps to 0; power over ethernet.
    prefix(fresh("PN5100"), EXCLUDE, std::string(64, 'F'));
    m.reportFilter = {report_filter_type_e::PER_ANTENNA, 60, {}};
    readerFacts.power_source = 2;
    readerFacts.cable_loss_compensation_x_10[1] = 50;
    m.query = {.sel = 2, .session = 3, .target = 1, .tagPopulation = 100000};
    expectWrites("0101 0101000120|0201 01010203010f|" + olio(1, "129/250 300 1 1 0 201") + secondSelected +
                 gpis + "10ff 010100003c|");

    // A flat list of selects overwrites the prefix.
    prefix(fresh("PN5100"), INCLUDE, "30");
    giveSelects(m);
    m.selectList.resize(2);
    m.delayAfterSelects = 3;
    expectWrites("0101 0101040120000800000030|" + selects + "10f5 b80b|" + query + selected + end);

    // Selects and accesses by antenna, one of a kind never written.
    giveSelects(fresh("PN5100"));
    giveAccesses(m);
    m.uniqueAccesses.resize(9, access(RXE_ACCESS_CRYPTO10));
    m.uniqueAccesses[8].enable = 0;
    m.blockSize = 4;
    m.reportFilter.duration = 0;
    expectWrites(selects + query + "0301 01010000030007000202|0302 010200000300070002|" +
                 "0303 010b000003000700020034127856|0304 0106000003000700020034127856|" +
                 "0305 01050000030007|0306 01040000030007|0307 01030000030007|0004 01000c03|10fb 04|" +
                 olio(1, "129/250 270 2 1 55 201") + "10fb 04|" + olio(2, "129/250 270 1 1 2a 201") + gpis +
                 "10ff -|");
    EXPECT_EQ(toldAccesses.accessParamsEnabledCount, 8U);
    EXPECT_EQ(toldAccesses.enabledAccessOps[1].wordCount, 0x0202);
    EXPECT_EQ(toldAccesses.enabledAccessOps[7].type, RXE_ACCESS_KILL);

    // Nothing of it is left behind.
    fresh("PN5100").antennas = {1};
    expectWrites(query + olio1 + end);
    EXPECT_EQ(toldAccesses.accessParamsEnabledCount, 0U);
    EXPECT_EQ(toldAccesses.enabledAccessOps[1].enable, 0);
    EXPECT_EQ(toldAccesses.enabledAccessOpsPerOlio[2], 0U);
}

TEST(RxeApplyMode, SettingsAreWrittenInOrder) {
    // By antenna; cable loss and the radio's ceiling.
    mode_configuration_s& m = fresh("PN5100");
    readerFacts.cable_loss_compensation_x_10[1] = 10;
    readerFacts.cable_loss_compensation_x_10[2] = 40;
    m.inventoryParams = {{0, 1, 0, 4}, {3, 2, 2, 7}};
    m.queryList = {{.inventoryParamId = 2}, {.inventoryParamId = 1}};
    m.transmitPowerX10List = {300, 300};
    m.linkProfileList = {202, 1719};
    m.antennaStopConditionList = {{antenna_stop_type_e::DURATION, 500, {}},
                                  {antenna_stop_type_e::GPI, 0, {2, 0, 30}}};
    expectWrites("0201 010100010004|0202 010103020207|" + olio(1, "2/500 310 0 2 0 202") +
                 olio(2, "6/30 330 0 1 0 1719") + end);

    // Power over ethernet under FCC; four GPIs start and stop it; all features.
    fresh("PN8200");
    readerFacts.power_source = 2;
    readerFacts.rssiFilterSupported = readerFacts.dynamicRangeSupported =
        readerFacts.txDelayIntervalSupported = true;
    readerFacts.cable_loss_compensation_x_10[1] = 50;
    m.radioStopConditions = {70000, 3, 500, 9, {{3, 1, 20}, {4, 0, 21}}};
    m.radioStartConditions = {radio_start_type_e::GPI_WITH_RESTART, {{1, 1, 5}, {4, 1, 6}}};
    m.delayBetweenAntennaCycles = {antenna_delay_type_e::NO_TAGS, 60};
    m.rssiFilter.threshold = -70;
    m.reportChannel = true;
    m.customFieldsBitMask = 0x3C41;
    expectWrites(query + olio(1, "129/250 315 0 1 0 201") + olio2 +
                 "0015 701101000300f401c40000000000140015|d001 ff|10eb 02|d005 990005000000000006|" +
                 "10f3 013c|" + forEver + "0009 413c|0004 01000403|10fe ba|");

    fresh("QDX4400");
    m.antennas = {3000, 5897};
    m.bearingConfig.enabled = 1;
    m.reportHeatmap = true;
    readerFacts.cable_loss_compensation_x_10.fill(99);
    m.transmitPowerX10 = 300;
    expectWrites(query + "10f0 -|10ec 06|olio 1: 3000 fff3 129/250 300 0 1 0 201|" +
                 "10f0 -|10ec 06|olio 2: 5897 fff5 129/250 300 0 1 0 201|" + end + "0004 01008e02|");

    fresh("QDX4400");
    m.reportFilter.addlKeys = {"antenna"};
    m.antennas = {5001};
    m.portalDirConfig = {1, 15.5, -1.0, 7, QDX_BEAM_POL_e::LHCP};
    expectWrites(query + "10f0 -|10ec 06|olio 1: 5001 fff5 129/250 330 0 1 0 201|" + gpis + "10ff -|" +
                 "10ee 9b|10ef -|10ed 07|");
}

TEST(RxeApplyMode, EachFailureHasItsCodeAndText) {
    const auto filtered = [](filter_operation_e operation) {
        return [operation](auto& m) { m.selectListPerAntenna.clear(), prefix(m, operation, "30"); };
    };
    const std::string set = "Failed to set ", error = " error 0x004d";
    const std::string all = " could not be applied to all antennas", get = "Failed to get ";
    const std::string atAntenna = " bit mask for antenna idx: 1";
    // The parameter whose write fails with 0x4D, or 0 when the mode itself is wrong; the result;
    // the reply behind "Failure: "; what the mode has beside.
    using edit_t = std::function<void(mode_configuration_s&)>;
    const edit_t asItIs = [](auto&) {};
    std::vector<std::tuple<int, int, std::string, edit_t>> cases = {
        {0, -1, "transmitPower" + all, [](auto& m) { m.transmitPowerX10List = {300}; }},
        {0, -1, "linkProfile" + all, [](auto& m) { m.linkProfileList = {201}; }},
        {0, -1, "inventory param ID" + all, [](auto& m) { m.queryList.resize(1); }},
        {0, -1, "too many select parameters requested", [](auto& m) { m.uniqueSelects.resize(33); }},
        {0, -1, "too many access parameters requested", [](auto& m) { m.uniqueAccesses.resize(65); }},
        {0, -4, set + "invParam error 0x0001", [](auto& m) { m.inventoryParams.resize(256); }},
        {0, -5, set + "access block write error 0x0001",
         [](auto& m) { m.uniqueAccesses[3].wordCount = 256; }},
        {0, -15, get + "select" + atAntenna, [](auto& m) { m.selectBitMasks = {1}; }},
        {0, -15, get + "access" + atAntenna, [](auto& m) { m.accessBitMasks = {1}; }},
        {0x101, -2, set + "select" + error, filtered(EXCLUDE)},
        {0x101, -1, set + "select" + error, filtered(INCLUDE)},
        {0x04, -12, set + "channel reporting" + error, [](auto& m) { m.reportChannel = true; }},
        {0x888, -14, set + "dynamic range" + error,
         [](auto& m) { m.environment = ENVIRONMENT_PARAMS_e::VERY_HIGH_INTERFERENCE; }},
        {0x10FE, -12, set + "rssi detect threshold 0x004d", asItIs}};
    const struct {
        int id, code;
        const char* what;
    } writes[] = {{0x102, -1, "select"},
                  {0x10f5, -1, "delayAfterSelects"},
                  {0x201, -4, "invParam"},
                  {0x301, -5, "access read"},
                  {0x302, -5, "access write"},
                  {0x303, -5, "access multiword write"},
                  {0x304, -5, "access block write"},
                  {0x305, -5, "access access"},
                  {0x306, -5, "access lock"},
                  {0x307, -5, "access kill"},
                  {0x10f0, -13, "Mono or COM to 0"},
                  {0x10ec, -14, "peak threshold to 6"},
                  {0x10fb, -16, "block size"},
                  {0x402, -5, "olio 2"},
                  {0x05, -6, "radio stop condition"},
                  {0xd001, -7, "gpio direction"},
                  {0x10eb, -6, "autorestart"},
                  {0xd003, -8, "gpio start"},
                  {0x10f3, -10, "Tx Delay Interval"},
                  {0x10ff, -10, "lastReportFilter"},
                  {0x09, -11, "customFields"},
                  {0x04, -13, "parallel rssi debug"}};
    for (const auto& [id, code, what] : writes) {
        cases.emplace_back(id, code, set + what + error, asItIs);
    }
    for (const auto& [id, code, what, edit] : cases) {
        SCOPED_TRACE(what + " by " + std::to_string(id));
        mode_configuration_s& m = fresh("QDX4400");  // and a mode that needs every call
        readerFacts.rssiFilterSupported = readerFacts.dynamicRangeSupported =
            readerFacts.txDelayIntervalSupported = true;
        m.antennas = {3000, 5897};
        m.bearingConfig.enabled = 1;
        giveSelects(m);
        m.delayAfterSelects = 3;
        m.blockSize = 4;
        m.customFieldsBitMask = 0x3C41;
        m.reportHeatmap = true;
        giveAccesses(m);
        edit(m);
        renewEngine();
        engine_double::failOn("RXE_setParam2", id, 0x4D);
        const auto errors = getErrorCount();
        std::string reply;
        EXPECT_EQ(configureRXEForMode(mode_configuration, &reply), code);
        EXPECT_EQ(reply, "Failure: " + what);
        EXPECT_EQ(getErrorCount() > errors, id != 0 || reply.ends_with("0x0001"));
    }
}

}  // namespace
