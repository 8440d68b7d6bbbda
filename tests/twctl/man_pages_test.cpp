// SPDX-License-Identifier: MIT
// The manual pages hold what the programs take, and render without a warning.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <regex>
#include <set>

#include "twctl/peer.hpp"

using nlohmann::json;
using testing::IsSupersetOf;
using words_t = std::vector<std::string>;
using names_t = std::set<std::string>;

namespace {

// The page as a person reads it, its lines so long that no word is parted.
std::string render(const std::string& page) {
    const std::string text = outputOf("groff", {"-mdoc", "-ww", "-Tascii", "-P-c", "-P-b", "-P-u",
                                                "-rLL=2000n", TARNWICK_SOURCE_DIR "/docs/man/" + page});
    EXPECT_THAT(text, testing::Not(testing::HasSubstr("warning:"))) << page;
    EXPECT_GT(text.size(), 1000U) << page;
    return text;
}

names_t matchesOf(const std::string& text, const std::regex& regex) {
    names_t found;
    for (std::sregex_iterator match(text.begin(), text.end(), regex), end; match != end; ++match) {
        found.insert((*match)[1]);
    }
    return found;
}

// What a page must hold of a completed line: of "name=" and "name=value" the name.
const std::regex line("([^=\n]+).*");

names_t wordsOf(const std::string& page) {
    return matchesOf(page, std::regex(R"(([\w-]+(\.\w+)*))"));
}

}  // namespace

TEST(ManPages, TwctlHoldsEveryWordThatItCompletes) {
    const names_t page = wordsOf(render("twctl.1"));
    names_t complete = matchesOf(outputOf(twctlProgram, {"complete", "twctl "}), line);
    for (const std::string& sub : names_t(complete)) {
        for (const char* behind : {" ", " --", " custom "}) {
            const words_t request{"complete", "--", "twctl " + sub + behind};
            complete.merge(sub == "engine" ? names_t() : matchesOf(outputOf(twctlProgram, request), line));
        }
    }
    EXPECT_GT(complete.size(), 80U);
    EXPECT_THAT(page, IsSupersetOf(complete));
}

TEST(ManPages, TheScenarioHoldsEveryKeyOfItsSchemaAndEveryEvent) {
    // The names of all members that the schema knows, at any depth, and those of the events.
    names_t keys, events;
    const json schema =
        json::parse(readTextFile(TARNWICK_SOURCE_DIR "/engine/scenario.schema.json")).flatten();
    for (const auto& [path, value] : schema.items()) {
        keys.merge(matchesOf(path, std::regex("/properties/([^/]+)")));
        if (path.ends_with("/properties/event/const")) {
            events.insert(value);
        }
    }
    EXPECT_GT(keys.size(), 60U);
    events.insert({"tag", "failing"});  // questions, which only the socket takes
    EXPECT_EQ(matchesOf(outputOf(twctlProgram, {"complete", "twctl engine "}), line), events);
    keys.merge(events);
    EXPECT_THAT(wordsOf(render("tarnwick-scenario.5")), IsSupersetOf(keys));
}

TEST(ManPages, TheGatewaysPageHoldsEveryKeyOfItsConfiguration) {
    const json schema =
        json::parse(readTextFile(TARNWICK_SOURCE_DIR "/gateway/twgate.schema.json")).flatten();
    names_t keys{"--config", "--check", "--verbose", "--version", "status", "--json", "--socket"};
    for (const auto& [path, value] : schema.items()) {
        keys.merge(matchesOf(path, std::regex("/properties/([^/]+)")));
    }
    EXPECT_GT(keys.size(), 25U);
    EXPECT_THAT(wordsOf(render("twgate.1")), IsSupersetOf(keys));
}

TEST(ManPages, TheDaemonsPageRenders) {
    EXPECT_THAT(wordsOf(render("tarnwick.8")),
                IsSupersetOf({"-v", "--cli", "--no_rxe", "RXE_SCENARIO", "RXE_REPLAY", "mode_config.json"}));
}
