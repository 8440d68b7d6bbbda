// SPDX-License-Identifier: MIT
// The keys that say when the radio starts, stops and moves on, and what is
// reported: every failure a client can hear of, and what good ones store.
#include <gmock/gmock.h>

#include <chrono>

#include "additional_config.hpp"
#include "filter_expression.hpp"
#include "mode_request_fixture.hpp"

namespace {

// Frames.
std::string typed(const std::string& type, const std::string& key) {
    return "{'type':'" + type + "','linkProfile':201,'" + key + "':@}";
}
std::string settings(const std::string& type) {
    return typed(type, "modeSpecificSettings");
}
const std::string antennaStop = typed("CUSTOM", "antennaStopCondition");
const std::string gpiStop = framed(antennaStop, "{'type':'GPI','value':@}");
const std::string start = typed("CUSTOM", "radioStartConditions");
const std::string stop = typed("CUSTOM", "radioStopConditions");
const std::string delay = typed("CUSTOM", "delayBetweenAntennaCycles");
const std::string interval = framed(settings("INVENTORY"), "{'interval':@}");
const std::string trigger = framed(settings("PORTAL"), "{'startTrigger':@}");
const std::string metadata = typed("CUSTOM", "tagMetaData");
const std::string reportFilter = typed("CUSTOM", "reportFilter");
const std::string filter = typed("CUSTOM", "filter");

std::string filterOf(const std::string& value, const std::string& match, const std::string& operation) {
    return "{'value':'" + value + "','match':'" + match + "','operation':'" + operation + "'}";
}

TEST_F(ModeRequestTest, ConditionsAreRefused) {
    const std::string twice = "Each port can only be added a single time. 2 has been added more than once";
    const std::string twoRules = "'gpis':[{'port':2,'signal':'LOW'},{'port':2,'signal':'HIGH'}]}";
    const std::string stopTypes = "DURATION, INVENTORY_COUNT, SINGLE_INVENTORY_LIMITED_DURATION, GPI";
    expectRefused(pn51, antennaStop,
                  {{"5", "'antennaStopCondition' must be either a object or an array of objects"},
                   {"[5]", "mode json payload mode 'antennaStopCondition' must have an object value"},
                   {"{}", missing("type")},
                   {"{'type':'gpi'}", oneOf("type", stopTypes)},
                   {"{'type':'DURATION'}", missing("value")},
                   {"{'type':'DURATION','value':65536}", outOf("value", "0 and 65535")},
                   {"{'type':'GPI'}", "mode json payload mode type GPI must also contain a GPI object value"},
                   {"{'type':'GPI','value':1}", "json payload 'gpi' must have an object value"},
                   {"{'type':'GPI','value':{}}", missing("port")}});
    for (const char* model : {pn51, qdx}) {
        expectRefused(model, gpiStop, {{"{'port':3}", outOf("port", "1 and 2")}});
    }
    expectRefused(pn51, gpiStop,
                  {{"{'port':0}", outOf("port", "1 and 2")},
                   {"{'port':1}", missing("signal")},
                   {"{'port':1,'signal':'UP'}", oneOf("signal", "HIGH, LOW")}});
    expectRefused(pn51, start, {{"{'type':'GPI'}", missing("gpis")}, {"{'type':'GPI'," + twoRules, twice}});
    expectRefused(pn51, stop,
                  {{"{'tagCount':57345}", outOf("tagCount", "0 and 57344")},
                   {"{'tagCount':1,'durationAfterNoMoreUniqueTags':1}",
                    "'tagCount' and 'durationAfterNoMoreUniqueTags' cannot both have non-zero values"},
                   {"{" + twoRules, twice}});
    const std::string ifType = "if delayBetweenAntennaCycles type is ";
    expectRefused(pn51, delay,
                  {{"{'type':'DISABLED','duration':1}", ifType + "DISABLED, the duration must be 0"},
                   {"{'type':'NO_UNIQUE_TAGS','duration':0}",
                    ifType + "not DISABLED, the duration must be greater than 0"},
                   {"{'type':'NO_UNIQUE_TAGS','duration':1}",
                    "in delayBetweenAntennaCycles, NO_UNIQUE_TAGS type cannot be used with a PN5100"}});
    expectRefused(pn51, typed("CUSTOM", "delayAfterSelects"),
                  {{"66", outOf("delayAfterSelects", "0 and 65")}});
}

TEST_F(ModeRequestTest, SettingsOfAModeTypeAreRefused) {
    for (const char* type : {"SIMPLE", "CONVEYOR"}) {
        expectRefused(pn51, settings(type),
                      {{"{}", "'" + std::string(type) + "' does not accept a 'modeSpecificSettings'"}});
    }
    const std::string at = "mode json payload mode '";
    const std::string number = "must have an number value (and must be an unsigned integer)";
    const std::string unit = "Failure: " + at + "interval'\\'unit' must be a ";
    const std::string large = "inventory interval value/unit is too large";
    expectRefused(pn51, interval,
                  {{"1", at + "interval' must have an object value"},
                   {"{}", at + "interval' must have a subkey 'unit'"},
                   {"{'unit':1}", unit + "string"},
                   {"{'unit':'weeks'}", unit + "seconds, minutes, hours or seconds: received: weeks"},
                   {"{'unit':'days'}", at + "interval' must have a subkey 'value'"},
                   {"{'unit':'days','value':1.0}", at + "interval'\\'value' " + number},
                   {"{'unit':'minutes','value':71582789}", large},
                   {"{'unit':'hours','value':1193047}", large},
                   {"{'unit':'days','value':49711}", large}});
    const std::string signal = "Failure: " + at + "startTrigger'\\'signal' must be ";
    const std::string port = at + "startTrigger'\\'port' ";
    expectRefused(pn51, trigger,
                  {{"[]", at + "startTrigger' must have an object value"},
                   {"{}", at + "startTrigger' must have a subkey 'signal'"},
                   {"{'signal':1}", signal + "a string"},
                   {"{'signal':'high'}", signal + "HIGH or LOW: received: high"},
                   {"{'signal':'LOW'}", at + "startTrigger' must have a subkey 'port'"},
                   {"{'signal':'LOW','port':'1'}", port + number},
                   {"{'signal':'LOW','port':3}", port + "must a value be either 1 or 2"}});
    expectRefused(pn82, trigger, {{"{'signal':'LOW','port':256}", port + "must a value between 1 and 4"}});
    expectRefused(pn51, settings("PORTAL"), {{"{'stopInterval':'3'}", at + "stopInterval' " + number}});
    for (const std::string type : {"BEARING", "PORTAL_DIRECTIONALITY"}) {
        expectRefused(qdx, "{'type':'" + type + "','antennas':[5897],'modeSpecificSettings':@}",
                      {{"{'primaryBeamPolarization':'PHI'}",
                        "modeSpecificSetting for " + type +
                            " - primaryBeamPolarization - can only be used with default Antenna Settings"}});
    }
    expectRefused(qdx, settings("BEARING"),
                  {{"{'primaryBeamPolarization':'lhcp'}",
                    oneOf("primaryBeamPolarization", "TOTAL, THETA, PHI, RHCP, LHCP")}});
    expectRefused(qdx, settings("PORTAL_DIRECTIONALITY"),
                  {{"{'aarHeight':50.1}", outOf("aarHeight", "0.000000 and 50.000000")},
                   {"{'staticVDynamic':-1}", outOf("staticVDynamic", "0 and 2147483647")}});
}

TEST_F(ModeRequestTest, ReportsAreRefused) {
    const std::string keys = "{'type':'RADIO_WIDE','duration':1,'addl_keys':@}";
    expectRefused(pn51, framed(reportFilter, keys),
                  {{"['TID',1]", "all values in the addl_keys array must be strings"},
                   {"['EPC']", "addl_keys value (EPC) not supported. Supported values: (TID) "}});
    expectRefused(
        pn51, reportFilter,
        {{"{'duration':1}", missing("type")}, {"{'type':'NONE'}", oneOf("type", "RADIO_WIDE, PER_ANTENNA")}});
    const std::string rssi = typed("CUSTOM", "rssiFilter");
    expectRefused(pn51, rssi, {{"{'threshold':-129}", outOf("threshold", "-128 and 127")}});
    rssiFilterSupported = false;
    EXPECT_EQ(ask(framed(rssi, "{}")), "Failure: RSSI filter not supported");

    const std::string names = "[{'antennaPortNames':@}]";
    expectRefused(qdx, framed(metadata, names), {{"[]", "antennaPortNames cannot be used with the QDX4400"}});
    expectRefused(pn51, framed(metadata, names),
                  {{"['a','b','c']",
                    "the number of entries in the antennaPortNames must be the same length "
                    "as the number of antennas on the reader (4)."},
                   {"['a','b','c',4]", "All entries for antennaPortNames must be strings"}});
    std::vector<refused_s> rows{{"[1]",
                                 "'tagMetaData' must be an array containing only strings or "
                                 "userDefined or antennaPortNames objects"},
                                {"['HEATMAP']", "HEATMAP metadata can only be used on the QDX4400"}};
    for (const std::string word : {"", "ant", "USER[]", "USER[1-2", "USER[1]x", "USER[1]]", "USER1]",
                                   "USER [1]", "USER[0-255]", "USER[2-1]", "USER[1,]", "USER[,1]", "USER[-1]",
                                   "USER[1-]", "USER[1-2-3]", "USER[ 1]", "USER[0x1]", "USER[4294967296]"}) {
        rows.push_back({"['" + word + "']", "tagMetaData value (" + word + ") not recognized"});
    }
    expectRefused(pn51, metadata, rows);
}

TEST_F(ModeRequestTest, FiltersAreRefused) {
    const std::string at = "mode json payload mode 'filter'";
    const std::string pattern = at + "\\'value' for prefix and suffix ";
    const std::string match = at + "\\'match' ";
    expectRefused(
        pn51, filter,
        {{"[]", at + " must have an object value"},
         {"{'operation':1}", at + " must include value"},
         {"{'value':1}", at + " must include match"},
         {"{'value':1,'match':1}", at + " must include operation"},
         {"{'value':1,'match':1,'operation':1}", match + "must be a string"},
         {"{'value':'','match':1,'operation':1}", "Failure: " + match + "must be a string"},
         {"{'value':'','match':'','operation':1}", "Failure: " + at + "\\'operation' must be a string"},
         {filterOf(std::string(134, 'a'), "prefixes", "include"), match + "is too long"},
         {filterOf("x", "Prefix", "include"),
          match + "must be a must be prefix, suffix, or regex (Prefix entered)"},
         {filterOf(std::string(129, 'a'), "prefix", "include"),
          pattern + "have an even number of hex digits. It has 129 hex digits"},
         {filterOf(std::string(130, 'x'), "suffix", "include"),
          pattern + "is too long. It has 130 hex digits, The maximum is 128"},
         {filterOf("0x", "suffix", "drop"), pattern + "can only have hex digits."},
         {filterOf("(", "regex", "drop"),
          match.substr(0, match.size() - 1) + "\\'regex' value ( is not a valid regex"},
         {filterOf("(a)", "regex", "drop"),
          "tag_filter operation must be include or exclude (drop entered)"}});
}

TEST_F(ModeRequestTest, GoodConditions) {
    expectTaken(
        pn82, gpiStop,
        {{"{'port':4,'signal':'HIGH'}", [](auto& m) {
              return m.antennaStopCondition == antennaStopCondition_s{antenna_stop_type_e::GPI, 0, {4, 1, 0}};
          }}});
    expectTaken(pn51, antennaStop, {{"[]", [](auto& m) { return m.antennaStopCondition.value == 250; }}});
    expectTaken(
        pn51, start,
        {{"{'gpis':5}",
          [](auto& m) {
              return m.radioStartConditions == radioStartConditions_s{radio_start_type_e::NONE, {}};
          }},
         {"{'type':'GPI','gpis':[{'port':2,'signal':'LOW'},{'port':1,'signal':'HIGH','debounceTime':65535}]}",
          [](auto& m) {
              return m.radioStartConditions ==
                     radioStartConditions_s{radio_start_type_e::GPI, {{2, 0, 0}, {1, 1, 65535}}};
          }}});
    const auto stops = [](radioStopConditions_s conditions) {
        return [conditions](const mode_configuration_s& m) { return m.radioStopConditions == conditions; };
    };
    expectTaken(
        pn51, stop,
        {{"{'duration':1.9999,'antennaCycles':65535,'tagCount':57344}", stops({1999, 65535, 57344, 0, {}})},
         {"{'duration':1e300,'durationAfterNoMoreUniqueTags':4095}", stops({4294967295, 0, 0, 4095, {}})},
         {"{'duration':-1}", stops({})}});
    expectTaken(
        pn51, interval,
        {{"{'unit':'days','value':49710}", [](auto& m) { return m.reportFilter.duration == 4294944000U; }}});
    expectTaken(pn51, trigger, {{"{'signal':'HIGH','port':257}", [](auto& m) {
                                     return m.radioStartConditions.gpis == std::vector<gpi_s>{{1, 1, 0}};
                                 }}});
    expectTaken(qdx, settings("BEARING"), {{"{'primaryBeamPolarization':'PHI'}", [](auto& m) {
                                                return m.antennas.front() == 3897 &&
                                                       m.bearingConfig.polarization == QDX_BEAM_POL_e::PHI;
                                            }}});
    expectTaken(qdx, settings("PORTAL_DIRECTIONALITY"),
                {{"{'aarHeight':50,'primaryBeamPolarization':'RHCP'}", [](auto& m) {
                      return m.portalDirConfig == portalDirConfig_s{1, 50.0, 3.0, 0, QDX_BEAM_POL_e::RHCP} &&
                             m.antennas.back() == 4613;
                  }}});
    expectTaken(pn51, delay, {{"{}", [](auto& m) {
                                   return m.delayBetweenAntennaCycles ==
                                          delay_between_antenna_cycles_s{antenna_delay_type_e::NO_TAGS, 200};
                               }}});
}

TEST_F(ModeRequestTest, GoodReportsAndFilters) {
    expectTaken(
        pn51, reportFilter,
        {{"{'type':'RADIO_WIDE','duration':1,'addl_keys':[]}",
          [](auto&) { return isAddlKeysEnabled.load(); }},
         {"{'type':'RADIO_WIDE','duration':1,'addl_keys':1}", [](auto&) { return !isAddlKeysEnabled; }},
         {"{}", [](auto& m) {
              return m.reportFilter == reportFilter_s{report_filter_type_e::NONE, 0, {}};
          }}});
    expectTaken(pn51, typed("INVENTORY", "tagMetaData"),
                {{"[]", [](auto& m) { return !m.reportAntenna && m.customFieldsBitMask == 15361; }}});
    expectTaken(pn51, metadata,
                {{"['RSSI','PC',{'userDefined':'dock'},{'x':1},'EPC','USER[9]','USER[0-254,300,4294967295]']",
                  [](auto& m) {
                      using rows = std::vector<std::vector<memory_Access_s>>;
                      return m.customFieldsBitMask == (15361 | 0x20) && m.reportPC &&
                             m.userDefined == "dock" &&
                             m.readMemory == rows{{}, {{0, 0}}, {}, {{0, 255}, {300, 1}, {4294967295, 1}}};
                  }}});
    expectTaken(pn51, filter, {{filterOf("0Af3", "suffix", "exclude"), [](auto& m) {
                                    const tagFilter_s& f = m.tagFilter;
                                    return f.operation == filter_operation_e::EXCLUDE &&
                                           f.patternLength == 2 && f.pattern[0] == 0x0A &&
                                           f.pattern[1] == 0xF3;
                                }}});
}

// What an expression may do to the reader: the time of a match and the memory of
// a compilation have a bound.
TEST(FilterExpression, CostsAreBounded) {
    const std::string digits(124, 'a');
    const struct {
        const char* expression;
        bool compiles, matches;
    } rows[] = {
        {"a{124}", true, true},
        {"(.?){124}", true, true},
        {"(a|ab|b)+(?=)", true, true},
        {"(aa)\\1*", true, true},
        {"(a)\\1{122}b", true, false},
        {"[^\\W_]+\\b", true, true},
        {"(a*)*b", true, false},
        {"((((a|a)*)*)*)*b", true, false},
        {"(.*)(.*)(.*)(.*)(.*)(.*)(.*)(.*)\\1b", true, false},
        {"(a*)*\\1b", true, false},
        {"()\\1((z?){200}.)*", true, false},  // would take 10 MB of the stack
        {"()\\1(a?){14000}", false, false},
        {"a{9999}", true, false},
        {"(((a{100}){100}){100}){100}", false, false},
        {"a{99999}", false, false},
        {"(a)\\2", false, false},
        {"a{2,1}", false, false},
        {"[z-a]", false, false},
        {"*", false, false},
    };
    const auto begin = std::chrono::steady_clock::now();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.expression);
        const auto expression = compileFilterExpression(row.expression);
        ASSERT_EQ(expression != nullptr, row.compiles);
        if (expression != nullptr) {
            EXPECT_EQ(matchesFilterExpression(*expression, digits), row.matches);
        }
    }
    // A single one of the bad rows would take hours.
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(60));
}

}  // namespace
