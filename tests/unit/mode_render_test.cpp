// SPDX-License-Identifier: MIT
// The mode in force as a client sees it: only what is special, everything, and
// the request itself; and the way back, a rendering as a request.
#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "mode_request_fixture.hpp"

namespace {

using nlohmann::json;

const std::string success = "Success: ";

// A request of `type` with `keys`, and what the default rendering then shows beside
// its type and its link profile.
struct shown_s {
    const char* legend;
    const char* model;
    std::string type;
    std::string keys;
    std::string rendering;
};

class ModeRenderTest : public ModeRequestTest {
  protected:
    static std::string render(const std::string& how) {
        std::vector<std::string> tokens{"mode"};
        if (!how.empty()) {
            tokens.push_back(how);
        }
        std::string reply;
        handleModeRequest(&tokens, &reply);
        EXPECT_EQ(reply.substr(0, success.size()), success);
        return reply.substr(std::min(reply.size(), success.size()));
    }

    // A request with a link profile, so that no management server is asked.
    static std::string request(const std::string& type, const std::string& keys) {
        return R"({"type":")" + type + R"(","linkProfile":201)" + (keys.empty() ? "" : "," + keys) + "}";
    }

    static void accept(const char* model, const std::string& text) {
        if (modelName != model) {
            become(model);
            max_tx_pwr_x_10 = 360;  // the array reader's default
        }
        EXPECT_EQ(ask(text), "Success") << text;
    }
};

TEST_F(ModeRenderTest, OnlyWhatIsSpecialIsShown) {
    const std::string s1 = R"("query":{"session":"S1"})";
    const shown_s rows[] = {
        {"a fresh mode", pn51, "SIMPLE", "", s1},
        {"all at the default", pn51, "SIMPLE",
         R"("antennas":[1,2,3,4],"transmitPower":27,"radioStopConditions":{},"radioStartConditions":{},)"
         R"("antennaStopCondition":{"type":"SINGLE_INVENTORY_LIMITED_DURATION","value":250},"tagMetaData":[],)"
         R"("reportFilter":{"type":"RADIO_WIDE","duration":4294967295},"rssiFilter":{"threshold":-128},)"
         R"("delayBetweenAntennaCycles":{"type":"NO_TAGS","duration":75},"selects":[[],[],[],[]])",
         s1 + R"(,"selects":[[],[],[],[]])"},
        {"fractions of dBm, of seconds", pn51, "SIMPLE",
         R"("transmitPower":[20,27.55,0.1,9],"radioStopConditions":{"duration":1.5,"tagCount":3})",
         s1 + R"(,"radioStopConditions":{"duration":1,"tagCount":3},"transmitPower":[20.0,27.5,0.1,9.0])"},
        {"half a second", pn51, "SIMPLE", R"("radioStopConditions":{"duration":0.5})",
         s1 + R"(,"radioStopConditions":{"duration":0})"},
        {"a list of stops loses those at the default", pn51, "SIMPLE",
         R"("antennas":[1,2],"antennaStopCondition":[{"type":"SINGLE_INVENTORY_LIMITED_DURATION","value":500},)"
         R"({"type":"GPI","value":{"port":1,"signal":"LOW"}}])",
         R"("antennaStopCondition":[{"type":"GPI","value":{"debounceTime":0,"port":1,"signal":"LOW"}}],)"
         R"("antennas":[1,2],)" +
             s1},
        {"all of them", pn51, "SIMPLE",
         R"("antennas":[1],"antennaStopCondition":[{"type":"SINGLE_INVENTORY_LIMITED_DURATION","value":1000}])",
         R"("antennas":[1],)" + s1},
        {"inventory has a report filter of its own", pn51, "INVENTORY",
         R"("modeSpecificSettings":{"interval":{"unit":"days","value":2}})",
         R"("modeSpecificSettings":{"interval":{"unit":"days","value":2}},)" + s1},
        {"portal has conditions of its own", pn51, "PORTAL", R"("startTrigger":{"port":2,"signal":"HIGH"})",
         R"("modeSpecificSettings":{"startTrigger":{"port":2,"signal":"HIGH"},"stopInterval":3},)" + s1},
        {"a prefix hides its query", pn51, "CUSTOM",
         R"("filter":{"value":"aB","match":"prefix","operation":"exclude"})",
         R"("filter":{"match":"prefix","operation":"exclude","value":"aB"})"},
        {"accesses take the report filter of CUSTOM", pn51, "CUSTOM",
         R"("accesses":[{"type":"LOCK","config":{"actions":["PERMALOCK_TID_BANK","WRITE_LOCK_TID_BANK",)"
         R"("WRITE_UNLOCK_USER_BANK"]}},{"type":"WRITE","config":{"membank":"USER","wordPointer":1,)"
         R"("data":"00aB0001","blockSize":2}},{"type":"KILL","config":{"password":"0000000A"}}])",
         R"("accesses":[{"config":{"actions":["WRITE_UNLOCK_USER_BANK","PERMALOCK_TID_BANK",)"
         R"("WRITE_LOCK_TID_BANK"]},"type":"LOCK"},{"config":{"blockSize":2,"data":"00ab0001",)"
         R"("membank":"USER","wordPointer":1},"type":"WRITE"},{"config":{"password":"0000000a"},)"
         R"("type":"KILL"}],)" +
             s1},
        {"selects by their target, queries by antenna", pn51, "SIMPLE",
         R"("antennas":[1,1],"query":[{"sel":"SL"},{"target":"AB","session":"S3","tagPopulation":9}],)"
         R"("selects":[[],[{"target":"SL","action":"NEGATESL_NOTHING","membank":"TID","pointer":1,)"
         R"("length":16,"mask":"E280","truncate":1}]])",
         R"("antennas":[1,1],"query":[{"sel":"SL","session":"S1"},{"session":"S3","tagPopulation":9,)"
         R"("target":"AB"}],"selects":[[],[{"action":"NEGATESL_NOTHING","length":16,"mask":"e280",)"
         R"("membank":"TID","pointer":1,"target":"SL","truncate":1}]])"},
        {"metadata in its order", pn82, "CONVEYOR",
         R"("delayAfterSelects":5,"tagMetaData":["USER[0-3,7]","LOCATION","EPC",{"antennaPortNames":["a","b",)"
         R"("c","d"]},{"userDefined":"x"},"HOSTNAME","PHASE","MAC","RSSI","ANTENNA"])",
         R"("delayAfterSelects":5,)" + s1 +
             R"(,"tagMetaData":["ANTENNA","RSSI","MAC","HOSTNAME","PHASE","LOCATION",{"userDefined":"x"},)"
             R"({"antennaPortNames":["a","b","c","d"]},"EPC","USER[0-3,7]"])"},
        {"beams", qdx, "SIMPLE",
         R"("beams":[{"azimuth":5,"elevation":12,"polarization":"PHI"},)"
         R"({"azimuth":10,"elevation":0},{"azimuth":0,"elevation":2}])",
         R"("beams":[{"azimuth":5,"elevation":15,"polarization":"PHI"},)"
         R"({"azimuth":0,"elevation":0,"polarization":"LHCP"},)"
         R"({"azimuth":-1,"elevation":-1,"polarization":"LHCP"}],)" +
             s1},
        {"bearing", qdx, "BEARING", R"("modeSpecificSettings":{"primaryBeamPolarization":"THETA"})",
         R"("modeSpecificSettings":{"primaryBeamPolarization":"THETA"},"query":{"session":"S0"})"},
        {"only one of the settings", qdx, "PORTAL_DIRECTIONALITY",
         R"("modeSpecificSettings":{"tagHeight":1.5})",
         R"("modeSpecificSettings":{"tagHeight":1.5},"query":{"session":"S0"})"},
    };
    for (const shown_s& row : rows) {
        SCOPED_TRACE(row.legend);
        accept(row.model, request(row.type, row.keys));
        EXPECT_EQ(json::parse(render("")),
                  json::parse(R"({"linkProfile":201,"type":")" + row.type + "\"," + row.rendering + "}"));
    }
}

TEST_F(ModeRenderTest, EverythingIsShown) {
    accept(pn51, R"({"mode":"simple"})");
    EXPECT_EQ(render(""), R"({"query":{"session":"S1"},"type":"SIMPLE"})");
    EXPECT_EQ(
        render("verbose"),
        R"({"antennaStopCondition":{"type":"SINGLE_INVENTORY_LIMITED_DURATION","value":250},)"
        R"("antennas":[1,2,3,4],"delayAfterSelects":0,)"
        R"("delayBetweenAntennaCycles":{"duration":75,"type":"NO_TAGS"},)"
        R"("environment":"HIGH_INTERFERENCE",)"
        R"("query":{"sel":"ALL","session":"S1","tagPopulation":0,"target":"A"},"radioStartConditions":{},)"
        R"("radioStopConditions":{},"reportFilter":{"duration":4294967295,"type":"RADIO_WIDE"},)"
        R"("rssiFilter":{"threshold":-128},"tagMetaData":[],"transmitPower":27.0,"type":"SIMPLE"})");
    accept(pn51, request("PORTAL", ""));
    const json portal = json::parse(render("verbose"));
    EXPECT_FALSE(portal.contains("radioStopConditions") || portal.contains("radioStartConditions"));
    EXPECT_EQ(portal["modeSpecificSettings"].dump(),
              R"({"startTrigger":{"port":1,"signal":"LOW"},"stopInterval":3})");
    accept(pn51, request("INVENTORY", ""));
    EXPECT_FALSE(json::parse(render("verbose")).contains("reportFilter"));
    accept(qdx, request("PORTAL_DIRECTIONALITY", ""));
    EXPECT_FALSE(json::parse(render("verbose")).contains("modeSpecificSettings"));
}

TEST_F(ModeRenderTest, AsSetIsTheRequest) {
    EXPECT_EQ(ask("as_set"), "Failure: could not open mode_config.json");
    const std::string good = R"({"linkProfile":201,"type":"SIMPLE","unknown":[1,"é"]})";
    accept(pn51, good);
    EXPECT_EQ(ask(R"({"type":"SIMPLE","antennas":[]})").substr(0, 8), "Failure:");
    EXPECT_EQ(ask("as_set"), success + good);
    const struct {
        const char* content;
        const char* reply;
    } files[] = {
        {"", "Failure: Unable to get mode as_set"},
        {"{\"mode\":", "Failure: Unable to get mode as_set"},
        {"{}", "Failure: \"mode\" must be included in object"},
        {"[]", "Failure: \"mode\" must be included in object"},
        {R"({"mode":1})", "Failure: \"mode\" field must contain an object"},
    };
    for (const auto& file : files) {
        writeTextFile("mode_config.json", file.content);
        EXPECT_EQ(ask("as_set"), file.reply) << file.content;
    }
}

// A verbose rendering is a request for the same mode.
TEST_F(ModeRenderTest, ThereAndBack) {
    const struct {
        const char* model;
        const char* type;
        std::string keys;
    } requests[] = {
        {pn51, "SIMPLE", ""},
        {pn51, "INVENTORY", R"("interval":{"unit":"seconds","value":4294967295})"},
        {pn51, "CONVEYOR", R"("reportFilter":{},"rssiFilter":{"threshold":127})"},
        {pn51, "PORTAL", R"("startTrigger":{"port":2,"signal":"HIGH"},"stopInterval":65535)"},
        {pn51, "CUSTOM",
         R"("radioStopConditions":{"duration":7,"antennaCycles":1,"durationAfterNoMoreUniqueTags":4095,)"
         R"("gpis":[{"port":2,"signal":"HIGH","debounceTime":9}]},"delayBetweenAntennaCycles":{},)"
         R"("radioStartConditions":{"type":"GPI","gpis":[{"port":1,"signal":"LOW"}]})"},
        {pn51, "SIMPLE",
         R"("antennas":[4,4],"transmitPower":[0,29.9],"antennaStopCondition":[{"type":"DURATION","value":0},)"
         R"({"type":"SINGLE_INVENTORY_LIMITED_DURATION","value":500}],"query":[{"sel":"NOT_SL"},{}])"},
        {pn51, "SIMPLE",
         R"("reportFilter":{"type":"PER_ANTENNA","duration":5,"addl_keys":["TID"]},)"
         R"("tagMetaData":["PC","CRC","TID[0-5]","ANTENNA","EPCURI","TAGURI","XPC","CHANNEL","SEEN_COUNT"])"},
        {pn51, "SIMPLE", R"("filter":{"value":"^3034.{20}\\s*$","match":"regex","operation":"include"})"},
        {pn82, "SIMPLE",
         R"("delayAfterSelects":65,"selects":[{"target":"S2","action":"NOTHING_FLIPAB","membank":"USER",)"
         R"("pointer":65535,"length":0,"mask":""},{"target":"SL","action":"NOTHING_NEGATESL","membank":"EPC",)"
         R"("pointer":32,"length":12,"mask":""}])"},
        {qdx, "SIMPLE", R"("tagMetaData":["HEATMAP"])"},
        {qdx, "SIMPLE", R"("beams":[{"azimuth":355,"elevation":70},{"azimuth":5,"elevation":7}])"},
        {qdx, "PORTAL_DIRECTIONALITY",
         R"("modeSpecificSettings":{"primaryBeamPolarization":"PHI","aarHeight":0,"staticVDynamic":2147483647})"},
    };
    for (const auto& row : requests) {
        SCOPED_TRACE(row.keys);
        accept(row.model, request(row.type, row.keys));
        const std::string everything = render("verbose");
        const std::string special = render("");
        EXPECT_EQ(ask(everything), "Success") << everything;
        EXPECT_EQ(render("verbose"), everything);
        EXPECT_EQ(render(""), special);
    }
}

// The modes whose verbose rendering is no request: it shows keys that a request
// must not hold together, or values that only a default can have.
TEST_F(ModeRenderTest, NoWayBack) {
    const struct {
        const char* model;
        const char* type;
        const char* keys;
        const char* reply;
    } requests[] = {
        {pn51, "SIMPLE", R"("tagMetaData":["USER"])",
         "Failure: \"reportFilter\" and \"tagMetaData\" with RESERVED, EPC, TID, or USER cannot be "
         "configured at the same "
         "time"},
        {pn51, "SIMPLE", R"("accesses":[{"type":"KILL","config":{"password":"00000001"}}])",
         "Failure: setting both reportFilter and accesses is not allowed"},
        {pn51, "SIMPLE", R"("filter":{"value":"30","match":"prefix","operation":"include"})",
         "Failure: \"query\" and \"filter\" with \"prefix\" cannot be configured at the same time"},
        {pn51, "SIMPLE", R"("radioStartConditions":{"type":"GPI","gpis":[]})",
         "Failure: \"gpis\" must be included in object"},
        {qdx, "SIMPLE", R"("beams":[{"azimuth":0,"elevation":3}])",
         "Failure: \"azimuth\" field must contain an unsigned integer"},
        {qdx, "BEARING", R"("antennas":[5897])",
         "Failure: modeSpecificSetting for BEARING - primaryBeamPolarization - can only be used with default "
         "Antenna "
         "Settings"},
    };
    for (const auto& row : requests) {
        SCOPED_TRACE(row.keys);
        accept(row.model, request(row.type, row.keys));
        EXPECT_EQ(ask(render("verbose")), row.reply);
    }
    // The defaults of BEARING hold a field that no word of the metadata sets.
    accept(qdx, request("BEARING", ""));
    const std::string everything = render("verbose");
    EXPECT_EQ(ask(everything), "Success");
    EXPECT_EQ(render("verbose"), everything);
    EXPECT_EQ(json::parse(render(""))["tagMetaData"], (json{"ANTENNA", "RSSI", "BEARING"}));

    max_tx_pwr_x_10 = 300;
    EXPECT_EQ(ask(render("verbose")),
              "Failure: value provided for \"transmitPower\" is out of bounds. Must be between 0.000000 and "
              "30.000000.");
    rssiFilterSupported = false;
    max_tx_pwr_x_10 = 360;
    accept(qdx, request("SIMPLE", ""));
    EXPECT_EQ(ask(render("verbose")), "Failure: RSSI filter not supported");
}

}  // namespace
