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
    std::vector<bool> accepted;  // by the schema
    for (const table_section_s& section : readTable("unit/mode_refusals.txt")) {
        const std::size_t blank = section.heading.find(' ');
        const std::string frame = section.heading.substr(blank + 1);
        become(section.heading.substr(0, blank));
        const std::string mode = ask("verbose"), saved = savedRequest();
        for (const auto& [value, told] : section.rows) {
            const bool passes = told.starts_with(onlyTheReader);
            requests.push_back(std::string(frame).replace(frame.find(place), place.size(), value));
            accepted.push_back(passes);
            SCOPED_TRACE(requests.back().substr(0, 500) + " on " + readerFacts.modelName);
            EXPECT_EQ(ask(requests.back()), "Failure: " + told.substr(passes ? onlyTheReader.size() : 0));
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

    // Makes the section's reader and takes its request, which is returned.
    json takeRequestOf(const table_section_s& section) {
        std::string model, type;
        std::istringstream(section.heading) >> model >> type;
        const bool isPoor = section.of("reader") == "poor";
        become(model, isPoor ? 260 : 360);
        readerFacts.rssiFilterSupported = !isPoor;
        json request = {{"linkProfile", 201}, {"type", type}};
        request.update(objectOf(section, "request"));
        take(request.dump());
        return request;
    }

    // Sends the verbose rendering back, without these keys.
    static std::string sendBack(json rendering, const std::string& keys) {
        for (const std::string& key : tokenizeRequestByWhitespace(&keys)) {
            rendering.erase(key);
        }
        return client(rendering.dump());
    }
};

TEST_F(ModeRenderTest, WhatIsTakenIsShown) {
    for (const table_section_s& section : readTable("unit/mode_renderings.txt")) {
        SCOPED_TRACE(section.heading);
        json special = {{"query", {{"session", "S1"}}}};
        special.update(takeRequestOf(section));
        special.merge_patch(objectOf(section, "default"));
        EXPECT_EQ(render(""), special);
        const json everything = render("verbose"), shown = objectOf(section, "verbose");
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
        if (section.of("back").empty()) {
            section.rows.push_back({"back", "Success"});
        }
        for (const auto& [name, right] : section.rows) {
            if (name == "lost") {
                EXPECT_NE(docs.find(right), std::string::npos) << right;
            } else if (name.starts_with("back")) {
                EXPECT_EQ(sendBack(everything, name.substr(4)),
                          right == "Success" ? right : "Failure: " + right);
            }
        }
        everything.merge_patch(objectOf(section, "then verbose"));
        special.merge_patch(objectOf(section, "then default"));
        EXPECT_EQ(render("verbose"), everything) << json::diff(render("verbose"), everything);
        EXPECT_EQ(render(""), special);
    }
}

// Good requests, each of their values taken away or made another, one at a time, and those of
// the command reference, which break the rules between keys. What is taken the fixture holds
// against the schema; what is refused the schema refuses too, but for the rules that
// mode_refusals.txt has as the reader's own.
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
    const std::string commands = readTextFile(TARNWICK_SOURCE_DIR "/docs/commands.md");
    const std::regex mode("\n> mode (\\{.*\\})\n");
    become(qdx);
    for (std::sregex_iterator match(commands.begin(), commands.end(), mode), end; match != end; ++match) {
        change(json::parse((*match)[1].str()));
    }
    const std::vector<bool> accepted = acceptedBySchema(modeSchema, refused);
    EXPECT_GT(refused.size(), 1000U);
    for (std::size_t i = 0; i < refused.size(); ++i) {
        EXPECT_TRUE(!accepted[i] || rules.contains(replies[i])) << replies[i] << " " << refused[i];
    }
}

TEST_F(ModeRenderTest, AsSetTellsWhatIsWrongWithTheFile) {
    EXPECT_EQ(ask("as_set"), "Failure: could not open mode_config.json");
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
