// SPDX-License-Identifier: MIT
// What a scenario may say, and how each mistake in one is told.
#include "scenario_text.hpp"

namespace {

// Says every key that there is.
const json complete = json::parse(R"({
  "library": "2.2.40.0", "firmware": "2.1.50.0", "model": "any", "seed": 5, "clock": "fast",
  "tagsPerSecond": 300, "maxTxPower": 31.5, "control": "none", "gpi": ["low", "high"],
  "antennas": [1, {"port": 2, "position": [0, 1, 2.5], "gain": 7, "connected": false}],
  "air": {"exponent": 2.2, "shadow": 1, "fade": 0.5, "errors": false},
  "temperatures": {"pa": {"idle": 40, "rise": 30, "seconds": 5, "critical": 100}, "ambient": 25},
  "database": {"capacity": 500},
  "tags": [
    {"epc": "303425E7", "tid": "E2801160", "user": "0001", "killPassword": "00000001",
     "accessPassword": "00000002", "xpc": "0001", "sensitivity": -20, "position": [1, 1, 1],
     "velocity": [0, 0.5, 0], "enter": 1, "leave": 2,
     "locks": {"kill": "locked", "access": "unlocked", "epc": "locked", "tid": "permalocked",
               "user": "permaunlocked"}},
    {"count": 4, "scheme": "sgtin-96", "companyPrefix": "0614141", "itemReference": "100000", "filter": 1,
     "firstSerial": 9, "tidPrefix": "E280", "user": "00", "velocity": [0, 1, 0],
     "placement": {"type": "grid", "from": [0, 0, 0], "to": [1, 1, 1], "columns": 2, "rows": 2},
     "arrivals": {"every": 2, "first": 1, "jitter": 0.5, "stay": 1, "limit": 3}},
    {"count": 2, "epcPrefix": "AB", "epcBits": 112}
  ],
  "failing": [{"operation": "RXE_start", "parameter": "0x0405", "status": 9, "count": 1, "after": 2}],
  "events": [
    {"at": 1, "every": 5, "event": "gpi", "port": 1, "level": "high"},
    {"at": 1, "event": "antenna", "port": 1, "state": "lost"},
    {"at": 1, "event": "pa", "port": 1, "state": "high"},
    {"at": 1, "event": "temperature", "sensor": "pa", "degrees": 80},
    {"at": 1, "event": "fail", "operation": "RXE_stop", "parameter": 3, "status": 9, "count": 1, "after": 0},
    {"at": 1, "event": "enter", "epc": "AA01", "position": [0, 0, 1], "stay": 3},
    {"at": 1, "event": "move", "epc": "AA01", "position": [0, 0, 1], "velocity": [1, 0, 0]},
    {"at": 1, "event": "leave", "epc": "AA01"},
    {"at": 1, "event": "database", "state": "full"},
    {"at": 1, "event": "error", "text": "made up"}
  ]
})");

class Scenario : public ScenarioRadio {
  protected:
    // The line that the refusal of this scenario writes.
    std::string refusalOf(const json& scenario) {
        testing::internal::CaptureStderr();
        const RXE_API_STATUS status = connect(scenario.dump());
        const std::string line = testing::internal::GetCapturedStderr();
        EXPECT_EQ(status, 11) << scenario;
        EXPECT_EQ(std::count(line.begin(), line.end(), '\n'), 1) << line;
        EXPECT_NE(line.find("scenario.json: "), std::string::npos) << line;
        RXE_disconnect();
        return line;
    }
};

TEST_F(Scenario, EachKeyBrokenIsToldByItsPath) {
    json good = complete;
    good["tags"][1]["user"] = "0000";
    ASSERT_EQ(connect(good.dump()), RXE_OK);
    ASSERT_EQ(RXE_disconnect(), RXE_OK);
    std::size_t broken = 0;
    for (const auto& [pointer, path] : pathsOf(good)) {
        for (const json& value : {json(nullptr), json(-1e9), json("\x01"), json{{"bogus", 1}}}) {
            json scenario = good;
            scenario[pointer] = value;
            const std::string line = refusalOf(scenario);
            EXPECT_NE(line.find(": \"" + path), std::string::npos) << path << " told as " << line;
            ++broken;
        }
    }
    EXPECT_GT(broken, 400U);
}

TEST_F(Scenario, RulesBetweenKeysAndMissingOnes) {
    const struct {
        const char *scenario, *line;
    } cases[] = {
        {R"([])", "must be an object"},
        {R"({"Seed": 1})", "\"Seed\" is not a known key"},
        {R"({"seed": 9223372036854775808})", "\"seed\" must be a whole number from 0 to 9223372036854775807"},
        {R"({"seed": 1.5})", "\"seed\" must be a whole number"},
        {R"({"firmware": "2.1.50"})", "\"firmware\" must be a text of four numbers"},
        {R"({"firmware": "2.1.256.0"})", "\"firmware\" must be"},
        {R"({"gpi": ["low", "low", "low", "low", "low"]})", "\"gpi\" must be an array of at most 4"},
        {R"({"antennas": [3, {"port": 3}]})", "\"antennas[1]\" names port 3 again"},
        {R"({"antennas": [0]})", "\"antennas[0]\" must be a whole number from 1 to 16"},
        {R"({"antennas": [{}]})", "\"antennas[0].port\" is missing"},
        {R"({"control": "tcp://*:1"})", "\"control\" must be \"none\" or \"ipc://\""},
        {R"({"tags": {"itemReference": "12345"}})", "\"tags.itemReference\" must have 6 digits"},
        {R"({"tags": {"scheme": "grai-96", "itemReference": "123456"}})",
         "\"tags.itemReference\" must have 5"},
        {R"({"tags": {"scheme": "prefix"}})", "\"tags.epcPrefix\" is missing"},
        {R"({"tags": {"epcPrefix": "AABBCC", "epcBits": 16}})", "\"tags.epcPrefix\" is longer than"},
        {R"({"tags": {"epcPrefix": "AA", "epcBits": 16, "firstSerial": 250, "count": 7}})",
         "\"tags.firstSerial\" leaves no room for \"count\" serial numbers, which end at 255"},
        {R"({"tags": {"epcBits": 100}})", "\"tags.epcBits\" must be a multiple of 16"},
        {R"({"tags": [{"epc": "AABB", "enter": 5, "leave": 5}]})", "\"tags[0].leave\" must be later than"},
        {R"({"tags": [{"epc": "AABB", "count": 2}]})", "\"tags[0].count\" is not a known key"},
        {R"({"tags": [{"epc": "AAB"}]})", "\"tags[0].epc\" must be a text of 4 to 124 hexadecimal digits"},
        {R"({"tags": {"arrivals": {"every": 1}}})", "\"tags.arrivals.stay\" is missing"},
        {R"({"tags": {"enter": 1, "arrivals": {"every": 1, "stay": 1}}})", "\"tags.enter\" does not go with"},
        {R"({"tags": {"placement": {"from": [0, 0, 0]}}})", "\"tags.placement.type\" is missing"},
        {R"({"events": [{"event": "gpi", "port": 1, "level": "low"}]})", "\"events[0].at\" is missing"},
        {R"({"events": [{"at": 1, "port": 1, "level": "low"}]})", "\"events[0].event\" is missing"},
        {R"({"events": [{"at": 1, "event": "gpi", "port": 5, "level": "low"}]})",
         "\"events[0].port\" must be a whole number from 1 to 4"},
        {R"({"events": [{"at": 1, "event": "gpi", "port": 1}]})", "\"events[0].level\" is missing"},
        {R"({"events": [{"at": 1, "event": "move", "epc": "AA01", "position": [0, 1]}]})",
         "\"events[0].position\" must be an array of three numbers"},
        {R"({"failing": [{"status": 5}]})", "\"failing[0].operation\" is missing, and \"parameter\" too"},
        {R"({"failing": [{"operation": "RXE_strerror", "status": 5}]})", "\"failing[0].operation\" must be"},
    };
    for (const auto& row : cases) {
        const std::string line = refusalOf(json::parse(row.scenario));
        EXPECT_NE(line.find(row.line), std::string::npos) << row.line << "\ntold as " << line;
    }
    testing::internal::CaptureStderr();
    EXPECT_EQ(connect("{"), 11);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("is not valid JSON"), std::string::npos);
}

// EPCs by hand from the layouts of GS1 TDS 1.13, table 14-1.
TEST_F(Scenario, TagsAreNamedByTheirScheme) {
    const struct {
        const char *group, *first, *second;
    } cases[] = {
        {R"("companyPrefix": "0614141", "itemReference": "812345", "firstSerial": 6789, "filter": 3)",
         "3074257bf7194e4000001a85", "3074257bf7194e4000001a86"},
        {R"("scheme": "sscc-96", "filter": 3, "firstSerial": 1234567890)", "3174257bf4499602d2000000",
         "3174257bf4499602d3000000"},
        {R"("scheme": "grai-96", "itemReference": "12345", "filter": 3, "firstSerial": 5678)",
         "3374257bf40c0e400000162e", "3374257bf40c0e400000162f"},
        {R"("scheme": "giai-96", "filter": 3, "firstSerial": 5678)", "3474257bf40000000000162e",
         "3474257bf40000000000162f"},
        {R"("epcPrefix": "AB", "epcBits": 32, "firstSerial": 255)", "ab0000ff", "ab000100"},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.group);
        ASSERT_EQ(connect(std::string(R"({"clock": "fast", "control": "none", "tags": {"count": 2, )") +
                          row.group + "}}"),
                  RXE_OK);
        EXPECT_EQ(epcsOfRun(2000), (std::set<std::string>{row.first, row.second}));
        ASSERT_EQ(RXE_disconnect(), RXE_OK);
    }
}

// The engine's clock is exact, and a run of 10 s shows who came in it.
TEST_F(Scenario, TagsComeAndGoAsTheirTimesSay) {
    const struct {
        const char *legend, *keys;
        std::set<std::string> heard;
    } cases[] = {
        {"there all the time", R"("tags": [{"epc": "AA01", "position": [0, 0, 1]}])", {"aa01"}},
        {"comes later than the run", R"("tags": [{"epc": "AA01", "enter": 11}])", {}},
        {"comes and leaves", R"("tags": [{"epc": "AA01", "enter": 3, "leave": 4}])", {"aa01"}},
        {"out of reach", R"("tags": [{"epc": "AA01", "position": [0, 500, 1]}])", {}},
        {"passes by",
         R"("tags": [{"epc": "AA01", "position": [0, -400, 1], "velocity": [0, 100, 0]}])",
         {"aa01"}},
        {"three arrivals of one",
         R"("tags": {"count": 1, "epcPrefix": "AA", "epcBits": 16, "firstSerial": 7,
            "arrivals": {"every": 3, "stay": 1, "limit": 3}})",
         {"aa07", "aa08", "aa09"}},
        {"enters and leaves by events",
         R"("tags": [], "events": [{"at": 2, "event": "enter", "epc": "AA02", "position": [0, 0, 1]},
            {"at": 4, "event": "enter", "epc": "AA03", "position": [0, 0, 1], "stay": 1},
            {"at": 11, "event": "enter", "epc": "AA04", "position": [0, 0, 1]}])",
         {"aa02", "aa03"}},
        {"moved into the field",
         R"("tags": [{"epc": "AA01", "position": [0, 500, 1]}], "events":
            [{"at": 5, "event": "move", "epc": "AA01", "position": [0, 0, 1]}])",
         {"aa01"}},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.legend);
        ASSERT_EQ(connect(std::string(R"({"clock": "fast", "control": "none", )") + row.keys + "}"), RXE_OK);
        EXPECT_EQ(epcsOfRun(10000), row.heard);
        ASSERT_EQ(RXE_disconnect(), RXE_OK);
    }
}

}  // namespace
