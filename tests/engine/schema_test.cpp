// SPDX-License-Identifier: MIT
// The published schema against the engine: each takes the scenarios that the other takes.
#include <nlohmann/json.hpp>
#include <regex>

#include "radio.hpp"
#include "scenario.hpp"
#include "support/json_schema.hpp"

namespace {

using json = nlohmann::json;
using pointer_t = json::json_pointer;
using names_t = std::set<std::string>;

// Rules that no schema can tell.
const std::regex betweenKeys(
    "leaves no room|is longer than|later than|does not go with|names port|"
    "digits with this|epcPrefix\" is missing");

names_t matchesIn(const std::string& text, const char* expression) {
    const std::regex regex(expression);
    names_t found;
    for (std::sregex_iterator match(text.begin(), text.end(), regex), end; match != end; ++match) {
        found.insert((*match)[1]);
    }
    return found;
}

// Pointers to all values; "" is the whole.
names_t placesIn(const json& document) {
    names_t places{""};
    const json leaves = document.flatten();
    for (const auto& [leaf, value] : leaves.items()) {
        for (pointer_t at(leaf); !at.empty(); at = at.parent_pointer()) {
            places.insert(at.to_string());
        }
    }
    return places;
}

// The bounds that the engine tells of a value, and what lies on both sides of them: as
// numbers, and as the lengths of texts.
void addAround(const std::string& told, std::vector<json>* values) {
    for (const std::string& number : matchesIn(told, "(-?\\d+(\\.\\d+)?)")) {
        const json bound = json::parse(number);
        const double near = bound.get<double>();
        values->insert(values->end(), {bound, near - 1e-6, near + 1e-6});
        if (bound.is_number_integer()) {
            values->insert(values->end(), {bound.get<std::int64_t>() - 1, bound.get<std::uint64_t>() + 1});
        }
        for (double length = near - 1; near > 0 && near < 20000 && length <= near + 2; ++length) {
            values->push_back(std::string(static_cast<std::size_t>(length), '0'));
        }
    }
}

// Scenarios that together say every key, each value of them replaced: by wrong ones, by the
// words of the schema, by what the engine tells of bounds, by itself with a key or an element
// less and with each other key or an element more.
TEST_F(Radio, TheSchemaTakesWhatTheEngineTakes) {
    const std::string schemaFile = TARNWICK_SOURCE_DIR "/engine/scenario.schema.json";
    const json schema = json::parse(readTextFile(schemaFile));
    const json scenarios = json::parse(readTextFile(TARNWICK_SOURCE_DIR "/tests/engine/every_key.json"));
    setenv("RXE_SCENARIO", (directory / "scenario.json").c_str(), 1);
    const auto refusalOf = [&](const json& scenario) {
        writeTextFile(directory / "scenario.json", scenario.dump());
        rxe::scenario_s loaded;
        std::string line;
        const bool isTaken = rxe::loadScenario(&loaded, &line);
        EXPECT_EQ(isTaken, line.empty());
        return line.substr(std::min(line.size(), line.find(".json: ") + 7));
    };
    names_t keys;  // of the schema, and those that the engine tells
    std::set<json> words;
    for (const std::string& place : placesIn(schema)) {
        keys.merge(matchesIn(place, "/properties/([^/]+)"));
        if (std::regex_search(place, std::regex("/(enum/.*|const)$"))) {
            words.insert(schema[pointer_t(place)]);
        }
    }
    std::map<std::string, json> members;  // and elements, whose numbers are keys that nobody knows
    for (const std::string& place : placesIn(scenarios)) {
        if (const pointer_t at(place); !at.empty()) {
            members[at.back()] = scenarios[at];
        }
    }

    std::vector<std::string> texts;
    std::vector<bool> taken;
    for (const json& scenario : scenarios) {
        for (const std::string& place : placesIn(scenario)) {
            json changed = scenario;
            json& value = changed[pointer_t(place)];
            std::vector<json> others{value, true, -1e9, "", "\x01", nullptr, {{"bogus", 1}}};
            if (words.contains(value)) {
                others.insert(others.end(), words.begin(), words.end());
            }
            if (value.is_array()) {
                others.emplace_back(value).push_back(value[0]);
                others.emplace_back(value).erase(0);
            }
            for (const auto& [key, member] : value.is_object() ? members : std::map<std::string, json>()) {
                json& other = others.emplace_back(value);
                if (other.erase(key) == 0) {
                    other[key] = member;
                }
            }
            value = nullptr;
            const std::string told = refusalOf(changed);
            // As the engine names it: "tags[2].epc"
            std::string path = std::regex_replace(place, std::regex("/(\\d+)"), "[$1]");
            std::ranges::replace(path, '/', '.');
            EXPECT_TRUE(told.starts_with(path.replace(0, 1, place.empty() ? "must" : "\""))) << told;
            addAround(told, &others);
            for (const json& other : others) {
                value = other;
                const std::string line = refusalOf(changed);
                keys.merge(
                    matchesIn(line.substr(std::min(line.find("known are"), line.size())), "\"(.+?)\""));
                texts.push_back(changed.dump());
                taken.push_back(line.empty() || std::regex_search(line, betweenKeys));
            }
        }
    }
    const std::vector<bool> accepted = acceptedBySchema(schemaFile, texts);
    for (std::size_t i = 0; i < texts.size(); ++i) {
        EXPECT_EQ(accepted[i], taken[i]) << texts[i];
    }
    for (const std::string& key : keys) {
        EXPECT_TRUE(members.contains(key)) << key << " stands in no scenario";
    }
    for (const char* const list : {"antennas", "gpi", "events", "failing"}) {
        const std::string most = schema["properties"][list]["maxItems"].dump();
        EXPECT_TRUE(refusalOf({{list, 0}}).ends_with("at most " + most + " elements")) << list;
    }
}

}  // namespace
