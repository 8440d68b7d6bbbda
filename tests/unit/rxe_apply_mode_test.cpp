// SPDX-License-Identifier: MIT
// What the engine is told for a mode, and what a client hears when it refuses.
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>

#include "logger.hpp"
#include "mode_config.hpp"
#include "rxe_intfc.hpp"
#include "support/engine_double.hpp"
#include "util.hpp"

namespace {

using enum filter_operation_e;
using edit_t = std::function<void(mode_configuration_s&)>;

// A reader after its connection, with a mode of antennas 1 and 2 in force.
void prepare(const std::string& model, const edit_t& edit) {
    modelName = model;
    regulatory_standard = "US FCC 15";
    max_ants = 4;
    rxe_max_tx_pwr_x_10 = 330;
    power_source = 0;
    cable_loss_compensation_x_10.fill(0);
    initial_channel_state = true;
    rssiFilterSupported = dynamicRangeSupported = txDelayIntervalSupported = false;
    setDefaultMode(&mode_configuration);
    mode_configuration.antennas = {1, 2};
    mode_configuration.environment = ENVIRONMENT_PARAMS_e::NOT_USED;
    edit(mode_configuration);
    engine_double::reset();
    EXPECT_EQ(baselineRXEConfiguration(true), RXE_OK);
    engine_double::clearCalls();
}

// All writes, "id record" each and separated by bars, but an olio as
// "olio id: tx rx stop/value power selects inventory accesses lp".
std::string writes() {
    std::string text;
    for (const auto& call : engine_double::calls()) {
        const OLIO_s olio = engine_double::recordOf<OLIO_s>(call);
        if (call.id <= 0x400 || call.id > 0x7FF || olio.enable == 0) {
            text += engine_double::describe(call).substr(sizeof("setParam2")) + "|";
            continue;
        }
        char line[128];
        std::snprintf(line, sizeof(line), "olio %u: %u %x %u/%u %d %x %u %llx %u|", call.id - 0x400,
                      olio.transmitAntenna, olio.receiveAntenna, olio.stopType, olio.stopValue,
                      olio.transmitPower, olio.selectBitMask, olio.inventoryIndex,
                      static_cast<unsigned long long>(olio.accessBitMask), olio.linkProfileIndex);
        text += line;
    }
    return text;
}

SELECT_OP_s select(std::uint8_t target, std::uint8_t firstByte) {
    return {
        1, target, 2, 3, 0x102, 12, 0, 5, {firstByte, 0xB0, 0xEE}};  // 0xEE is beyond the length, never sent
}

void giveSelects(mode_configuration_s& mode) {
    mode.selectListPerAntenna.resize(2);
    mode.uniqueSelects = {select(4, 0xA1), select(0, 0xA2)};
    mode.selectBitMasks = {2, 1};
}

ACCESS_OP_s access(std::uint8_t type) {
    const std::uint16_t count = type == RXE_ACCESS_READ ? 0x0202 : 2;
    return {1, type, {}, {{3, 0, 7}}, count, {0x1234, 0x5678}, 0, 0, 0};
}

const std::vector<std::uint8_t> everyAccess{
    RXE_ACCESS_READ, RXE_ACCESS_WRITE, RXE_ACCESS_MULTIWORD_WRITE, RXE_ACCESS_BLOCK_WRITE, RXE_ACCESS_ACCESS,
    RXE_ACCESS_LOCK, RXE_ACCESS_KILL};

void giveAccesses(mode_configuration_s& mode, const std::vector<std::uint8_t>& types) {
    mode.accessListPerAntenna.assign(mode.antennas.size(), {});
    for (const std::uint8_t type : types) {
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

struct mode_case_s {
    const char* legend;
    const char* model;
    edit_t edit;         // of mode and reader facts
    std::string writes;  // all those that are not of the baseline
};

const std::string query = "0201 01010001|";
const std::string gpis = "0005 -|d001 ff|10eb -|d003 -|";
const std::string forEver = "10ff 01000000ffffffff|";
const std::string end = gpis + forEver;
const std::string select1 = "0101 0104020302010c000500a1b0|";
const std::string select2 = "0102 0100020302010c000500a2b0|";

// Olio `id` of the antenna with the same number, as `writes` puts it.
std::string olio(int id, const std::string& rest) {
    const std::string number = std::to_string(id);
    return "olio " + number + ": " + number + " " + number + " " + rest + "|";
}
const std::string olio1 = olio(1, "129/250 270 0 1 0 201");
const std::string olio2 = olio(2, "129/250 270 0 1 0 201");
const std::string firstSelect = olio(1, "129/250 270 1 1 0 201") + olio(2, "129/250 270 1 1 0 201");

const mode_case_s modes[] = {
    {"nothing but defaults", "PN5100", [](auto&) {}, query + olio1 + olio2 + end},
    {"included prefix, a start by GPI without restart, a stop without new tags, no report filter", "PN5100",
     [](auto& m) {
         prefix(m, INCLUDE, "3034A");
         m.radioStartConditions = {radio_start_type_e::GPI, {{2, 0, 258}}};
         m.radioStopConditions.noMoreUniqueTags = 10;
         m.reportFilter.type = report_filter_type_e::NONE;
     },
     "0101 010104012000100000003034|" + query + firstSelect +
         "0005 0000000000000af0|d001 ff|10eb -|d003 200000000201|10ff -|"},
    {"excluded prefix of 32 bytes, whose length wraps to 0", "PN5100",
     [](auto& m) { prefix(m, EXCLUDE, std::string(64, 'F')); },
     "0101 0101000120|" + query + firstSelect + end},
    {"flat selects overwrite the prefix, and a delay follows", "PN5100",
     [](auto& m) {
         prefix(m, INCLUDE, "30");
         m.selectList.resize(2);
         m.uniqueSelects = {select(4, 0xA1), select(0, 0xA2)};
         m.delayAfterSelects = 3;
     },
     "0101 0101040120000800000030|" + select1 + select2 + "10f5 b80b|" + query + firstSelect + end},
    {"selects by antenna, a report filter without a duration", "PN5100",
     [](auto& m) {
         m.reportFilter.duration = 0;
         giveSelects(m);
     },
     select1 + select2 + query + olio(1, "129/250 270 2 1 0 201") + olio(2, "129/250 270 1 1 0 201") + gpis +
         "10ff -|"},
    {"every kind of access, by antenna, with a block size; a kind never written", "PN5100",
     [](auto& m) {
         giveAccesses(m, everyAccess);
         m.uniqueAccesses.push_back(access(RXE_ACCESS_CRYPTO10));
         m.blockSize = 4;
     },
     query + "0301 01010000030007000202|0302 010200000300070002|0303 010b000003000700020034127856|" +
         "0304 0106000003000700020034127856|0305 01050000030007|0306 01040000030007|0307 01030000030007|" +
         "0004 01000c03|10fb 04|" + olio(1, "129/250 270 0 1 55 201") + "10fb 04|" +
         olio(2, "129/250 270 0 1 2a 201") + end},
    {"query, power, link profile and stop rule by antenna; cable loss and the radio's ceiling", "PN5100",
     [](auto& m) {
         cable_loss_compensation_x_10[1] = 10;
         cable_loss_compensation_x_10[2] = 40;
         m.inventoryParams = {{0, 1, 0, 4}, {3, 2, 2, 7}};
         m.queryList = {{.inventoryParamId = 2}, {.inventoryParamId = 1}};
         m.transmitPowerX10List = {300, 300};
         m.linkProfileList = {202, 1719};
         m.antennaStopConditionList = {{antenna_stop_type_e::DURATION, 500, {}},
                                       {antenna_stop_type_e::GPI, 0, {2, 0, 30}}};
     },
     "0201 010100010004|0202 010103020207|" + olio(1, "2/500 310 0 2 0 202") +
         olio(2, "6/30 330 0 1 0 1719") + end},
    {"power over ethernet, a query of its own, a report filter by antenna", "PN5100",
     [](auto& m) {
         m.reportFilter = {report_filter_type_e::PER_ANTENNA, 60, {}};
         power_source = 2;
         cable_loss_compensation_x_10[1] = 50;
         m.query = {.sel = 2, .session = 3, .target = 1, .tagPopulation = 100000};
     },
     "0201 01010203010f|" + olio(1, "129/250 300 0 1 0 201") + olio2 + gpis + "10ff 010100003c|"},
    {"power over ethernet on a PN8200 under FCC; four GPIs start and stop it; all features", "PN8200",
     [](auto& m) {
         power_source = 2;
         rssiFilterSupported = dynamicRangeSupported = txDelayIntervalSupported = true;
         cable_loss_compensation_x_10[1] = 50;
         m.radioStopConditions = {70000, 3, 500, 9, {{3, 1, 20}, {4, 0, 21}}};
         m.radioStartConditions = {radio_start_type_e::GPI_WITH_RESTART, {{1, 1, 5}, {4, 1, 6}}};
         m.delayBetweenAntennaCycles = {antenna_delay_type_e::NO_TAGS, 60};
         m.rssiFilter.threshold = -70;
         m.reportChannel = true;
         m.customFieldsBitMask = 0x3C41;
     },
     query + olio(1, "129/250 315 0 1 0 201") + olio2 + "0015 701101000300f401c40000000000140015|d001 ff|" +
         "10eb 02|d005 990005000000000006|10f3 013c|" + forEver + "0009 413c|0004 01000403|10fe ba|"},
    {"bearings with a heat map", "QDX4400",
     [](auto& m) {
         m.antennas = {3000, 5897};
         m.bearingConfig.enabled = 1;
         m.reportHeatmap = true;
         cable_loss_compensation_x_10.fill(99);
         m.transmitPowerX10 = 300;
     },
     query + "10f0 -|10ec 06|olio 1: 3000 fff3 129/250 300 0 1 0 201|" +
         "10f0 -|10ec 06|olio 2: 5897 fff5 129/250 300 0 1 0 201|" + end + "0004 01008e02|"},
    {"portal directionality, a report filter with keys of its own", "QDX4400",
     [](auto& m) {
         m.reportFilter.addlKeys = {"antenna"};
         m.antennas = {5001};
         m.portalDirConfig = {1, 15.5, -1.0, 7, QDX_BEAM_POL_e::LHCP};
     },
     query + "10f0 -|10ec 06|olio 1: 5001 fff5 129/250 330 0 1 0 201|" + gpis + "10ff -|" +
         "10ee 9b|10ef -|10ed 07|"},
};

TEST(RxeApplyMode, EngineSeesEachModeInOrder) {
    for (const mode_case_s& row : modes) {
        SCOPED_TRACE(row.legend);
        prepare(row.model, row.edit);
        const auto warnings = getWarningCount();
        EXPECT_EQ(baselineRXEConfiguration(false), RXE_OK);
        const std::string baseline = writes();
        engine_double::clearCalls();
        std::string reply;
        EXPECT_EQ(configureRXEForMode(&reply), 0);
        EXPECT_EQ(reply, "Success");
        EXPECT_EQ(writes(), baseline + row.writes);
        EXPECT_EQ(getWarningCount() - warnings, row.writes.find(" 330 ") != std::string::npos ? 1U : 0U);
        EXPECT_EQ(getTxAntForOlio(1), mode_configuration.antennas[0]);
        EXPECT_EQ(enabledAccessOpsPerOlio[1], olios[1].accessBitMask);
    }
}

TEST(RxeApplyMode, AccessTableIsThatOfTheModeInForce) {
    std::string reply;
    prepare("PN5100", [](auto& mode) { giveAccesses(mode, {RXE_ACCESS_READ, RXE_ACCESS_KILL}); });
    mode_configuration.uniqueAccesses[1].enable = 0;
    ASSERT_EQ(configureRXEForMode(&reply), 0);
    EXPECT_EQ(accessParamsEnabledCount, 1U);
    EXPECT_EQ(enabledAccessOps[1].wordCount, 0x0202);
    EXPECT_EQ(enabledAccessOps[2].type, RXE_ACCESS_KILL);
    EXPECT_EQ(enabledAccessOpsPerOlio[2], 0x2AU);

    prepare("PN5100", [](auto&) {});
    ASSERT_EQ(configureRXEForMode(&reply), 0);
    EXPECT_EQ(accessParamsEnabledCount, 0U);
    EXPECT_EQ(enabledAccessOps[1].enable, 0);
    EXPECT_EQ(enabledAccessOpsPerOlio[2], 0U);
}

struct failure_case_s {
    int id;            // the parameter whose write fails with 0x4D, -1 when the mode itself is wrong
    int code;          // what configureRXEForMode returns
    std::string what;  // the reply behind "Failure: "
    edit_t edit = [](auto&) {};
};

TEST(RxeApplyMode, EachFailureHasItsCodeAndText) {
    // A mode that needs every call.
    const edit_t everything = [](mode_configuration_s& mode) {
        rssiFilterSupported = dynamicRangeSupported = txDelayIntervalSupported = true;
        mode.antennas = {3000, 5897};
        mode.environment = ENVIRONMENT_PARAMS_e::NOT_USED;
        mode.bearingConfig.enabled = 1;
        giveSelects(mode);
        mode.delayAfterSelects = 3;
        mode.blockSize = 4;
        mode.customFieldsBitMask = 0x3C41;
        mode.reportHeatmap = true;
        giveAccesses(mode, everyAccess);
    };
    const auto filtered = [](filter_operation_e operation) {
        return [operation](auto& m) { m.selectListPerAntenna.clear(), prefix(m, operation, "30"); };
    };
    const std::string set = "Failed to set ", status = " 0x004d", error = " error 0x004d";
    std::vector<failure_case_s> cases = {
        {-1, -1, "transmitPower could not be applied to all antennas",
         [](auto& m) { m.transmitPowerX10List = {300}; }},
        {-1, -1, "linkProfile could not be applied to all antennas",
         [](auto& m) { m.linkProfileList = {201}; }},
        {-1, -1, "inventory param ID could not be applied to all antennas",
         [](auto& m) { m.queryList.resize(1); }},
        {-1, -1, "too many select parameters requested", [](auto& m) { m.uniqueSelects.resize(33); }},
        {-1, -1, "too many access parameters requested", [](auto& m) { m.uniqueAccesses.resize(65); }},
        {-1, -4, set + "invParam error 0x0001", [](auto& m) { m.inventoryParams.resize(256); }},
        {-1, -5, set + "access block write error 0x0001",
         [](auto& m) { m.uniqueAccesses[3].wordCount = 256; }},
        {-1, -15, "Failed to get select bit mask for antenna idx: 1",
         [](auto& m) { m.selectBitMasks = {1}; }},
        {-1, -15, "Failed to get access bit mask for antenna idx: 1",
         [](auto& m) { m.accessBitMasks = {1}; }},
        {0x101, -2, set + "select" + error, filtered(EXCLUDE)},
        {0x101, -1, set + "select" + error, filtered(INCLUDE)},
        {0x04, -12, set + "channel reporting" + error, [](auto& m) { m.reportChannel = true; }},
        {0x888, -14, set + "dynamic range" + error,
         [](auto& m) { m.environment = ENVIRONMENT_PARAMS_e::VERY_HIGH_INTERFERENCE; }},
        {0x10FE, -12, set + "rssi detect threshold" + status}};
    // "id code what" of the writes that need no edit
    const std::string writes =
        "102 -1 select,10f5 -1 delayAfterSelects,201 -4 invParam,301 -5 access read,302 -5 access "
        "write,303 -5 access multiword write,304 -5 access block write,305 -5 access access,306 -5 "
        "access lock,307 -5 access kill,10f0 -13 Mono or COM to 0,10ec -14 peak threshold to 6,10fb "
        "-16 block size,402 -5 olio 2,05 -6 radio stop condition,d001 -7 gpio direction,10eb -6 "
        "autorestart,d003 -8 gpio start,10f3 -10 Tx Delay Interval,10ff -10 lastReportFilter,09 -11 "
        "customFields,04 -13 parallel rssi debug";
    for (const std::string& row : tokenizeCommaSeparatedString(&writes)) {
        unsigned id = 0;
        int code = 0, behind = 0;
        ASSERT_EQ(std::sscanf(row.c_str(), "%x %d %n", &id, &code, &behind), 2);
        cases.push_back(
            {static_cast<int>(id), code, set + row.substr(static_cast<std::size_t>(behind)) + error});
    }
    for (const failure_case_s& row : cases) {
        SCOPED_TRACE(row.what + " by " + std::to_string(row.id));
        prepare("QDX4400", [&](mode_configuration_s& mode) {
            everything(mode);
            row.edit(mode);
        });
        if (row.id >= 0) {
            engine_double::failOn("RXE_setParam2", row.id, static_cast<RXE_API_STATUS>(0x4D));
        }
        const auto errors = getErrorCount();
        std::string reply;
        EXPECT_EQ(configureRXEForMode(&reply), row.code);
        EXPECT_EQ(reply, "Failure: " + row.what);
        EXPECT_EQ(getErrorCount() > errors, row.id >= 0 || reply.ends_with("0x0001"));
    }
}

}  // namespace
