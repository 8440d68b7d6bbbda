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

    void accept(const std::string& model, const std::string& text) {
        if (modelName != model) {
            become(model);
            max_tx_pwr_x_10 = 360;  // the array reader's default
        }
        EXPECT_EQ(ask(text), "Success") << text;
    }

    // With a link profile, so that no management server is asked.
    void accept(const std::string& model, const std::string& type, const std::string& keys) {
        accept(model, "{'type':'" + type + "','linkProfile':201" + (keys.empty() ? "" : ",") + keys + "}");
    }
};

TEST_F(ModeRenderTest, OnlyWhatIsSpecialIsShownAndTheRestLeadsBack) {
    for (const rendering_s& row : renderings()) {
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
    EXPECT_EQ(ask(render("verbose")), quoted("Failure: value provided for 'transmitPower' is out of bounds. "
                                             "Must be between 0.000000 and 30.000000."));
    rssiFilterSupported = false;
    max_tx_pwr_x_10 = 360;
    accept(qdx, "SIMPLE", "");
    EXPECT_EQ(ask(render("verbose")), "Failure: RSSI filter not supported");
}

}  // namespace
