// SPDX-License-Identifier: MIT
// The manual pages hold what the programs take, and render without a warning.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <set>

#include "twctl/peer.hpp"

using nlohmann::json;
using words_t = std::vector<std::string>;

namespace {

std::string outputOf(const std::string& program, const words_t& arguments) {
    process_s process(program, {arguments, {}, {}});
    EXPECT_EQ(process.waitForExit(), 0) << process.output();
    return process.output();
}

// The page as a person reads it, its lines so long that no word is parted.
std::string render(const std::string& page) {
    const std::string text = outputOf("groff", {"-mdoc", "-ww", "-Tascii", "-P-c", "-P-b", "-P-u",
                                                "-rLL=2000n", TARNWICK_SOURCE_DIR "/docs/man/" + page});
    EXPECT_THAT(text, testing::Not(testing::HasSubstr("warning:"))) << page;
    EXPECT_GT(text.size(), 1000U) << page;
    return text;
}

// "name=" and "name=value" count as "name".
std::string nameOf(const std::string& word) {
    return word.substr(0, word.find('='));
}

bool isPartOfWord(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}

bool holdsWord(const std::string& text, const std::string& word) {
    for (std::size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) {
        const std::size_t end = at + word.size();
        if ((at == 0 || !isPartOfWord(text[at - 1])) && (end == text.size() || !isPartOfWord(text[end]))) {
            return true;
        }
    }
    return false;
}

// The names of all members that the schema knows, at any depth, and those of the
// events.
void collectKeys(const json& schema, std::set<std::string>* keys, std::set<std::string>* events) {
    if (schema.is_object() && schema.contains("properties")) {
        for (const auto& [key, value] : schema["properties"].items()) {
            keys->insert(key);
            if (key == "event") {
                events->insert(value.at("const"));
            }
        }
    }
    for (const json& part : schema) {
        if (part.is_structured()) {
            collectKeys(part, keys, events);
        }
    }
}

}  // namespace

TEST(ManPages, TwctlHoldsEveryWordThatItCompletes) {
    const std::string page = render("twctl.1");
    std::istringstream subcommands(outputOf(twctlProgram, {"complete", "twctl "}));
    int found = 0;
    for (std::string sub; std::getline(subcommands, sub);) {
        EXPECT_TRUE(holdsWord(page, sub)) << sub;
        for (const char* behind : {" ", " --", " custom "}) {
            std::istringstream words(outputOf(twctlProgram, {"complete", "--", "twctl " + sub + behind}));
            for (std::string word; sub != "engine" && std::getline(words, word); ++found) {
                EXPECT_TRUE(holdsWord(page, nameOf(word))) << sub << " " << word;
            }
        }
    }
    EXPECT_GT(found, 100);
}

TEST(ManPages, TheScenarioHoldsEveryKeyOfItsSchemaAndEveryEvent) {
    const std::string page = render("tarnwick-scenario.5");
    std::set<std::string> keys, events, completed;
    collectKeys(json::parse(readTextFile(TARNWICK_SOURCE_DIR "/engine/scenario.schema.json")), &keys,
                &events);
    EXPECT_GT(keys.size(), 60U);
    std::istringstream words(outputOf(twctlProgram, {"complete", "twctl engine "}));
    for (std::string event; std::getline(words, event);) {
        completed.insert(event);
    }
    EXPECT_EQ(completed, events);
    keys.merge(events);
    for (const std::string& key : keys) {
        EXPECT_TRUE(holdsWord(page, key)) << key;
    }
}

TEST(ManPages, TheDaemonsPageRenders) {
    const std::string page = render("tarnwick.8");
    for (const char* word : {"-v", "--cli", "--no_rxe", "RXE_SCENARIO", "RXE_REPLAY", "mode_config.json"}) {
        EXPECT_TRUE(holdsWord(page, word)) << word;
    }
}
