// SPDX-License-Identifier: MIT
// For tests of scenarios and control messages: the places in a JSON text.
#ifndef TESTS_ENGINE_SCENARIO_TEXT_HPP
#define TESTS_ENGINE_SCENARIO_TEXT_HPP

#include <nlohmann/json.hpp>
#include <utility>

#include "radio.hpp"

using json = nlohmann::json;

// A scenario that says every key that there is.
inline const json complete = json::parse(readTextFile(TARNWICK_SOURCE_DIR "/tests/engine/every_key.json"));

// Each value below the top: where it is, and its name as a refusal tells it.
inline std::vector<std::pair<json::json_pointer, std::string>> pathsOf(const json& document) {
    std::vector<std::pair<json::json_pointer, std::string>> paths;
    const std::function<void(const json&, const json::json_pointer&, const std::string&)> walk =
        [&](const json& value, const json::json_pointer& pointer, const std::string& path) {
            if (!path.empty()) {
                paths.emplace_back(pointer, path);
            }
            for (std::size_t i = 0; value.is_array() && i < value.size(); ++i) {
                walk(value[i], pointer / i, path + "[" + std::to_string(i) + "]");
            }
            const json none = json::object();
            for (const auto& [key, child] : (value.is_object() ? value : none).items()) {
                walk(child, pointer / key, path + (path.empty() ? "" : ".") + key);
            }
        };
    walk(document, json::json_pointer(), "");
    return paths;
}

#endif
