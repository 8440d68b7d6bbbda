// SPDX-License-Identifier: MIT
// The mode language as a client meets it: every refusal with its text
// (mode_refusals.txt), and the published schema, which may refuse nothing that a
// reader takes. And the mode in force as a client sees it: only what is special,
// everything, and the request itself; and the way back, a rendering as a request.
#include <fstream>
#include <nlohmann/json.hpp>
#include <regex>

#include "mode_request_fixture.hpp"

namespace {

using nlohmann::json;

struct refusal_s {
    std::string model, request, reply;
    bool bySchema;  // the schema refuses it as well
};

std::vector<refusal_s> refusals() {
    std::vector<refusal_s> rows;
    std::ifstream file(TARNWICK_SOURCE_DIR "/tests/unit/mode_refusals.txt");
    std::string model, frame;
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with("= ")) {
            frame = line.substr(line.find(' ', 2) + 1);
            model = line.substr(2, line.find(' ', 2) - 2);
        } else if (!line.empty() && line[0] != '#') {
            const std::size_t arrow = std::min(line.find(" => "), line.find(" -> "));
            const std::string reply = std::regex_replace(line.substr(arrow + 4), std::regex(R"(\\n)"), "\n");
            rows.push_back({model, quoted(framed(frame, unfolded(line.substr(0, arrow)))), quoted(reply),
                            line[arrow + 1] == '='});
        }
    }
    return rows;
}

TEST_F(ModeRequestTest, RefusalsAreToldAndLeaveNoTrace) {
    const std::vector<refusal_s> rows = refusals();
    ASSERT_GT(rows.size(), 300U);
    std::vector<std::string> requests;
    std::string mode, saved;
    for (const refusal_s& row : rows) {
        SCOPED_TRACE(row.request.substr(0, 500) + " on " + row.model);
        if (row.model != modelName) {
            become(row.model);
            mode = ask("verbose");
            saved = savedRequest();
        }
        EXPECT_EQ(ask(row.request), "Failure: " + row.reply);
        EXPECT_EQ(ask("verbose"), mode);
        EXPECT_EQ(savedRequest(), saved);
        EXPECT_EQ(engine_double::calls().size(), 0U);
        requests.push_back(row.request);
    }
    const std::vector<bool> accepted = acceptedBySchema(modeSchema, requests);
    for (std::size_t i = 0; i < rows.size(); ++i) {
        EXPECT_NE(accepted[i], rows[i].bySchema) << requests[i] << " on " << rows[i].model;
    }
}

// Good requests with each of their values taken away or made another, one at a time.
// The fixture holds what is taken against the schema.
TEST_F(ModeRequestTest, NothingTakenIsRefusedByTheSchema) {
    const json others = json::parse(R"([null,true,-1,0,0.5,300,1e12,"","x","12",[],[[]],[1],{},{"x":1}])");
    std::vector<std::string> refused;
    const auto change = [&](const json& request) {
        if (ask(request.dump()) != "Success") {
            refused.push_back(request.dump());
        }
    };
    for (const rendering_s& row : renderings()) {
        become(row.model, 360);  // the array reader's default
        const json request = json::parse(quoted(typed(row.type, row.keys)));
        take(request.dump());
        std::vector<std::string> places{""};  // of all values; the first stands for no change
        for (std::size_t i = 0; i < places.size(); ++i) {
            const json::json_pointer place(places[i]);
            if (const json& node = request.at(place); node.is_structured()) {
                for (const auto& item : node.items()) {
                    places.push_back(places[i] + "/" + item.key());
                }
            }
            for (const json& other : others) {
                json changed = request;
                changed.at(place) = other;
                change(changed);
            }
            change(i == 0 ? json() : request.patch({{{"op", "remove"}, {"path", places[i]}}}));
        }
    }
    const std::vector<bool> accepted = acceptedBySchema(modeSchema, refused);
    EXPECT_GT(refused.size(), 1000U);
    EXPECT_LT(std::count(accepted.begin(), accepted.end(), true) * 20, std::ssize(refused)) << "says little";
}

class ModeRenderTest : public ModeRequestTest {
  protected:
    // "verbose", or with an empty text only what is special.
    static std::string render(const std::string& how) {
        std::vector<std::string> tokens{"mode"};
        tokens.resize(how.empty() ? 1 : 2, how);
        std::string reply;
        handleModeRequest(&tokens, &reply);
        EXPECT_THAT(reply, testing::StartsWith("Success: "));
        return reply.substr(std::min<std::size_t>(reply.size(), 9));
    }
};

TEST_F(ModeRenderTest, OnlyWhatIsSpecialIsShownAndTheRestLeadsBack) {
    for (const rendering_s& row : renderings()) {
        SCOPED_TRACE(row.legend);
        if (modelName != row.model) {
            become(row.model, 360);  // the array reader's default
        }
        take(typed(row.type, row.keys));
        const auto object = [](const std::string& keys) { return json::parse(quoted("{" + keys + "}")); };
        json expected = object("'linkProfile':201,'type':'" + row.type + "','query':{'session':'S1'}");
        expected.update(object(row.keys));
        expected.merge_patch(object(row.changes));
        const std::string special = render("");
        const std::string everything = render("verbose");
        EXPECT_EQ(json::parse(special), expected);
        expected = json::parse(everything);
        expected.update(object(row.verbose));
        EXPECT_EQ(json::parse(everything), expected);
        EXPECT_EQ(ask(everything), row.refusal.empty() ? "Success" : quoted("Failure: " + row.refusal));
        EXPECT_EQ(render("verbose"), everything);
        EXPECT_EQ(render(""), special);
    }
}

TEST_F(ModeRenderTest, AsSetIsTheRequest) {
    EXPECT_EQ(ask("as_set"), "Failure: could not open mode_config.json");
    become(pn51);
    const std::string good = quoted("{'linkProfile':201,'type':'SIMPLE','unknown':[1,'é']}");
    take(good);
    EXPECT_EQ(ask("{'type':'SIMPLE','antennas':[]}").substr(0, 8), "Failure:");
    EXPECT_EQ(ask("as_set"), "Success: " + good);
    const std::pair<const char*, const char*> files[] = {
        {"{'mode':", "Failure: Unable to get mode as_set"},
        {"[]", "Failure: 'mode' must be included in object"},
        {"{'mode':1}", "Failure: 'mode' field must contain an object"}};
    for (const auto& [content, reply] : files) {
        writeTextFile("mode_config.json", quoted(content));
        EXPECT_EQ(ask("as_set"), quoted(reply)) << content;
    }
}

// What only one of the renderings shows, what none can say: half a second; and what
// no request can say.
TEST_F(ModeRenderTest, WhatIsLostOnTheWay) {
    become(pn51);
    take(typed("SIMPLE", "'radioStopConditions':{'duration':0.5}"));
    EXPECT_EQ(json::parse(render(""))["radioStopConditions"], (json{{"duration", 0}}));
    EXPECT_EQ(json::parse(render("verbose"))["reportFilter"],
              (json{{"type", "RADIO_WIDE"}, {"duration", 4294967295}}));
    // The defaults of BEARING hold a field that no word of the metadata sets.
    become(qdx, 360);
    take(typed("PORTAL_DIRECTIONALITY"));
    EXPECT_FALSE(json::parse(render("verbose")).contains("modeSpecificSettings"));
    take(typed("BEARING", "'modeSpecificSettings':{'primaryBeamPolarization':'THETA'}"));
    EXPECT_EQ(render(""), quoted("{'linkProfile':201,'modeSpecificSettings':{'primaryBeamPolarization':"
                                 "'THETA'},'query':{'session':'S0'},'type':'BEARING'}"));
    const std::string everything = render("verbose");
    take(everything);
    EXPECT_EQ(render("verbose"), everything);
    EXPECT_EQ(json::parse(render(""))["tagMetaData"], (json{"ANTENNA", "RSSI", "BEARING"}));
}

}  // namespace
