// SPDX-License-Identifier: MIT
// For tests of scenarios and control messages: the places in a JSON text, and
// runs that tell which tags were heard.
#ifndef TESTS_ENGINE_SCENARIO_TEXT_HPP
#define TESTS_ENGINE_SCENARIO_TEXT_HPP

#include <cstdio>
#include <nlohmann/json.hpp>
#include <set>
#include <utility>

#include "radio.hpp"

using json = nlohmann::json;

// Each value below the top: where it is, and its name as a refusal tells it.
inline std::vector<std::pair<json::json_pointer, std::string>> pathsOf(const json& document) {
    std::vector<std::pair<json::json_pointer, std::string>> paths;
    const std::function<void(const json&, const json::json_pointer&, const std::string&)> walk =
        [&](const json& value, const json::json_pointer& pointer, const std::string& path) {
            if (!path.empty()) {
                paths.emplace_back(pointer, path);
            }
            if (!value.is_structured()) {
                return;
            }
            for (const auto& [key, child] : value.items()) {
                const std::string step = value.is_array() ? "[" + key + "]" : (path.empty() ? "" : ".") + key;
                walk(child,
                     value.is_array() ? pointer / static_cast<std::size_t>(std::stoul(key)) : pointer / key,
                     path + step);
            }
        };
    walk(document, json::json_pointer(), "");
    return paths;
}

class ScenarioRadio : public Radio {
  protected:
    // The EPCs that antenna 1 hears within these milliseconds, in hexadecimal digits.
    static std::set<std::string> epcsOfRun(std::uint32_t milliseconds) {
        configure({olio(1, RXE_STOP_DWELL_TIME, 100)});
        PER_RADIO_STOP_s stop = {};
        stop.duration = milliseconds;
        EXPECT_EQ(set(RXE_PARAM_RADIO_STOP, stop), RXE_OK);
        run();
        std::set<std::string> epcs;
        for (const packet_s& packet : packets) {
            TAG_INFO_s tag;
            if (packet.type == TAG_CUSTOM && format(packet, &tag) == RXE_OK) {
                std::string text;
                for (int i = 0; i < (tag.epcLength & 0x7FF) / 8; ++i) {
                    char digits[3];
                    std::snprintf(digits, sizeof digits, "%02x", tag.epc[i]);
                    text += digits;
                }
                epcs.insert(text);
            }
        }
        return epcs;
    }
};

#endif
