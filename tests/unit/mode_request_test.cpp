// SPDX-License-Identifier: MIT
// A mode request as a whole: the rules between its keys, what a refusal leaves
// behind, the saved request, and input that is out to do harm. And what good requests
// store where no rendering shows it: the engine's pools and masks, values at their
// bounds, and what is taken though it looks wrong.
#include <malloc.h>

#include "additional_config.hpp"
#include "logger.hpp"
#include "mode_request_fixture.hpp"
#include "support/lists.hpp"

namespace {

using u32s = std::vector<std::uint32_t>;

const std::string selects = simple("'antennas':[1,2],'selects':[@]");
const std::string accesses = simple("'antennas':[1,2],'accesses':[@]");

std::string select(const std::string& pointer = "32", const std::string& more = "") {
    return "{'target':'S1','action':'INVA_INVB','membank':'EPC','length':16,'mask':'aB01','pointer':" +
           pointer + more + "}";
}
std::string write(const std::string& keys) {
    return "{'type':'WRITE','config':{'membank':'EPC','wordPointer':2," + keys + "}}";
}
std::string lock(const std::string& actions) {
    return "{'type':'LOCK','config':{'actions':[" + actions + "]}}";
}

const std::string noJson = "mode request does not contain a valid json object: Received: ";

std::string nested(std::size_t depth) {
    return std::string(depth, '[') + std::string(depth, ']');
}

TEST_F(ModeRequestTest, GoodRulesBetweenKeys) {
    become(pn51);
    take("{'mode':'simple','x':[1],'mode':'conveyor'}");
    EXPECT_EQ(m.modeTypeName, "CONVEYOR");
    take("{'type':'INVENTORY','interval':{'unit':'hours','value':2}}");
    EXPECT_EQ(m.reportFilter.duration, 7200U);
    take("{'type':'PORTAL','startTrigger':{'port':257,'signal':'HIGH'},'stopInterval':65538}");
    EXPECT_EQ(m.radioStopConditions.noMoreUniqueTags, 2);
    EXPECT_EQ(m.radioStartConditions.gpis, (std::vector<gpi_s>{{1, 1, 0}}));
}

TEST_F(ModeRequestTest, AModeThatTheEngineRefusesLeavesTheOldOne) {
    const auto callsOf = [this](const std::string& mode) {
        engine_double::clearCalls();
        take(mode);
        std::vector<std::string> calls;
        std::ranges::transform(engine_double::calls(), std::back_inserter(calls), engine_double::describe);
        return calls;
    };
    become(pn51);
    const std::vector<std::string> calls = callsOf(goodRequest);
    const std::string mode = ask("verbose");
    const std::string saved = savedRequest();
    engine_double::failOn("RXE_setParam2", 0x402, static_cast<RXE_API_STATUS>(0x4D));
    EXPECT_EQ(ask(simple("'linkProfile':201")), "Failure: Failed to set olio 2 error 0x004d");
    EXPECT_EQ(ask("verbose"), mode);
    EXPECT_EQ(savedRequest(), saved);
    engine_double::failOn("RXE_setParam2", 0x402, RXE_OK);
    EXPECT_EQ(callsOf(goodRequest), calls) << "from the baseline again";
}

TEST_F(ModeRequestTest, TheRequestIsSavedSortedAndIndented) {
    become(pn51);
    take(typed("SIMPLE", "'antennas':[1],'unknown':'é'"));
    EXPECT_EQ(
        savedRequest(),
        quoted("{\n    'mode': {\n        'antennas': [\n            1\n        ],\n"
               "        'linkProfile': 201,\n        'type': 'SIMPLE',\n        'unknown': 'é'\n    }\n}"));
    std::filesystem::remove("mode_config.json");
    std::filesystem::create_directory("mode_config.json");  // cannot be written
    take(goodRequest);
    EXPECT_THAT(ask("as_set"), testing::StartsWith("Failure: "));
    EXPECT_EQ(initialRXEConfiguration(), RXE_OK);
    EXPECT_EQ(m.modeTypeName, "SIMPLE");
}

// A file that does not hold a mode of this reader costs a warning, one that is no
// JSON a log line; the reader then starts with the default, and keeps the file.
TEST_F(ModeRequestTest, StartingModeComesFromTheFile) {
    const std::string noJsonLine = " Error parsing mode_config.json. Using Default configuration (";
    const std::string badLine = " Error with mode_config.json file. Using Default configuration (Failure: ";
    const std::string defaultLine = " Initial Config: {'type':'SIMPLE'}";
    const std::tuple<std::string, const char*, unsigned, std::string> files[] = {
        {"{'mode':{'type':'CUSTOM','linkProfile':201}}", "CUSTOM", 0, " Initial Config: "},
        {"{'mode':{'type'", "SIMPLE", 0, noJsonLine},
        {"", "SIMPLE", 0, noJsonLine},
        {"{'mode':{'type':'CUSTOM','x':'\xFF'}}", "SIMPLE", 0, noJsonLine},
        {"{'mode':" + nested(100'000) + "}", "SIMPLE", 0, noJsonLine},
        {"[1]", "SIMPLE", 0, defaultLine},
        {"{'type':'CUSTOM'}", "SIMPLE", 0, defaultLine},
        {"{'mode':5}", "SIMPLE", 1, badLine + "'type' must be included in object)"},
        {"{'mode':{'type':'BEARING'}}", "SIMPLE", 1,
         badLine + "BEARING operating mode type can only be used on the QDX4400)"}};
    become(pn51);
    configureLogs(true, false);
    for (const auto& [content, type, newWarnings, line] : files) {
        SCOPED_TRACE(content.substr(0, 100));
        writeTextFile("mode_config.json", quoted(content));
        std::filesystem::remove("mode_config.json.refused");
        mode_configuration.modeTypeName = "none";
        const auto warnings = getWarningCount();
        testing::internal::CaptureStdout();
        EXPECT_EQ(initialRXEConfiguration(), RXE_OK);
        EXPECT_THAT(testing::internal::GetCapturedStdout(), testing::HasSubstr(quoted(line)));
        EXPECT_EQ(m.modeTypeName, type);
        EXPECT_EQ(getWarningCount() - warnings, newWarnings);
        const bool isUsed = content.find("link") != content.npos;
        EXPECT_EQ(readTextFile("mode_config.json.refused"), isUsed ? "" : quoted(content));
    }
    // An engine that refuses the default too leaves the file to the next start.
    take(goodRequest);
    const std::string stored = savedRequest();
    engine_double::failOn("RXE_setParam2", 0x401, 77);
    EXPECT_EQ(initialRXEConfiguration(), RXE_OK);
    EXPECT_EQ(savedRequest(), stored);
    engine_double::failOn("RXE_setParam2", 0x401, RXE_OK);
    std::filesystem::remove("mode_config.json");
    EXPECT_EQ(initialRXEConfiguration(), RXE_OK);
    EXPECT_EQ(savedRequest(), quoted("{\n    'mode': {\n        'type': 'SIMPLE'\n    }\n}"));
}

TEST_F(ModeRequestTest, HostileRequestsAreAnsweredAndCostNothing) {
    const std::string megabytes(10'000'000, 'x');
    const auto x = [](const std::string& value) { return simple("'linkProfile':201,'x':" + value); };
    become(pn51);
    for (const std::string& request : {x(nested(254)), x("18446744073709551616"), x("'" + megabytes + "'"),
                                       x("'\\'" + std::string(300, '[') + "'")}) {
        take(request);
        EXPECT_THAT(ask("as_set"), testing::StartsWith("Success: "));
    }
    const std::string mode = ask("verbose");
    const auto refuseAll = [&] {
        for (const std::string& request :
             {x(nested(255)), x(nested(100'000)), std::string(100'000, '{'), x("'" + megabytes),
              x("'\xED\xA0\x80'"), x("1e999"), x("NaN"), x("-Infinity"), x("01"), x("1") + "x"}) {
            EXPECT_EQ(ask(request), quoted("Failure: " + noJson + request));
        }
        EXPECT_EQ(ask("{'type':'" + megabytes + "'}"), ask("{'type':'x'}"));
        EXPECT_EQ(ask("verbose"), mode);
    };
    refuseAll();
    // In the heap, and in large blocks of their own.
    const auto inUse = [] { return mallinfo2().uordblks + mallinfo2().hblkhd; };
    const auto before = inUse();
    refuseAll();
    EXPECT_LT(inUse(), before + 10'000);

    const std::string action = "'accesses':[{'type':'LOCK','config':{'actions':['" + megabytes + "']}}]";
    EXPECT_LT(ask(simple(action)).size(), 2000U);
}

TEST_F(ModeRequestTest, QueriesAndSelectsAreStored) {
    become(pn51);
    take(simple("'query':[{'tagPopulation':1},{},{'tagPopulation':1024},{'tagPopulation':1023}]"));
    EXPECT_EQ(m.inventoryParams, (std::vector<c1g2_info_s>{{0, 1, 0, 0}, {0, 1, 0, 10}, {0, 1, 0, 9}}));
    EXPECT_EQ(m.queryList, (std::vector<query_s>{
                               {0, 1, 0, 1, 1}, {0, 1, 0, 0, 1}, {0, 1, 0, 1024, 2}, {0, 1, 0, 1023, 3}}));
    take(framed(selects, select() + "," + select("32", ",'truncate':65541") + "," + select()));
    ASSERT_EQ(m.uniqueSelects.size(), 2U);
    EXPECT_EQ(m.selectList.at(1), (select_s{1, 0, 1, 32, 16, {0xAB, 0x01}, 65541, 2}));
    EXPECT_EQ(m.selectList.at(2).selectIndex, 1) << "a repeat is known";
    const SELECT_OP_s& second = m.uniqueSelects[1];
    EXPECT_EQ(
        (std::vector<int>{second.pointer, second.length, second.truncate, second.mask[0], second.mask[2]}),
        (std::vector<int>{32, 16, 5, 0xAB, 0}));
    take(framed(selects, "[" + select() + "],[" + select() + "]"));
    EXPECT_EQ(m.selectBitMasks, (u32s{1, 2})) << "and here it is not";
    take(framed(selects, "[" + listOf(32, select()) + "],[]"));
    EXPECT_EQ(m.selectBitMasks, (u32s{0xFFFFFFFF, 0}));

    // A flat list has no limit of its own: the repeat of a late select and the engine
    // set-up have one each.
    const auto numbered = [](int count, int repeat) {
        std::string list = select(std::to_string(repeat));
        for (int i = count; i > 0; --i) {
            list = select(std::to_string(i)) + "," + list;
        }
        return framed(selects, list);
    };
    EXPECT_EQ(ask(numbered(32, 33)), "Failure: too many select parameters requested");
    EXPECT_EQ(ask(numbered(40, 32)),
              quoted("Failure: Number of unique 'selects' objects must be less than (32)"));
    take(numbered(32, 31));
    EXPECT_EQ(m.selectList.back().selectIndex, 31);
}

TEST_F(ModeRequestTest, AccessesAreStored) {
    const std::string everyPair =
        "'PERMALOCK_USER_BANK','WRITE_LOCK_USER_BANK','PERMALOCK_TID_BANK','WRITE_UNLOCK_TID_BANK',"
        "'WRITE_LOCK_EPC_BANK','READ_WRITE_LOCK_ACCESS_PASSWORD','READ_WRITE_UNLOCK_KILL_PASSWORD'";
    become(pn51);
    take(framed(accesses, "{'type':'READ','config':{'membank':'TID','wordPointer':65535,'wordCount':255}}," +
                              write("'data':'12Ab','blockSize':4") + "," + write("'data':''") +
                              ",{'type':'ACCESS','config':{'password':'89abCDEF'}}," + lock(everyPair) +
                              ",{'type':'KILL','config':{'password':'00000001'}}"));
    const auto& list = m.accessList;
    ASSERT_EQ(list.size(), 6U);
    EXPECT_EQ(list[3].accessPassword, 0x89ABCDEF);
    EXPECT_EQ(list[4].lockPayload, 0xABCA7U);
    EXPECT_EQ(list[5].accessIndex, 6);
    EXPECT_EQ(m.blockSize, 4);
    EXPECT_EQ(m.uniqueAccesses.at(1).type, RXE_ACCESS_BLOCK_WRITE);
    EXPECT_EQ(m.uniqueAccesses.at(2).type, 0) << "nothing to write";
    EXPECT_EQ(m.reportFilter, (reportFilter_s{report_filter_type_e::NONE, 0, {}}));
    take(framed(accesses, write("'data':'" + std::string(508, 'f') + "'")));
    EXPECT_EQ(m.uniqueAccesses.at(0).wordCount, 127);
    EXPECT_EQ(m.blockSize, 0) << "of the request before";
    take(framed(accesses, "[" + listOf(33, lock("")) + "],[" + listOf(2, lock("")) + "]"));
    EXPECT_EQ(m.accessBitMasks, (std::vector<std::uint64_t>{~0ULL, 0}));
    EXPECT_EQ(m.accessListPerAntenna.at(1).at(1).accessIndex, 35);
}

TEST_F(ModeRequestTest, ConditionsReportsAndSettingsAreStored) {
    become(pn51);
    take(typed("CUSTOM", "'radioStopConditions':{'duration':1.9999}"));
    EXPECT_EQ(m.radioStopConditions.duration, 1999U);
    const std::pair<const char*, bool> addlKeys[] = {
        {"'reportFilter':{'type':'RADIO_WIDE','duration':1,'addl_keys':[]}", true},
        {"'rssiFilter':{}", true},
        {"'reportFilter':{'type':'RADIO_WIDE','duration':1,'addl_keys':1}", false}};
    for (const auto& [keys, enabled] : addlKeys) {
        take(typed("CUSTOM", keys));
        EXPECT_EQ(additional_config::isAddlKeysEnabled, enabled) << keys;
    }
    take(typed("CUSTOM", "'tagMetaData':['EPC','USER[0-254,300,4294967295]']"));
    using rows = std::vector<std::vector<memory_Access_s>>;
    EXPECT_EQ(m.readMemory, (rows{{}, {{0, 0}}, {}, {{0, 255}, {300, 1}, {4294967295, 1}}}));
    take(typed("CUSTOM", "'filter':{'value':'0Af3','match':'suffix','operation':'exclude'}"));
    EXPECT_EQ(m.tagFilter.patternLength, 2);
    EXPECT_EQ(m.tagFilter.pattern[0] << 8 | m.tagFilter.pattern[1], 0x0AF3);
    take(typed("INVENTORY", "'modeSpecificSettings':{'interval':{'unit':'days','value':49710}}"));
    EXPECT_EQ(m.reportFilter.duration, 4294944000U);
    become("PN5100-ASIC");
    take("{'type':'PORTAL','startTrigger':{'port':9,'signal':'HIGH'}}");
    EXPECT_EQ(m.radioStartConditions.gpis, (std::vector<gpi_s>{{9, 1, 0}}));
    become(qdx);
    take(typed("PORTAL_DIRECTIONALITY",
               "'modeSpecificSettings':{'aarHeight':50,'primaryBeamPolarization':'RHCP'}"));
    EXPECT_EQ(m.portalDirConfig, (portalDirConfig_s{1, 50.0, 3.0, 0, QDX_BEAM_POL_e::RHCP}));
    EXPECT_EQ(m.antennas.back(), 4613U);
}

}  // namespace
