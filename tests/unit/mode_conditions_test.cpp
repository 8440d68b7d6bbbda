// SPDX-License-Identifier: MIT
// The keys that say when the radio starts, stops and moves on, and what is
// reported: every failure a client can hear of, and what good ones store.
#include <gmock/gmock.h>

#include <chrono>
#include <span>

#include "additional_config.hpp"
#include "filter_expression.hpp"
#include "mode_request_fixture.hpp"

namespace {

const std::string missing = "\" must be included in object";
const std::string outOf = "\" is out of bounds. Must be between ";
const std::string words = "\" must be a string containing one of the following values: ";

std::string typed(const std::string& type, const std::string& key, const std::string& value) {
    return R"({"type":")" + type + R"(","linkProfile":201,")" + key + "\":" + value + "}";
}
std::string custom(const std::string& key, const std::string& value) {
    return typed("CUSTOM", key, value);
}
std::string antennaStop(const std::string& value) {
    return custom("antennaStopCondition", value);
}
std::string gpiStop(const std::string& rule) {
    return antennaStop(R"({"type":"GPI","value":)" + rule + "}");
}
std::string start(const std::string& value) {
    return custom("radioStartConditions", value);
}
std::string stop(const std::string& value) {
    return custom("radioStopConditions", value);
}
std::string delay(const std::string& value) {
    return custom("delayBetweenAntennaCycles", value);
}
std::string settings(const std::string& type, const std::string& value) {
    return typed(type, "modeSpecificSettings", value);
}
std::string interval(const std::string& value) {
    return settings("INVENTORY", R"({"interval":)" + value + "}");
}
std::string trigger(const std::string& value) {
    return settings("PORTAL", R"({"startTrigger":)" + value + "}");
}
std::string metadata(const std::string& value) {
    return custom("tagMetaData", value);
}
std::string reportFilter(const std::string& value) {
    return custom("reportFilter", value);
}
std::string filter(const std::string& value, const std::string& match,
                   const std::string& operation = "include") {
    return custom("filter", R"({"value":")" + value + R"(","match":")" + match + R"(","operation":")" +
                                operation + "\"}");
}

struct answer_s {
    const char* model;
    std::string request;
    std::string reply;
};
struct stored_s {
    const char* model;
    std::string request;
    std::function<void(const mode_configuration_s&)> check;
};

class ModeConditionsTest : public ModeRequestTest {
  protected:
    static void expectAnswers(std::span<const answer_s> rows) {
        constexpr std::string_view failure = "Failure: ";
        for (const answer_s& row : rows) {
            ASSERT_EQ(row.reply.substr(0, failure.size()), failure);
            expectRefused(row.model, "@", {{row.request, row.reply.substr(failure.size())}});
        }
    }
};

TEST_F(ModeConditionsTest, ConditionsAreRefused) {
    const std::string twice =
        "Failure: Each port can only be added a single time. 2 has been added more than once";
    const std::string twoRules = R"("gpis":[{"port":2,"signal":"LOW"},{"port":2,"signal":"HIGH"}]})";
    const std::string stopTypes = "DURATION, INVENTORY_COUNT, SINGLE_INVENTORY_LIMITED_DURATION, GPI";
    const answer_s rows[] = {
        {pn51, antennaStop("5"),
         "Failure: \"antennaStopCondition\" must be either a object or an array of objects"},
        {pn51, antennaStop("[5]"),
         "Failure: mode json payload mode \"antennaStopCondition\" must have an object value"},
        {pn51, antennaStop("{}"), "Failure: \"type" + missing},
        {pn51, antennaStop(R"({"type":"gpi"})"), "Failure: value provided for \"type" + words + stopTypes},
        {pn51, antennaStop(R"({"type":"DURATION"})"), "Failure: \"value" + missing},
        {pn51, antennaStop(R"({"type":"DURATION","value":65536})"),
         "Failure: value provided for \"value" + outOf + "0 and 65535."},
        {pn51, antennaStop(R"({"type":"GPI"})"),
         "Failure: mode json payload mode type GPI must also contain a GPI object value"},
        {pn51, gpiStop("1"), "Failure: json payload \"gpi\" must have an object value"},
        {pn51, gpiStop("{}"), "Failure: \"port" + missing},
        {pn51, gpiStop(R"({"port":3})"), "Failure: value provided for \"port" + outOf + "1 and 2."},
        {qdx, gpiStop(R"({"port":3})"), "Failure: value provided for \"port" + outOf + "1 and 2."},
        {pn51, gpiStop(R"({"port":0})"), "Failure: value provided for \"port" + outOf + "1 and 2."},
        {pn51, gpiStop(R"({"port":1})"), "Failure: \"signal" + missing},
        {pn51, gpiStop(R"({"port":1,"signal":"UP"})"),
         "Failure: value provided for \"signal" + words + "HIGH, LOW"},
        {pn51, gpiStop(R"({"port":1,"signal":"LOW","debounceTime":-1})"),
         "Failure: \"debounceTime\" field must contain an unsigned integer"},

        {pn51, start(R"({"type":1})"), "Failure: \"type\" field must contain a string"},
        {pn51, start(R"({"type":"GPI"})"), "Failure: \"gpis" + missing},
        {pn51, start(R"({"type":"GPI",)" + twoRules), twice},
        {pn51, stop(R"({"duration":"1"})"),
         "Failure: \"duration\" field must contain a floating point number"},
        {pn51, stop(R"({"tagCount":57345})"),
         "Failure: value provided for \"tagCount" + outOf + "0 and 57344."},
        {pn51, stop(R"({"tagCount":1,"durationAfterNoMoreUniqueTags":1})"),
         "Failure: \"tagCount\" and \"durationAfterNoMoreUniqueTags\" cannot both have non-zero values"},
        {pn51, stop(R"({"gpis":{}})"), "Failure: \"gpis\" field must contain an array of values"},
        {pn51, stop("{" + twoRules), twice},

        {pn51, delay("75"), "Failure: \"delayBetweenAntennaCycles\" field must contain an object"},
        {pn51, delay(R"({"type":"DISABLED","duration":1})"),
         "Failure: if delayBetweenAntennaCycles type is DISABLED, the duration must be 0"},
        {pn51, delay(R"({"type":"NO_UNIQUE_TAGS","duration":0})"),
         "Failure: if delayBetweenAntennaCycles type is not DISABLED, the duration must be greater than 0"},
        {pn51, delay(R"({"type":"NO_UNIQUE_TAGS","duration":1})"),
         "Failure: in delayBetweenAntennaCycles, NO_UNIQUE_TAGS type cannot be used with a PN5100"},
        {pn51, custom("delayAfterSelects", "66"),
         "Failure: value provided for \"delayAfterSelects" + outOf + "0 and 65."},
    };
    expectAnswers(rows);
}

TEST_F(ModeConditionsTest, SettingsOfAModeTypeAreRefused) {
    const std::string at = "mode json payload mode \"";
    const std::string unit = "Failure: Failure: " + at + "interval\"\\\"unit\" must be a ";
    const std::string signal = "Failure: Failure: " + at + "startTrigger\"\\\"signal\" must be ";
    const std::string port = "Failure: " + at + "startTrigger\"\\\"port\" must ";
    const std::string number = "have an number value (and must be an unsigned integer)";
    const std::string large = "Failure: inventory interval value/unit is too large";
    const std::string beam = " - primaryBeamPolarization - can only be used with default Antenna Settings";
    const answer_s rows[] = {
        {pn51, settings("CUSTOM", "[]"), "Failure: \"modeSpecificSettings\" field must contain an object"},
        {pn51, settings("SIMPLE", "{}"), "Failure: \"SIMPLE\" does not accept a \"modeSpecificSettings\""},
        {pn51, settings("CONVEYOR", "{}"),
         "Failure: \"CONVEYOR\" does not accept a \"modeSpecificSettings\""},
        {pn51, interval("1"), "Failure: " + at + "interval\" must have an object value"},
        {pn51, interval("{}"), "Failure: " + at + "interval\" must have a subkey \"unit\""},
        {pn51, interval(R"({"unit":1})"), unit + "string"},
        {pn51, interval(R"({"unit":"weeks"})"), unit + "seconds, minutes, hours or seconds: received: weeks"},
        {pn51, interval(R"({"unit":"days"})"), "Failure: " + at + "interval\" must have a subkey \"value\""},
        {pn51, interval(R"({"unit":"days","value":1.0})"),
         "Failure: " + at + "interval\"\\\"value\" must " + number},
        {pn51, interval(R"({"unit":"hours","value":1193047})"), large},
        {pn51, interval(R"({"unit":"days","value":49711})"), large},
        {pn51, trigger("[]"), "Failure: " + at + "startTrigger\" must have an object value"},
        {pn51, trigger("{}"), "Failure: " + at + "startTrigger\" must have a subkey \"signal\""},
        {pn51, trigger(R"({"signal":1})"), signal + "a string"},
        {pn51, trigger(R"({"signal":"high"})"), signal + "HIGH or LOW: received: high"},
        {pn51, trigger(R"({"signal":"LOW"})"),
         "Failure: " + at + "startTrigger\" must have a subkey \"port\""},
        {pn51, trigger(R"({"signal":"LOW","port":"1"})"), port + number},
        {pn51, trigger(R"({"signal":"LOW","port":3})"), port + "a value be either 1 or 2"},
        {pn82, trigger(R"({"signal":"LOW","port":256})"), port + "a value between 1 and 4"},
        {pn51, settings("PORTAL", R"({"stopInterval":"3"})"),
         "Failure: " + at + "stopInterval\" must " + number},
        {qdx, settings("BEARING", R"({"primaryBeamPolarization":"lhcp"})"),
         "Failure: value provided for \"primaryBeamPolarization" + words + "TOTAL, THETA, PHI, RHCP, LHCP"},
        {qdx,
         R"({"type":"BEARING","antennas":[5897],"modeSpecificSettings":{"primaryBeamPolarization":"PHI"}})",
         "Failure: modeSpecificSetting for BEARING" + beam},
        {qdx,
         R"({"type":"PORTAL_DIRECTIONALITY","antennas":[1],"modeSpecificSettings":{"primaryBeamPolarization":"PHI"}})",
         "Failure: modeSpecificSetting for PORTAL_DIRECTIONALITY" + beam},
        {qdx, settings("PORTAL_DIRECTIONALITY", R"({"aarHeight":50.1})"),
         "Failure: value provided for \"aarHeight" + outOf + "0.000000 and 50.000000."},
        {qdx, settings("PORTAL_DIRECTIONALITY", R"({"staticVDynamic":-1})"),
         "Failure: value provided for \"staticVDynamic" + outOf + "0 and 2147483647."},
    };
    expectAnswers(rows);
}

TEST_F(ModeConditionsTest, FiltersAndMetadataAreRefused) {
    const std::string at = "Failure: mode json payload mode \"filter\"";
    const std::string pattern = at + "\\\"value\" for prefix and suffix ";
    const std::string notRecognized = "Failure: tagMetaData value (";
    std::vector<answer_s> rows{
        {pn51, reportFilter("1"), "Failure: \"reportFilter\" field must contain an object"},
        {pn51, reportFilter(R"({"duration":1})"), "Failure: \"type" + missing},
        {pn51, reportFilter(R"({"type":"NONE"})"),
         "Failure: value provided for \"type" + words + "RADIO_WIDE, PER_ANTENNA"},
        {pn51, reportFilter(R"({"type":"RADIO_WIDE","duration":1,"addl_keys":["TID",1]})"),
         "Failure: all values in the addl_keys array must be strings"},
        {pn51, reportFilter(R"({"type":"RADIO_WIDE","duration":1,"addl_keys":["EPC"]})"),
         "Failure: addl_keys value (EPC) not supported. Supported values: (TID) "},
        {pn51, custom("rssiFilter", "-60"), "Failure: \"rssiFilter\" field must contain an object"},
        {pn51, custom("rssiFilter", R"({"threshold":-129})"),
         "Failure: value provided for \"threshold" + outOf + "-128 and 127."},

        {pn51, metadata("{}"), "Failure: \"tagMetaData\" field must contain an array of values"},
        {pn51, metadata("[1]"),
         "Failure: \"tagMetaData\" must be an array containing only strings or userDefined or "
         "antennaPortNames objects"},
        {pn51, metadata(R"(["HEATMAP"])"), "Failure: HEATMAP metadata can only be used on the QDX4400"},
        {pn51, metadata(R"([{"userDefined":1}])"), "Failure: \"userDefined\" field must contain a string"},
        {qdx, metadata(R"([{"antennaPortNames":[]}])"),
         "Failure: antennaPortNames cannot be used with the QDX4400"},
        {pn51, metadata(R"([{"antennaPortNames":["a","b","c"]}])"),
         "Failure: the number of entries in the antennaPortNames must be the same length as the number of "
         "antennas on "
         "the reader (4)."},
        {pn51, metadata(R"([{"antennaPortNames":["a","b","c",4]}])"),
         "Failure: All entries for antennaPortNames must be strings"},

        {pn51, custom("filter", "[]"), at + " must have an object value"},
        {pn51, custom("filter", R"({"operation":1})"), at + " must include value"},
        {pn51, custom("filter", R"({"value":1})"), at + " must include match"},
        {pn51, custom("filter", R"({"value":1,"match":1})"), at + " must include operation"},
        {pn51, custom("filter", R"({"value":1,"match":1,"operation":1})"),
         at + "\\\"match\" must be a string"},
        {pn51, custom("filter", R"({"value":"","match":1,"operation":1})"),
         "Failure: " + at + "\\\"match\" must be a string"},
        {pn51, custom("filter", R"({"value":"","match":"","operation":1})"),
         "Failure: " + at + "\\\"operation\" must be a string"},
        {pn51, filter(std::string(134, 'a'), "prefixes"), at + "\\\"match\" is too long"},
        {pn51, filter("x", "Prefix"),
         at + "\\\"match\" must be a must be prefix, suffix, or regex (Prefix entered)"},
        {pn51, filter(std::string(129, 'a'), "prefix"),
         pattern + "have an even number of hex digits. It has 129 hex digits"},
        {pn51, filter(std::string(130, 'x'), "suffix"),
         pattern + "is too long. It has 130 hex digits, The maximum is 128"},
        {pn51, filter("0x", "suffix", "drop"), pattern + "can only have hex digits."},
        {pn51, filter("(", "regex", "drop"), at + "\\\"match\"\\\"regex\" value ( is not a valid regex"},
        {pn51, filter("(a)", "regex", "drop"),
         "Failure: tag_filter operation must be include or exclude (drop entered)"},
    };
    for (const std::string word : {"", "ant", "USER[]", "USER[1-2", "USER[1]x", "USER[1]]", "USER1]",
                                   "USER [1]", "USER[0-255]", "USER[2-1]", "USER[1,]", "USER[,1]", "USER[-1]",
                                   "USER[1-]", "USER[1-2-3]", "USER[ 1]", "USER[0x1]", "USER[4294967296]"}) {
        rows.push_back({pn51, metadata("[\"" + word + "\"]"), notRecognized + word + ") not recognized"});
    }
    expectAnswers(rows);

    rssiFilterSupported = false;
    EXPECT_EQ(ask(custom("rssiFilter", "{}")), "Failure: RSSI filter not supported");
}

TEST_F(ModeConditionsTest, GoodConditionsAndFilters) {
    using testing::ElementsAre;
    using testing::IsEmpty;
    const stored_s rows[] = {
        {pn82, gpiStop(R"({"port":4,"signal":"HIGH"})"),
         [](const auto& m) {
             EXPECT_EQ(m.antennaStopCondition,
                       (antennaStopCondition_s{antenna_stop_type_e::GPI, 0, {4, 1, 0}}));
         }},
        {pn51, antennaStop("[]"), [](const auto& m) { EXPECT_EQ(m.antennaStopCondition.value, 250); }},
        {pn51, start(R"({"gpis":5})"),
         [](const auto& m) {
             EXPECT_EQ(m.radioStartConditions, (radioStartConditions_s{radio_start_type_e::NONE, {}}));
         }},
        {pn51,
         start(
             R"({"type":"GPI","gpis":[{"port":2,"signal":"LOW"},{"port":1,"signal":"HIGH","debounceTime":65535}]})"),
         [](const auto& m) {
             EXPECT_EQ(m.radioStartConditions.type, radio_start_type_e::GPI);
             EXPECT_THAT(m.radioStartConditions.gpis, ElementsAre(gpi_s{2, 0, 0}, gpi_s{1, 1, 65535}));
         }},
        {pn51, stop(R"({"duration":1.9999,"antennaCycles":65535,"tagCount":57344})"),
         [](const auto& m) {
             EXPECT_EQ(m.radioStopConditions, (radioStopConditions_s{1999, 65535, 57344, 0, {}}));
         }},
        {pn51, stop(R"({"duration":1e300,"durationAfterNoMoreUniqueTags":4095})"),
         [](const auto& m) {
             EXPECT_EQ(m.radioStopConditions, (radioStopConditions_s{4294967295, 0, 0, 4095, {}}));
         }},
        {pn51, stop(R"({"duration":-1})"),
         [](const auto& m) { EXPECT_EQ(m.radioStopConditions.duration, 0U); }},
        {pn51, interval(R"({"unit":"days","value":49710})"),
         [](const auto& m) { EXPECT_EQ(m.reportFilter.duration, 4294944000U); }},
        {pn51, trigger(R"({"signal":"HIGH","port":257})"),
         [](const auto& m) {
             EXPECT_THAT(m.radioStartConditions.gpis, ElementsAre(gpi_s{1, 1, 0}));
         }},
        {qdx, settings("BEARING", R"({"primaryBeamPolarization":"PHI"})"),
         [](const auto& m) {
             EXPECT_EQ(m.bearingConfig.polarization, QDX_BEAM_POL_e::PHI);
             EXPECT_EQ(m.antennas.front(), 3897U);
         }},
        {qdx, settings("PORTAL_DIRECTIONALITY", R"({"aarHeight":50,"primaryBeamPolarization":"RHCP"})"),
         [](const auto& m) {
             EXPECT_EQ(m.portalDirConfig, (portalDirConfig_s{1, 50.0, 3.0, 0, QDX_BEAM_POL_e::RHCP}));
             EXPECT_EQ(m.antennas.back(), 4613U);
         }},
        {pn51, delay("{}"),
         [](const auto& m) {
             EXPECT_EQ(m.delayBetweenAntennaCycles,
                       (delay_between_antenna_cycles_s{antenna_delay_type_e::NO_TAGS, 200}));
         }},
        {pn51, reportFilter(R"({"type":"RADIO_WIDE","duration":1,"addl_keys":[]})"),
         [](const auto&) { EXPECT_TRUE(isAddlKeysEnabled); }},
        {pn51, metadata("[]"), [](const auto&) { EXPECT_TRUE(isAddlKeysEnabled); }},
        {pn51, reportFilter(R"({"type":"RADIO_WIDE","duration":1,"addl_keys":1})"),
         [](const auto&) { EXPECT_FALSE(isAddlKeysEnabled); }},
        {pn51, reportFilter("{}"),
         [](const auto& m) {
             EXPECT_EQ(m.reportFilter, (reportFilter_s{report_filter_type_e::NONE, 0, {}}));
         }},
        {pn51, custom("rssiFilter", R"({"threshold":-60})"),
         [](const auto& m) { EXPECT_EQ(m.rssiFilter.threshold, -60); }},
        {pn51, typed("INVENTORY", "tagMetaData", "[]"),
         [](const auto& m) {
             EXPECT_FALSE(m.reportAntenna);
             EXPECT_EQ(m.customFieldsBitMask, 15361U);
         }},
        {pn51,
         metadata(
             R"(["RSSI","PC",{"userDefined":"dock"},{"x":1},"EPC","USER[9]","USER[0-254,300,4294967295]"])"),
         [](const auto& m) {
             EXPECT_EQ(m.customFieldsBitMask, 15361U | 0x20U);
             EXPECT_TRUE(m.reportPC);
             EXPECT_EQ(m.userDefined, "dock");
             EXPECT_THAT(m.readMemory,
                         ElementsAre(IsEmpty(), ElementsAre(memory_Access_s{0, 0}), IsEmpty(),
                                     ElementsAre(memory_Access_s{0, 255}, memory_Access_s{300, 1},
                                                 memory_Access_s{4294967295, 1})));
         }},
        {pn51, filter("0Af3", "suffix", "exclude"),
         [](const auto& m) {
             EXPECT_EQ(m.tagFilter.operation, filter_operation_e::EXCLUDE);
             EXPECT_EQ(m.tagFilter.patternLength, 2);
             EXPECT_EQ(m.tagFilter.pattern[0] * 256 + m.tagFilter.pattern[1], 0x0AF3);
         }},
    };
    for (const stored_s& row : rows) {
        expectTaken(row.model, "@", {{row.request, row.check}});
    }
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
