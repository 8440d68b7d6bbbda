// SPDX-License-Identifier: MIT
// The mode language as a client meets it: every refusal with its text
// (mode_refusals.txt), and the published schema, which may refuse nothing that a
// reader takes. And the mode in force as a client sees it: only what is special,
// everything, and the request itself; and the way back, a rendering as a request.
#include <nlohmann/json.hpp>
#include <regex>

#include "mode/accessors.hpp"
#include "mode_request_fixture.hpp"
#include "requests.hpp"
#include "support/table.hpp"
#include "util.hpp"

namespace {

using nlohmann::json;

TEST_F(ModeRequestTest, RefusalsAreToldAndLeaveNoTrace) {
    const std::string place = "...", onlyTheReader = "(only the reader) ";
    std::vector<std::string> requests;
    std::vector<bool> bySchema;  // the schema refuses it as well
    std::string frame, mode, saved;
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with("= ")) {
            frame = line.substr(line.find(' ', 2) + 1);
            become(line.substr(2, line.find(' ', 2) - 2));
            mode = ask("verbose");
            saved = savedRequest();
        } else if (!line.empty() && line[0] != '#') {
            const std::size_t arrow = std::min(line.find(" => "), line.find(" -> "));
            const std::string reply = std::regex_replace(line.substr(arrow + 4), std::regex(R"(\\n)"), "\n");
            requests.push_back(quoted(framed(frame, unfolded(line.substr(0, arrow)))));
            bySchema.push_back(line[arrow + 1] == '=');
            SCOPED_TRACE(requests.back().substr(0, 500) + " on " + readerFacts.modelName);
            EXPECT_EQ(ask(requests.back()), "Failure: " + quoted(reply));
            EXPECT_EQ(ask("verbose"), mode);
            EXPECT_EQ(savedRequest(), saved);
            EXPECT_EQ(engine_double::calls().size(), 0U);
        }
    }
    const std::vector<bool> verdicts = acceptedBySchema(modeSchema, requests);
    for (std::size_t i = 0; i < requests.size(); ++i) {
        EXPECT_EQ(verdicts[i], accepted[i]) << requests[i];
    }
}

class ModeRenderTest : public ModeRequestTest {
  protected:
    // As a client asks, whose words are joined.
    static std::string client(const std::string& words) {
        std::string request = "mode " + words, reply;
        requests::ProcessRequest(&request, &reply);
        return reply;
    }
    // "verbose", or with an empty text only what is special.
    static json render(const std::string& how) {
        const std::string reply = client(how);
        EXPECT_THAT(reply, testing::StartsWith("Success: "));
        return json::parse(reply.substr(std::min<std::size_t>(reply.size(), 9)));
    }
    // The row's JSON object, which is empty when there is no such row.
    static json objectOf(const table_section_s& section, const std::string& name) {
        const std::string text = section.of(name);
        return json::parse(text.empty() ? "{}" : text);
    }

    // Sends a request and, when it is taken, the verbose rendering. Whether it was taken.
    bool thereAndBack(const json& request) {
        if (ask(request.dump()) != "Success") {
            return false;
        }
        SCOPED_TRACE(request.dump() + " on " + readerFacts.modelName);
        const std::string special = render("");
        std::string expected = render("verbose") + "\n" + special;
        json sent = json::parse(render("verbose"));
        const std::string words = std::string(readerFacts.rssiFilterSupported ? "" : "poor;") +
                                  (isTagDataMemoryEnabled(nullptr) ? "memory;" : "") +
                                  (json::parse(special).contains("tagMetaData") ? "" : "usual;");
        for (section_s& loss : losses) {
            const std::string shown = words + sent.dump() + "\n" + special;
            const auto shows = [&](const std::string& text) { return shown.find(text) != std::string::npos; };
            if (!std::ranges::all_of(loss.lines['?'], shows) || std::ranges::any_of(loss.lines['^'], shows)) {
                continue;
            }
            ++loss.met;
            for (const std::string& change : loss.lines['~']) {
                const std::size_t arrow = change.find(" => ");
                expected = std::regex_replace(expected, std::regex(change.substr(0, arrow)),
                                              change.substr(arrow + 4));
            }
            if (loss.lines.contains('!')) {
                EXPECT_EQ(client(sent.dump()), "Failure: " + loss.line('!'));
                if (sent.erase(loss.line('-')) == 0) {
                    return true;
                }
            }
        }
        EXPECT_EQ(client(sent.dump()), "Success") << sent;
        if (isForSchema) {
            taken.insert(sent.dump());
        }
        EXPECT_EQ(render("verbose") + "\n" + render(""), expected);
        return true;
    }

    // Sends the verbose rendering back, without these keys.
    static std::string sendBack(json rendering, const std::string& keys) {
        for (const std::string& key : tokenizeRequestByWhitespace(&keys)) {
            rendering.erase(key);
        }
        return client(rendering.dump());
    }
};

// Good requests; each of their values taken away or made another, one at a time; and
// two keys of the others on that model. The fixture holds what is taken against the schema.
TEST_F(ModeRenderTest, WhatIsTakenIsShownAndComesBack) {
    const json others = json::parse(R"([null,true,-1,0,0.5,300,1e12,"","x","12",[],[[]],[1],{},{"x":1}])");
    std::vector<std::string> refused;
    const auto change = [&](const json& request) {
        if (!thereAndBack(request)) {
            refused.push_back(request.dump());
        }
    };
    std::map<std::string, std::vector<json>> requestsOf;  // of the model
    std::map<std::string, std::vector<std::pair<std::string, json>>> keysOf;
    for (const section_s& row : sectionsOf("mode_renderings.txt")) {
        SCOPED_TRACE(row.head);
        const auto object = [&](char sign) { return json::parse("{" + row.line(sign) + "}"); };
        const json keys = object(' '), shown = object('+');
        std::string model, type;
        std::istringstream(row.head) >> model >> type;
        json request = {{"linkProfile", 201}, {"type", type}};
        json special = request;
        special["query"]["session"] = "S1";
        request.update(keys);
        special.update(keys);
        special.merge_patch(object('~'));

        become(model, 260);
        readerFacts.rssiFilterSupported = false;
        change(request);
        become(model, 360);  // the array reader's default
        take(request.dump());
        EXPECT_EQ(json::parse(render("")), special);
        const json everything = json::parse(render("verbose"));
        for (const auto& item : shown.items()) {
            EXPECT_EQ(everything.value(item.key(), json()), item.value()) << item.key();
        }
    }
}

// The verbose rendering, sent as a request, gives the same mode, but for what the document says.
TEST_F(ModeRenderTest, WhatIsShownComesBack) {
    const std::string docs = std::regex_replace(readTextFile(TARNWICK_SOURCE_DIR "/docs/mode-language.md"),
                                                std::regex("\\s+"), " ");
    for (table_section_s& section : readTable("unit/mode_renderings.txt")) {
        SCOPED_TRACE(section.heading);
        takeRequestOf(section);
        json everything = render("verbose"), special = render("");
        bool isTaken = false;
        if (section.of("back").empty()) {
            section.rows.push_back({"back", "Success"});
        }
        for (const auto& [name, right] : section.rows) {
            if (name == "lost") {
                EXPECT_NE(docs.find(right), std::string::npos) << right;
            } else if (name.starts_with("back")) {
                isTaken = right == "Success";
                EXPECT_EQ(sendBack(everything, name.substr(4)), isTaken ? right : "Failure: " + right);
            }
        }
        everything.merge_patch(objectOf(section, "then verbose"));
        special.merge_patch(objectOf(section, "then default"));
        EXPECT_EQ(render("verbose"), everything) << json::diff(render("verbose"), everything);
        EXPECT_EQ(render(""), special);
    }
}

// Good requests, each of their values taken away or made another, one at a time. What is
// taken the fixture holds against the schema; what is refused the schema refuses too, but for
// the rules that mode_refusals.txt has as the reader's own.
TEST_F(ModeRenderTest, TheSchemaTakesWhatTheReaderTakes) {
    const auto rule = [](const std::string& told) {  // whatever its numbers and names
        return std::regex_replace(told, std::regex(R"(\([^ ]+\)|\d+(\.\d+)?)"), "#");
    };
    std::set<std::string> rules;
    for (const table_section_s& section : readTable("unit/mode_refusals.txt")) {
        for (const table_row_s& row : section.rows) {
            if (row.right.starts_with("(only the reader) ")) {
                rules.insert("Failure: " + rule(row.right.substr(18)));
            }
        }
    }
    const json others = json::parse(R"([null,true,-1,0,0.5,300,1e12,"","x","12",[],[[]],[1],{},{"x":1}])");
    std::vector<std::string> refused, replies;
    const auto change = [&](const json& request) {
        if (const std::string reply = ask(request.dump()); reply != "Success") {
            refused.push_back(request.dump());
            replies.push_back(rule(reply));
        }
    };
    for (const table_section_s& section : readTable("unit/mode_renderings.txt")) {
        const json request = takeRequestOf(section);
        std::vector<std::string> places{""};  // of all values; the first stands for the whole
        for (std::size_t i = 0; i < places.size(); ++i) {
            const json::json_pointer place(places[i]);
            if (const json& node = request.at(place); node.is_structured() && node.size() < 20) {
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
    for (std::size_t i = 0; i < refused.size(); ++i) {
        EXPECT_TRUE(!accepted[i] || rules.contains(replies[i])) << replies[i] << " " << refused[i];
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

}  // namespace
