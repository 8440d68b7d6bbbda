// SPDX-License-Identifier: MIT
// The mode in force as a client sees it: only what is special, everything, and
// the request itself; and the way back, a rendering as a request.
#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "mode_request_fixture.hpp"

namespace {

using nlohmann::json;

const std::string success = "Success: ";

const std::string sessionOne = "'query':{'session':'S1'}";

// A request of `type` with `keys`. The default rendering shows its type and its
// keys, link profile 201 and session S1, all of that merged with `changes`, in
// which a null takes a key away. The verbose rendering is a request for the same
// mode, unless it is answered by `refusal`: then it shows keys that a request must
// not hold together, or values that only a default can have.
struct shown_s {
    const char* legend;
    const char* model;
    std::string type;
    std::string keys;
    std::string changes = {};
    std::string refusal = {};
};

class ModeRenderTest : public ModeRequestTest {
  protected:
    // "verbose", or with an empty text only what is special.
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

    static void accept(const char* model, const std::string& text) {
        if (modelName != model) {
            become(model);
            max_tx_pwr_x_10 = 360;  // the array reader's default
        }
        EXPECT_EQ(ask(text), "Success") << text;
    }

    // With a link profile, so that no management server is asked.
    static void accept(const char* model, const std::string& type, const std::string& keys) {
        accept(model, "{'type':'" + type + "','linkProfile':201" + (keys.empty() ? "" : ",") + keys + "}");
    }
};

TEST_F(ModeRenderTest, OnlyWhatIsSpecialIsShownAndTheRestLeadsBack) {
    const std::string zero = "'query':{'session':'S0'}";
    const shown_s rows[] = {
        {"a fresh mode", pn51, "SIMPLE", ""},
        {"all at the default", pn51, "SIMPLE",
         "'antennas':[1,2,3,4],'transmitPower':27,'radioStopConditions':{},'radioStartConditions':{},"
         "'antennaStopCondition':{'type':'SINGLE_INVENTORY_LIMITED_DURATION','value':250},'tagMetaData':[],"
         "'reportFilter':{'type':'RADIO_WIDE','duration':4294967295},'rssiFilter':{'threshold':-128},"
         "'delayBetweenAntennaCycles':{'type':'NO_TAGS','duration':75}",
         "'antennas':null,'transmitPower':null,'radioStopConditions':null,'radioStartConditions':null,"
         "'antennaStopCondition':null,'tagMetaData':null,'reportFilter':null,'rssiFilter':null,"
         "'delayBetweenAntennaCycles':null"},
        {"fractions of dBm", pn51, "SIMPLE", "'transmitPower':[20,27.55,0.1,9]",
         "'transmitPower':[20.0,27.5,0.1,9.0]"},
        {"all conditions", pn51, "CUSTOM",
         "'radioStopConditions':{'duration':7,'antennaCycles':1,'durationAfterNoMoreUniqueTags':4095,'gpis':["
         "{'port':2,'signal':'HIGH','debounceTime':9}]},'delayBetweenAntennaCycles':{},"
         "'radioStartConditions':{'type':'GPI','gpis':[{'port':1,'signal':'LOW','debounceTime':1}]}",
         "'delayBetweenAntennaCycles':{'duration':200,'type':'NO_TAGS'}"},
        {"a list of stops loses those at the default", pn51, "SIMPLE",
         "'antennas':[1,2],'antennaStopCondition':[{'type':'SINGLE_INVENTORY_LIMITED_DURATION','value':500},"
         "{'type':'GPI','value':{'port':1,'signal':'LOW'}}]",
         "'antennaStopCondition':[{'type':'GPI','value':{'debounceTime':0,'port':1,'signal':'LOW'}}]"},
        {"and itself when all are", pn51, "SIMPLE",
         "'antennas':[1],'antennaStopCondition':[{'type':'SINGLE_INVENTORY_LIMITED_DURATION','value':1000}]",
         "'antennaStopCondition':null"},
        {"inventory has a report filter of its own", pn51, "INVENTORY",
         "'modeSpecificSettings':{'interval':{'unit':'seconds','value':4294967295}}"},
        {"portal has conditions of its own", pn51, "PORTAL", "'startTrigger':{'port':2,'signal':'HIGH'}",
         "'modeSpecificSettings':{'startTrigger':{'port':2,'signal':'HIGH'},'stopInterval':3},"
         "'startTrigger':null"},
        {"no report filter", pn51, "CONVEYOR", "'reportFilter':{},'rssiFilter':{'threshold':127}"},
        {"a report filter with a key", pn51, "SIMPLE",
         "'reportFilter':{'type':'PER_ANTENNA','duration':5,'addl_keys':['TID']},"
         "'tagMetaData':['ANTENNA','CHANNEL','PC','XPC','CRC','TAGURI','EPCURI','SEEN_COUNT','TID[0-5]']"},
        {"a prefix hides its query", pn51, "CUSTOM",
         "'filter':{'value':'aB','match':'prefix','operation':'exclude'}", "'query':null",
         "'query' and 'filter' with 'prefix' cannot be configured at the same time"},
        {"an expression does not", pn51, "SIMPLE",
         "'filter':{'value':'^3034.{20}\\\\s*$','match':'regex','operation':'include'}"},
        {"locks in their order, digits in lower case", pn51, "CUSTOM",
         "'accesses':[{'type':'LOCK','config':{'actions':['PERMALOCK_TID_BANK','WRITE_UNLOCK_USER_BANK']}},"
         "{'type':'WRITE','config':{'membank':'USER','wordPointer':1,'data':'00aB0001','blockSize':2}},"
         "{'type':'KILL','config':{'password':'0000000A'}}]",
         "'accesses':[{'type':'LOCK','config':{'actions':['WRITE_UNLOCK_USER_BANK','PERMALOCK_TID_BANK']}},"
         "{'type':'WRITE','config':{'membank':'USER','wordPointer':1,'data':'00ab0001','blockSize':2}},"
         "{'type':'KILL','config':{'password':'0000000a'}}]",
         "setting both reportFilter and accesses is not allowed"},
        {"selects by their target, queries by antenna", pn51, "SIMPLE",
         "'antennas':[1,1],'query':[{'sel':'SL'},{'target':'AB','session':'S3','tagPopulation':9}],"
         "'selects':[[],[{'target':'SL','action':'NEGATESL_NOTHING','membank':'TID','pointer':1,'length':16,"
         "'mask':'e280','truncate':1},{'target':'S2','action':'NOTHING_FLIPAB','membank':'USER',"
         "'pointer':65535,'length':0,'mask':''}]]",
         "'query':[{'sel':'SL','session':'S1'},{'session':'S3','tagPopulation':9,'target':'AB'}]"},
        {"metadata in its order", pn82, "CONVEYOR",
         "'delayAfterSelects':5,'tagMetaData':['USER[0-3,7]','LOCATION','EPC','HOSTNAME','PHASE','MAC',"
         "{'antennaPortNames':['a','b','c','d']},{'userDefined':'x'},'RSSI','ANTENNA']",
         "'tagMetaData':['ANTENNA','RSSI','MAC','HOSTNAME','PHASE','LOCATION',{'userDefined':'x'},"
         "{'antennaPortNames':['a','b','c','d']},'EPC','USER[0-3,7]']",
         "'reportFilter' and 'tagMetaData' with RESERVED, EPC, TID, or USER cannot be configured at the same "
         "time"},
        {"no triggers", pn51, "SIMPLE", "'radioStartConditions':{'type':'GPI','gpis':[]}",
         "'radioStartConditions':{'gpis':null}", missing("gpis")},
        {"beams", qdx, "SIMPLE", "'beams':[{'azimuth':5,'elevation':12,'polarization':'PHI'}]",
         "'beams':[{'azimuth':5,'elevation':15,'polarization':'PHI'}]"},
        {"beams without a direction", qdx, "SIMPLE", "'beams':[{'azimuth':0,'elevation':2}]",
         "'beams':[{'azimuth':-1,'elevation':-1,'polarization':'LHCP'}]",
         "'azimuth' field must contain an unsigned integer"},
        {"heat map", qdx, "SIMPLE", "'tagMetaData':['HEATMAP']"},
        {"bearing with antennas", qdx, "BEARING", "'antennas':[5897]", zero,
         "modeSpecificSetting for BEARING - primaryBeamPolarization - can only be used with default Antenna "
         "Settings"},
        {"only one of the settings", qdx, "PORTAL_DIRECTIONALITY", "'modeSpecificSettings':{'tagHeight':1.5}",
         zero},
        {"some of the settings", qdx, "PORTAL_DIRECTIONALITY",
         "'modeSpecificSettings':{'primaryBeamPolarization':'PHI','aarHeight':0,'staticVDynamic':2147483647}",
         zero},
    };
    for (const shown_s& row : rows) {
        SCOPED_TRACE(row.legend);
        accept(row.model, row.type, row.keys);
        const auto object = [](const std::string& keys) { return json::parse(quoted("{" + keys + "}")); };
        json expected = object("'linkProfile':201,'type':'" + row.type + "'," + sessionOne);
        expected.update(object(row.keys));
        expected.merge_patch(object(row.changes));
        const std::string special = render("");
        const std::string everything = render("verbose");
        EXPECT_EQ(json::parse(special), expected);
        EXPECT_EQ(ask(everything), row.refusal.empty() ? "Success" : quoted("Failure: " + row.refusal));
        EXPECT_EQ(render("verbose"), everything);
        EXPECT_EQ(render(""), special);
    }
}

TEST_F(ModeRenderTest, EverythingIsShown) {
    accept(pn51, "{'mode':'simple'}");
    EXPECT_EQ(render(""), quoted("{" + sessionOne + ",'type':'SIMPLE'}"));
    EXPECT_EQ(
        render("verbose"),
        quoted(
            "{'antennaStopCondition':{'type':'SINGLE_INVENTORY_LIMITED_DURATION','value':250},"
            "'antennas':[1,2,3,4],'delayAfterSelects':0,"
            "'delayBetweenAntennaCycles':{'duration':75,'type':'NO_TAGS'},"
            "'environment':'HIGH_INTERFERENCE',"
            "'query':{'sel':'ALL','session':'S1','tagPopulation':0,'target':'A'},'radioStartConditions':{},"
            "'radioStopConditions':{},'reportFilter':{'duration':4294967295,'type':'RADIO_WIDE'},"
            "'rssiFilter':{'threshold':-128},'tagMetaData':[],'transmitPower':27.0,'type':'SIMPLE'}"));
    accept(pn51, "PORTAL", "");
    const json portal = json::parse(render("verbose"));
    EXPECT_FALSE(portal.contains("radioStopConditions") || portal.contains("radioStartConditions"));
    EXPECT_EQ(portal["modeSpecificSettings"].dump(),
              quoted("{'startTrigger':{'port':1,'signal':'LOW'},'stopInterval':3}"));
    accept(pn51, "INVENTORY", "");
    EXPECT_FALSE(json::parse(render("verbose")).contains("reportFilter"));
    accept(qdx, "PORTAL_DIRECTIONALITY", "");
    EXPECT_FALSE(json::parse(render("verbose")).contains("modeSpecificSettings"));
}

TEST_F(ModeRenderTest, AsSetIsTheRequest) {
    EXPECT_EQ(ask("as_set"), "Failure: could not open mode_config.json");
    const std::string good = quoted("{'linkProfile':201,'type':'SIMPLE','unknown':[1,'é']}");
    accept(pn51, good);
    EXPECT_EQ(ask("{'type':'SIMPLE','antennas':[]}").substr(0, 8), "Failure:");
    EXPECT_EQ(ask("as_set"), success + good);
    const struct {
        const char* content;
        const char* reply;
    } files[] = {
        {"", "Failure: Unable to get mode as_set"},
        {"{'mode':", "Failure: Unable to get mode as_set"},
        {"{}", "Failure: 'mode' must be included in object"},
        {"[]", "Failure: 'mode' must be included in object"},
        {"{'mode':1}", "Failure: 'mode' field must contain an object"},
    };
    for (const auto& file : files) {
        writeTextFile("mode_config.json", quoted(file.content));
        EXPECT_EQ(ask("as_set"), quoted(file.reply)) << file.content;
    }
}

// What a rendering cannot say: half a second; and what no request can say.
TEST_F(ModeRenderTest, WhatIsLostOnTheWay) {
    accept(pn51, "SIMPLE", "'radioStopConditions':{'duration':0.5}");
    EXPECT_EQ(json::parse(render(""))["radioStopConditions"], (json{{"duration", 0}}));
    // The defaults of BEARING hold a field that no word of the metadata sets.
    accept(qdx, "BEARING", "'modeSpecificSettings':{'primaryBeamPolarization':'THETA'}");
    EXPECT_EQ(render(""), quoted("{'linkProfile':201,'modeSpecificSettings':{'primaryBeamPolarization':"
                                 "'THETA'},'query':{'session':'S0'},'type':'BEARING'}"));
    const std::string everything = render("verbose");
    EXPECT_EQ(ask(everything), "Success");
    EXPECT_EQ(render("verbose"), everything);
    EXPECT_EQ(json::parse(render(""))["tagMetaData"], (json{"ANTENNA", "RSSI", "BEARING"}));

    max_tx_pwr_x_10 = 300;
    EXPECT_EQ(ask(render("verbose")), quoted("Failure: " + outOf("transmitPower", "0.000000 and 30.000000")));
    rssiFilterSupported = false;
    max_tx_pwr_x_10 = 360;
    accept(qdx, "SIMPLE", "");
    EXPECT_EQ(ask(render("verbose")), "Failure: RSSI filter not supported");
}

}  // namespace
