// SPDX-License-Identifier: MIT
// The mode language as a client meets it: every refusal with its text
// (mode_refusals.txt), and the published schema, which may refuse nothing that a
// reader takes.
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

// Writes "<3*x>" out as "x,x,x" and "<3.x>" as "xxx".
std::string unfolded(std::string text) {
    static const std::regex repeat("<([0-9]+)([*.])(.*?)>");
    for (std::smatch match; std::regex_search(text, match, repeat);) {
        std::string items;
        for (int i = std::stoi(match[1]); i > 0; --i) {
            items += match[3].str() + (match[2] == "*" && i > 1 ? "," : "");
        }
        text.replace(static_cast<std::size_t>(match.position()), match[0].str().size(), items);
    }
    return text;
}

std::vector<refusal_s> refusals() {
    std::vector<refusal_s> rows;
    std::ifstream file(TARNWICK_SOURCE_DIR "/tests/unit/mode_refusals.txt");
    std::string model, frame;
    for (std::string line; std::getline(file, line);) {
        if (line.empty() || line[0] == '#') {
            continue;
        }
        if (line.starts_with("= ")) {
            frame = line.substr(line.find(' ', 2) + 1);
            model = line.substr(2, line.find(' ', 2) - 2);
            continue;
        }
        const std::size_t arrow = std::min(line.find(" => "), line.find(" -> "));
        const std::string reply = std::regex_replace(line.substr(arrow + 4), std::regex(R"(\\n)"), "\n");
        rows.push_back({model, quoted(framed(frame, unfolded(line.substr(0, arrow)))), quoted(reply),
                        line[arrow + 1] == '='});
    }
    return rows;
}

TEST_F(ModeRequestTest, RefusalsAreToldAndLeaveNoTrace) {
    const std::vector<refusal_s> rows = refusals();
    ASSERT_GT(rows.size(), 300U);
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
    }
    rssiFilterSupported = false;
    EXPECT_EQ(ask(simple("'rssiFilter':{}")), "Failure: RSSI filter not supported");
}

TEST(ModeSchema, RefusesWhatItCan) {
    const std::vector<refusal_s> rows = refusals();
    std::vector<std::string> texts;
    for (const refusal_s& row : rows) {
        texts.push_back(row.request);
    }
    const std::vector<bool> accepted = acceptedBySchema(modeSchema, texts);
    for (std::size_t i = 0; i < rows.size(); ++i) {
        EXPECT_NE(accepted[i], rows[i].bySchema) << rows[i].request << " on " << rows[i].model;
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
        become(row.model);
        max_tx_pwr_x_10 = 360;  // the array reader's default
        const json request = json::parse(quoted("{'type':'" + row.type + "','linkProfile':201" +
                                                (row.keys.empty() ? "" : ",") + row.keys + "}"));
        EXPECT_EQ(ask(request.dump()), "Success") << row.legend;
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
    const auto missed = std::count(accepted.begin(), accepted.end(), true);
    EXPECT_GT(refused.size(), 1000U);
    EXPECT_LT(missed * 20, static_cast<std::ptrdiff_t>(refused.size())) << "the schema says little";
}

}  // namespace
