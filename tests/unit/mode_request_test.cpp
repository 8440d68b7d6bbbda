// SPDX-License-Identifier: MIT
// A mode request as a whole: the rules between its keys, what a refusal leaves
// behind, the saved request, and input that is out to do harm.
#include <malloc.h>

#include "logger.hpp"
#include "mode_request_fixture.hpp"
#include "requests.hpp"

namespace {

const std::string noJson = "mode request does not contain a valid json object: Received: ";

const std::string prefix = "'filter':{'value':'E2','match':'prefix','operation':'include'}";
const std::string tidFilter = "'reportFilter':{'type':'RADIO_WIDE','duration':5,'addl_keys':['TID']}";
const std::string inventory = "{'type':'INVENTORY',@}";
const std::string portal = "{'type':'PORTAL',@}";

std::string nested(std::size_t depth) {
    return std::string(depth, '[') + std::string(depth, ']');
}

TEST_F(ModeRequestTest, GoodRulesBetweenKeys) {
    expectTaken(
        pn51, "@",
        {{"{'mode':'simple','x':[1],'mode':'conveyor'}",
          [](auto& m) { return m.modeTypeName == "CONVEYOR"; }},
         {simple(prefix), [](auto& m) { return m.query == query_s{.session = 1, .target = 1}; }},
         {simple(tidFilter + ",'tagMetaData':['TID','PC','CRC']"),
          [](auto& m) { return m.reportFilter.addlKeys.at(0) == "TID"; }},
         {framed(inventory, "'interval':{'unit':'hours','value':2}"),
          [](auto& m) { return m.reportFilter.duration == 7200; }},
         {framed(portal, "'startTrigger':{'port':2,'signal':'HIGH'},'stopInterval':65538"), [](auto& m) {
              return m.portalConfig.stopInterval == 2 && m.radioStopConditions.noMoreUniqueTags == 2 &&
                     m.radioStartConditions ==
                         radioStartConditions_s{radio_start_type_e::GPI_WITH_RESTART, {{2, 1, 0}}};
          }}});
}

TEST_F(ModeRequestTest, AModeThatTheEngineRefusesLeavesTheOldOne) {
    become(pn51);
    const std::string mode = ask("verbose");
    const std::string saved = savedRequest();
    engine_double::failOn("RXE_setParam2", 0x402, static_cast<RXE_API_STATUS>(0x4D));
    EXPECT_EQ(ask(simple("'linkProfile':201")), "Failure: Failed to set olio 2 error 0x004d");
    EXPECT_EQ(ask("verbose"), mode);
    EXPECT_EQ(savedRequest(), saved);

    engine_double::reset();
    EXPECT_EQ(ask(goodRequest), "Success");
    EXPECT_EQ(engine_double::describe(engine_double::calls().at(0)), "setParam2 0400 -");
}

TEST_F(ModeRequestTest, TheRequestIsSavedSortedAndIndented) {
    become(pn51);
    EXPECT_EQ(ask("{'type':'SIMPLE','linkProfile':201,'antennas':[1],'unknown':'é'}"), "Success");
    EXPECT_EQ(
        savedRequest(),
        quoted("{\n    'mode': {\n        'antennas': [\n            1\n        ],\n"
               "        'linkProfile': 201,\n        'type': 'SIMPLE',\n        'unknown': 'é'\n    }\n}"));
    std::filesystem::remove("mode_config.json");
    std::filesystem::create_directory("mode_config.json");  // cannot be written
    EXPECT_EQ(ask(goodRequest), "Success");
    EXPECT_THAT(ask("as_set"), testing::StartsWith("Failure: "));
    EXPECT_EQ(initialRXEConfiguration(), RXE_OK);
    EXPECT_EQ(mode_configuration.modeTypeName, "SIMPLE");
}

TEST_F(ModeRequestTest, BlanksAreLostOnTheWayFromTheClient) {
    become(pn51);
    std::string request =
        quoted("mode  {'type': 'SIMPLE',\n'tagMetaData': [ {'userDefined': 'dock no 4'} ] }");
    std::string reply;
    EXPECT_EQ(ProcessRequest(&request, &reply), 0);
    EXPECT_EQ(reply, "Success");
    EXPECT_EQ(mode_configuration.userDefined, "dockno4");
}

// A file that does not hold a mode of this reader costs a warning, one that is no
// JSON a log line; the reader then starts with the default.
TEST_F(ModeRequestTest, StartingModeComesFromTheFile) {
    const std::string noJsonLine = " Error parsing mode_config.json. Using Default configuration (";
    const std::string badLine = " Error with mode_config.json file. Using Default configuration (Failure: ";
    const std::string defaultLine = " Initial Config: {'type':'SIMPLE'}";
    struct {
        const char* legend;
        std::string content;
        const char* type;
        unsigned warnings;
        std::string line;
    } const files[] = {
        {"good", "{'mode':{'type':'CUSTOM','linkProfile':201}}", "CUSTOM", 0, " Initial Config: "},
        {"empty", "", "SIMPLE", 0, noJsonLine},
        {"cut", "{'mode':{'type'", "SIMPLE", 0, noJsonLine},
        {"invalid UTF-8", "{'mode':{'type':'CUSTOM','x':'\xFF'}}", "SIMPLE", 0, noJsonLine},
        {"too deep", "{'mode':" + nested(100'000) + "}", "SIMPLE", 0, noJsonLine},
        {"no object", "[1]", "SIMPLE", 0, defaultLine},
        {"no mode", "{'type':'CUSTOM'}", "SIMPLE", 0, defaultLine},
        {"no request", "{'mode':5}", "SIMPLE", 1, badLine + "'type' must be included in object)"},
        {"of another reader", "{'mode':{'type':'BEARING'}}", "SIMPLE", 1,
         badLine + "BEARING operating mode type can only be used on the QDX4400)"},
    };
    become(pn51);
    configureLogs(true, false);
    for (const auto& file : files) {
        SCOPED_TRACE(file.legend);
        writeTextFile("mode_config.json", quoted(file.content));
        mode_configuration.modeTypeName = "none";
        const auto warnings = getWarningCount();
        testing::internal::CaptureStdout();
        EXPECT_EQ(initialRXEConfiguration(), RXE_OK);
        EXPECT_THAT(testing::internal::GetCapturedStdout(), testing::HasSubstr(quoted(file.line)));
        EXPECT_EQ(mode_configuration.modeTypeName, file.type);
        EXPECT_EQ(getWarningCount() - warnings, file.warnings);
    }
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
        EXPECT_EQ(ask(request), "Success");
        EXPECT_THAT(ask("as_set"), testing::StartsWith("Success: "));
    }
    const std::string mode = ask("verbose");
    const auto refuseAll = [&] {
        for (const std::string& request :
             {x(nested(255)), x(nested(100'000)), std::string(100'000, '['), std::string(100'000, '{'),
              x("1e999"), x("'\xC3\x28'"), x("'\xED\xA0\x80'"), x("NaN"), x("-Infinity"), x("01"),
              x("1") + "x"}) {
            EXPECT_EQ(ask(request), quoted("Failure: " + noJson + request));
        }
        EXPECT_EQ(ask("{'type':'" + megabytes + "'}"), ask("{'type':'x'}"));
        EXPECT_EQ(ask(simple("'query':{'tagPopulation':18446744073709551616}")),
                  quoted("Failure: 'tagPopulation' field must contain an unsigned integer"));
        EXPECT_EQ(ask("verbose"), mode);
    };
    refuseAll();
    const auto before = mallinfo2().uordblks;
    refuseAll();
    EXPECT_LT(mallinfo2().uordblks, before + 10'000);

    const std::string action = "'accesses':[{'type':'LOCK','config':{'actions':['" + megabytes + "']}}]";
    EXPECT_LT(ask(simple(action)).size(), 2000U);
}

}  // namespace
