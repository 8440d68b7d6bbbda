// SPDX-License-Identifier: MIT
// What the process tells about itself, to the byte where bytes can be known.
#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "../../tarnwick/doors/src/requests/report.hpp"
#include "ask.hpp"
#include "connection.hpp"
#include "engine_io/channels.hpp"
#include "logger.hpp"
#include "radio.hpp"
#include "reader_facts.hpp"
#include "stat_names.hpp"
#include "support/temp_dir.hpp"

namespace {

using nlohmann::json;
using testing::HasSubstr;

json heartbeat() {
    std::string text;
    EXPECT_EQ(requests::getHeartbeat(&text), 1);
    EXPECT_EQ(json::parse(text).dump(), text) << "compact, sorted";
    return json::parse(text);
}

void setReader(const char* model, std::uint16_t antennas) {
    engine_double::reset();
    setModelName(model);
    readerFacts.max_ants = antennas;
    readerFacts.rxeAntennaCheckSupported = true;
    engine_double::setRecord(RXE_PARAM_ANTENNA_STATE, std::int16_t{0b01});
    engine_double::setRecord(RXE_PARAM_AMB_TEMP, std::int16_t{31});
    engine_double::setRecord(RXE_PARAM_PA_TEMP, std::int16_t{-4});
    radio::tagReadCount = 12;
    radio::tagReadCountPerAnt[1] = 5;
    radio::msgTxCount = 9;
}

TEST(Heartbeat, tellsAllThatIsInTheListOfAnIdleReader) {
    setReader("PN5100", 2);
    RXE_still_connected = false;
    json beat = heartbeat();
    json& data = beat["data"];
    EXPECT_EQ(data["cpuUtilization"], 0.0) << "the first";
    EXPECT_TRUE(data["ramUtilization"].is_number_float());
    EXPECT_THAT(data["uptime"].get<std::string>(), testing::MatchesRegex("[0-9][0-9]:[0-9][0-9]:[0-9][0-9]"));
    for (const char* measured : {"cpuUtilization", "ramUtilization", "uptime"}) {
        data.erase(measured);
    }
    EXPECT_EQ(beat, json::parse(R"({"component": "TW", "type": "heartbeat", "data": {
        "numTagReads": 12, "numTagReadsPerAntenna": {"1": 5, "2": 0},
        "numRadioPacketsRxed": 0, "numDataMessagesTxed": 9, "numErrors": 0, "numWarnings": 0,
        "radioConnection": "connected", "radioActivity": "inactive",
        "temperature": {"ambient": 31, "pa": -4}, "antennas": {"1": "connected", "2": "disconnected"}}})"));
}

// A radio that sends two packets a second is not asked anything.
TEST(Heartbeat, leavesABusyRadioAlone) {
    setReader("PN5100", 1);
    radio::packetRxCount = 20;
    requests::current_amb_temp = 44;
    requests::current_pa_temp = 55;
    const json data = heartbeat()["data"];
    EXPECT_EQ(data["radioActivity"], "active");
    EXPECT_EQ(data["temperature"], json::parse(R"({"ambient": 44, "pa": 55})"));
    EXPECT_TRUE(engine_double::calls().empty());
    radio::packetRxCount = 39;
    EXPECT_EQ(heartbeat()["data"]["radioActivity"], "inactive") << "nineteen in ten seconds";
    EXPECT_FALSE(engine_double::calls().empty());
}

TEST(Heartbeat, showsTheArrayReadersElementsAndOneChannelOfItsEcho) {
    setReader("QDX4400", 2);
    current_channels[0] = {.enable = 1, .reserved1 = {}, .frequency = 902750, .maxPower = 0, .reserved10 = 0};
    AAREchoResults results{};
    results.txPwrx10[13] = -15;
    engine_double::setRecord(RXE_PARAM_ECHO, results);
    for (int round = 0; round < 2; ++round) {  // past the last channel comes the first again
        const json data = heartbeat()["data"];
        EXPECT_EQ(data["temperature"], json::parse(R"({"ambient": 31})"));
        EXPECT_EQ(data["antennas"], json::parse(R"({"0": "connected", "1": "disconnected"})"));
        EXPECT_EQ(data["numTagReadsPerAntenna"], json::object());
        ASSERT_EQ(data["aarEcho"]["902750"].size(), 14U);
        EXPECT_EQ(data["aarEcho"]["902750"]["13"].dump(),
                  R"({"rxPwrPostEchox10":0.0,"rxPwrPreEchox10":0.0,"txPwrx10":-15.0})");
    }
    current_channels[0].enable = 0;
    EXPECT_EQ(ask("status aarEcho temperature"),
              R"(Success: {"aarEcho": {}, "temperature": {"ambient":31}})");
}

// The whole text is played from the command reference.
TEST(Status, asksTheRadioAlwaysAndTellsWhatItLacks) {
    setReader("PN5100", 2);
    EXPECT_THAT(ask("status"), HasSubstr(R"("numErrors": 0,)"));
    EXPECT_EQ(getErrorCount(), 1U) << "the antenna that was lost meanwhile";
    EXPECT_EQ(ask("status numErrors aarEcho dance numErrors antennas"),
              R"(Success: {"numErrors": 1, , "dance": "unknown param", "numErrors": 1, )"
              R"("antennas": {"1": "connected","2": "disconnected"}})");
    engine_double::failOn("RXE_getParam", -1, 7);
    EXPECT_EQ(ask("status temperature"), R"(Success: {"temperature": {"ambient":-273,"pa":-273}})");
}

TEST(Events, theListOfStatsGrowsAndALongPeriodIsNone) {
    setReader("PN5100", 1);
    EXPECT_EQ(ask(R"(events {"heartbeat": {"period": 4294967295, "stats": ["uptime", "weather"]}})"),
              "Success");
    EXPECT_THAT(ask("events"), HasSubstr(R"("period":-1,"stats":["numTagReads",)"));
    EXPECT_THAT(ask("events"), HasSubstr(R"("antennas","aarEcho","uptime","weather"]})"));
    const json schema = json::parse(readTextFile(TARNWICK_SOURCE_DIR "/docs/events.schema.json"));
    EXPECT_EQ(schema["properties"]["heartbeat"]["properties"]["stats"]["items"]["enum"],
              json(vocabulary::stats));
    EXPECT_EQ(heartbeat()["data"].size(), 13U) << "neither twice nor unknown";
}

}  // namespace
