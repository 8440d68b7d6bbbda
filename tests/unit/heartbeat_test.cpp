// SPDX-License-Identifier: MIT
// What the process tells about itself, to the byte where bytes can be known.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "../../tarnwick/src/requests/report.hpp"
#include "logger.hpp"
#include "radio.hpp"
#include "requests.hpp"
#include "rxe_intfc.hpp"
#include "support/engine_double.hpp"

namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

std::string ask(std::string request, int expected = 0) {
    std::string reply = "left over";
    EXPECT_EQ(ProcessRequest(&request, &reply), expected);
    return reply;
}

json heartbeat() {
    std::string text;
    EXPECT_EQ(getHeartbeat(&text), 1);
    EXPECT_EQ(json::parse(text).dump(), text) << "compact, sorted";
    return json::parse(text);
}

void setReader(const char* model, std::uint16_t antennas) {
    engine_double::reset();
    modelName = model;
    max_ants = antennas;
    rxeAntennaCheckSupported = true;
    const std::uint16_t connected = 0b01;
    const std::int16_t ambient = 31;
    const std::int16_t amplifier = -4;
    engine_double::setRecord(RXE_PARAM_ANTENNA_STATE, &connected, sizeof connected);
    engine_double::setRecord(RXE_PARAM_AMB_TEMP, &ambient, sizeof ambient);
    engine_double::setRecord(RXE_PARAM_PA_TEMP, &amplifier, sizeof amplifier);
    tagReadCount = 12;
    tagReadCountPerAnt[1] = 5;
    msgTxCount = 9;
}

TEST(Heartbeat, tellsAllThatIsInTheListOfAnIdleReader) {
    setReader("PN5100", 2);
    RXE_still_connected = false;
    const json beat = heartbeat();
    EXPECT_EQ(beat["component"], "TW");
    EXPECT_EQ(beat["type"], "heartbeat");
    json data = beat["data"];
    EXPECT_EQ(data["cpuUtilization"], 0.0) << "the first";
    EXPECT_TRUE(data["ramUtilization"].is_number_float());
    EXPECT_THAT(data["uptime"].get<std::string>(), MatchesRegex("[0-9][0-9]:[0-9][0-9]:[0-9][0-9]"));
    for (const char* measured : {"cpuUtilization", "ramUtilization", "uptime"}) {
        data.erase(measured);
    }
    EXPECT_EQ(data, json::parse(R"({"numTagReads": 12, "numTagReadsPerAntenna": {"1": 5, "2": 0},
        "numRadioPacketsRxed": 0, "numDataMessagesTxed": 9, "numErrors": 0, "numWarnings": 0,
        "radioConnection": "connected", "radioActivity": "inactive",
        "temperature": {"ambient": 31, "pa": -4}, "antennas": {"1": "connected", "2": "disconnected"}})"));
}

// A radio that sends two packets a second is not asked anything.
TEST(Heartbeat, leavesABusyRadioAlone) {
    setReader("PN5100", 1);
    packetRxCount = 20;
    current_amb_temp = 44;
    current_pa_temp = 55;
    const json data = heartbeat()["data"];
    EXPECT_EQ(data["radioActivity"], "active");
    EXPECT_EQ(data["temperature"], json::parse(R"({"ambient": 44, "pa": 55})"));
    EXPECT_TRUE(engine_double::calls().empty());
    packetRxCount = 39;
    EXPECT_EQ(heartbeat()["data"]["radioActivity"], "inactive") << "nineteen in ten seconds";
    EXPECT_FALSE(engine_double::calls().empty());
}

TEST(Heartbeat, showsTheArrayReadersElementsAndOneChannelOfItsEcho) {
    setReader("QDX4400", 2);
    current_channels[0] = {.enable = 1, .reserved1 = {}, .frequency = 902750, .maxPower = 0, .reserved10 = 0};
    AAREchoResults results{};
    results.txPwrx10[13] = -15;
    engine_double::setRecord(RXE_PARAM_ECHO, &results, sizeof results);
    for (const char* legend : {"the first channel", "past the last one, so the first again"}) {
        SCOPED_TRACE(legend);
        const json data = heartbeat()["data"];
        EXPECT_EQ(data["temperature"], json::parse(R"({"ambient": 31})"));
        EXPECT_EQ(data["antennas"], json::parse(R"({"0": "connected", "1": "disconnected"})"));
        EXPECT_EQ(data["numTagReadsPerAntenna"], json::object());
        ASSERT_EQ(data["aarEcho"]["902750"].size(), 14U);
        EXPECT_EQ(data["aarEcho"]["902750"]["13"].dump(),
                  R"({"rxPwrPostEchox10":0.0,"rxPwrPreEchox10":0.0,"txPwrx10":-15.0})");
    }
    current_channels[0].enable = 0;
    EXPECT_EQ(ask("status aarEcho"), "Success: {\"aarEcho\": {}}");
    EXPECT_THAT(ask("status temperature"), "Success: {\"temperature\": {\"ambient\":31}}");
}

TEST(Status, answersInItsOwnFormat) {
    setReader("PN5100", 2);
    RXE_still_connected = true;
    EXPECT_THAT(
        ask("status"),
        MatchesRegex("Success: \\{\"numTagReads\": 12,\"numTagReadsPerAntenna\": \\{\"1\": 5,\"2\": 0\\},"
                     "\"numRadioPacketsRxed\": 0,\"numDataMessagesTxed\": 9,\"cpuUtilization\": 0\\.0,"
                     "\"ramUtilization\": [0-9]+\\.[0-9],\"uptime\": \"[0-9]+:[0-9][0-9]:[0-9][0-9]\","
                     "\"numErrors\": 0,\"numWarnings\": 0,\"radioConnection\": \"connected\","
                     "\"radioActivity\": \"inactive\","
                     "\"antennas\": \\{\"1\": \"connected\",\"2\": \"disconnected\"\\},"
                     "\"temperature\": \\{\"ambient\":31,\"pa\":-4\\}\\}"));
    EXPECT_EQ(getErrorCount(), 1U) << "the antenna that was lost meanwhile";
    EXPECT_EQ(ask("status numErrors aarEcho dance numErrors"),
              "Success: {\"numErrors\": 1, , \"dance\": \"unknown param\", \"numErrors\": 1}");
    engine_double::failOn("RXE_getParam", -1, static_cast<RXE_API_STATUS>(7));
    EXPECT_EQ(ask("status temperature"), "Success: {\"temperature\": {\"ambient\":-273,\"pa\":-273}}");
}

const char* const defaults =
    R"(Success: {"errors":{"antenna":true,"database":true,"radio":true,"tarnwick":true},"heartbeat":)"
    R"({"period":10,"stats":["numTagReads","numTagReadsPerAntenna","numRadioPacketsRxed",)"
    R"("numDataMessagesTxed","cpuUtilization","ramUtilization","uptime","numErrors","numWarnings",)"
    R"("radioConnection","radioActivity","temperature","antennas","aarEcho"]},)"
    R"("warnings":{"database":true,"radio_api":true,"tarnwick":true,"temperature":{"ambient":75,"pa":105}}})";

TEST(Events, refusesWhatIsIncompleteAndChangesNothing) {
    struct case_s {
        const char *legend, *request, *reply;
        int rc = 0;
    };
    const case_s cases[] = {
        {"no JSON, blanks gone", "{\"a b\": ,",
         "Failure: events request does not contain a valid json object: "
         "Received: {\"ab\":,"},
        {"no object", "[]", "Success"},
        {"unknown keys", R"({"alarms": 3})", "Success"},
        {"not an object", R"({"errors": true})", "Failure: \"errors\" field must contain an object"},
        {"a switch missing", R"({"errors": {"antenna": false, "radio": true, "tarnwick": true}})",
         "Failure: \"database\" must be included in object"},
        {"no switch", R"({"errors": {"antenna": 0}})",
         "Failure: \"antenna\" field must contain \"true\" or \"false\""},
        {"limit out of bounds", R"({"warnings": {"temperature": {"pa": 129, "ambient": 0}}})",
         "Failure: value provided for \"pa\" is out of bounds. Must be between -128 and 128."},
        {"good errors, no period",
         R"({"errors": {"antenna": false, "radio": true, "tarnwick": true, "database": true}, "heartbeat": {}})",
         "Failure: \"period\" must be included in object"},
        {"period too long", R"({"heartbeat": {"period": 4294967296, "stats": []}})",
         "Failure: value provided for \"period\" is out of bounds. Must be between 0 and 4294967295."},
        {"ends the process", R"({"heartbeat": {"period": 1, "stats": ["uptime", 1]}})",
         "Failure: \"stats\" must be an array containing only strings", -1},
    };
    for (const case_s& row : cases) {
        SCOPED_TRACE(row.legend);
        EXPECT_EQ(ask(std::string("events ") + row.request, row.rc), row.reply);
        EXPECT_EQ(ask("events"), defaults);
    }
}

TEST(Events, theListOfStatsGrowsAndALongPeriodIsNone) {
    setReader("PN5100", 1);
    EXPECT_EQ(ask(R"(events {"heartbeat": {"period": 4294967295, "stats": ["uptime", "weather"]}})"),
              "Success");
    EXPECT_THAT(ask("events"), HasSubstr(R"("period":-1,"stats":["numTagReads",)"));
    EXPECT_THAT(ask("events"), HasSubstr(R"("antennas","aarEcho","uptime","weather"]})"));
    EXPECT_THAT(ask("events"), StartsWith(R"(Success: {"errors":{"antenna":true,)"));
    EXPECT_EQ(heartbeat()["data"].size(), 13U) << "neither twice nor unknown";
    EXPECT_EQ(ask("status weather"), "Success: {\"weather\": \"unknown param\"}");
}

}  // namespace
