// SPDX-License-Identifier: MIT
// The published schema against the engine's own words: what it says about each
// value of a scenario that says every key, when that value is broken.
#include <regex>

#include "scenario.hpp"
#include "scenario_text.hpp"

namespace {

using names_t = std::set<std::string>;

names_t quotedIn(const std::string& text) {
    const std::regex quoted("\"([^\"]*)\"");
    names_t names;
    for (std::sregex_iterator match(text.begin(), text.end(), quoted), end; match != end; ++match) {
        names.insert((*match)[1]);
    }
    return names;
}

names_t keysOf(const json& object) {
    names_t keys;
    for (const auto& [key, value] : object.items()) {
        keys.insert(key);
    }
    return keys;
}

class Schema : public Radio {
  protected:
    json root;

    void SetUp() override {
        std::ifstream(TARNWICK_SOURCE_DIR "/engine/scenario.schema.json") >> root;
        setenv("RXE_SCENARIO", (directory / "scenario.json").c_str(), 1);
    }
    // What the engine says against the complete scenario with this value in it.
    std::string refusalOf(const json::json_pointer& pointer, const json& value) const {
        json scenario = complete;
        scenario[pointer] = value;
        writeTextFile(directory / "scenario.json", scenario.dump());
        rxe::scenario_s loaded;
        std::string line;
        const bool taken = rxe::loadScenario(&loaded, &line);
        EXPECT_EQ(taken, line.empty());
        return line;
    }
    // The node behind references, and of several the one that is for this value.
    const json& nodeFor(const json& reference, const json& value) const {
        const json& node = reference.contains("$ref")
                               ? root.at(json::json_pointer(reference["$ref"].get<std::string>().substr(1)))
                               : reference;
        if (!node.contains("anyOf") || node.contains("properties")) {
            return node;
        }
        for (const json& each : node["anyOf"]) {
            const json& branch = nodeFor(each, value);
            const json keys = branch.value("properties", json::object());
            const bool isOne =
                value.is_object() ? std::ranges::includes(keysOf(keys), keysOf(value)) &&
                                        (!value.contains("event") || keys["event"]["const"] == value["event"])
                                  : branch["type"] == (value.is_number() ? "integer" : value.type_name());
            if (isOne || (value.is_number() && branch["type"] == "number")) {
                return branch;
            }
        }
        ADD_FAILURE() << "no branch for " << value;
        return node;
    }
    const json& nodeAt(const json::json_pointer& pointer) const {
        if (pointer.empty()) {
            return root;
        }
        const json& parent = complete.at(pointer.parent_pointer());
        const json& node = nodeAt(pointer.parent_pointer());
        return nodeFor(parent.is_array() ? node.at("items") : node.at("properties").at(pointer.back()),
                       complete.at(pointer));
    }
    // What the node makes the engine say about a value of no use.
    static std::string wordsOf(const json& node) {
        const auto number = [&](const char* key) {
            std::array<char, 32> text{};
            std::snprintf(text.data(), text.size(), "%.10g", node[key].get<double>());
            return node[key].is_number_float() ? std::string(text.data()) : node[key].dump();
        };
        const std::string range =
            node.contains("minimum") ? number("minimum") + " to " + number("maximum") : "";
        std::smatch hex;
        const std::string pattern = node.value("pattern", "");
        if (std::regex_search(pattern, hex, std::regex(R"(Fa-f\]\{(\d)\}\)\{(\d+),(\d+)\})"))) {
            const int unit = std::stoi(hex[1]), least = std::stoi(hex[2]) * unit,
                      most = std::stoi(hex[3]) * unit;
            return unit == 8 ? "8 hexadecimal digits"
                             : "of " + std::to_string(least) + " to " + std::to_string(most) +
                                   " hexadecimal digits, a multiple of " + std::to_string(unit);
        }
        if (std::regex_search(pattern, hex, std::regex(R"((\[.*\])\{(\d+),(\d+)\}\$)")) &&
            pattern[1] == '[') {
            return "of " + hex[2].str() + " to " + hex[3].str() +
                   (hex[1] == "[0-9]" ? " digits" : " printable");
        }
        if (node.contains("maxItems")) {
            return node.contains("minItems") ? "three numbers"
                                             : "at most " + number("maxItems") + " elements";
        }
        return node.value("type", "") == "boolean"   ? "true or false"
               : node.value("type", "") == "integer" ? "a whole number from " + range
               : node.value("type", "") == "number"  ? "a number from " + range
                                                     : "must be";
    }
};

TEST_F(Schema, SaysWhatTheEngineSays) {
    ASSERT_EQ(refusalOf(json::json_pointer("/seed"), 1), "");
    names_t events, eventsMet;
    for (const auto& [name, node] : root["$defs"].items()) {
        if (name.ends_with("Event")) {
            events.insert(node["properties"]["event"]["const"]);
        }
    }
    auto paths = pathsOf(complete);
    paths.emplace_back(json::json_pointer(), "");
    for (const auto& [pointer, path] : paths) {
        SCOPED_TRACE(path);
        const json& node = nodeAt(pointer);
        const json& value = complete.at(pointer);
        for (const json& broken : {json(-1e9), json("\x01"), json{{"bogus", 1}}, json(nullptr)}) {
            const std::string line = refusalOf(pointer, broken);
            EXPECT_NE(line.find(path.empty() ? "scenario.json: " : ": \"" + path), std::string::npos) << line;
        }
        const std::string line = refusalOf(pointer, nullptr);
        if (node.contains("enum") || node.contains("const")) {
            const names_t words =
                pointer.back() == "operation"  // too many for a line
                    ? names_t{rxe::failableOperations.begin(), rxe::failableOperations.end()}
                    : quotedIn(line.substr(std::min(line.find("must be"), line.size())));
            EXPECT_EQ(words, node.contains("enum") ? node["enum"].get<names_t>() : events);
        } else if (!value.is_object() && pointer.back() != "parameter" && path != "tags") {
            const std::string words = wordsOf(node);
            const std::size_t at = line.find(words);
            EXPECT_TRUE(at != std::string::npos &&
                        std::isdigit(line[std::min(at + words.size(), line.size())]) == 0)
                << line << " for " << node;
        }
        if (!value.is_object()) {
            continue;
        }
        json more = value;
        more["bogus"] = 1;
        const std::string unknown = refusalOf(pointer, more);
        names_t keys = quotedIn(unknown.substr(std::min(unknown.find("known are"), unknown.size())));
        if (value.contains("event")) {
            eventsMet.insert(value["event"]);
            keys.insert({"at", "every", "event"});
        }
        EXPECT_EQ(keys, keysOf(node["properties"]));
        for (const auto& [key, child] : value.items()) {
            json less = value;
            less.erase(key);
            const auto required = node.value("required", names_t());
            EXPECT_EQ(refusalOf(pointer, less).find("is missing") != std::string::npos && key != "epcPrefix",
                      required.contains(key) && !(key == "epc" && path.starts_with("tags")))
                << key;
        }
    }
    EXPECT_EQ(eventsMet, events);
}

}  // namespace
