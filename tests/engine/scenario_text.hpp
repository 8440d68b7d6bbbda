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

// Says every key that there is.
inline const json complete = json::parse(R"({
  "library": "2.2.40.0", "firmware": "2.1.50.0", "model": "any", "seed": 5, "clock": "fast",
  "tagsPerSecond": 300, "maxTxPower": 31.5, "control": "none", "gpi": ["low", "high"],
  "antennas": [1, {"port": 2, "position": [0, 1, 2.5], "gain": 7, "connected": false}],
  "air": {"exponent": 2.2, "shadow": 1, "fade": 0.5, "errors": false},
  "temperatures": {"pa": {"idle": 40, "rise": 30, "seconds": 5, "critical": 100}, "ambient": 25},
  "database": {"capacity": 500},
  "tags": [
    {"epc": "303425E7", "tid": "E2801160", "user": "0001", "killPassword": "00000001",
     "accessPassword": "00000002", "xpc": "0001", "sensitivity": -20, "position": [1, 1, 1],
     "velocity": [0, 0.5, 0], "enter": 1, "leave": 2,
     "locks": {"kill": "locked", "access": "unlocked", "epc": "locked", "tid": "permalocked",
               "user": "permaunlocked"}},
    {"count": 4, "scheme": "sgtin-96", "companyPrefix": "0614141", "itemReference": "100000", "filter": 1,
     "firstSerial": 9, "tidPrefix": "E280", "user": "0000", "killPassword": "00000003",
     "accessPassword": "00000004", "xpc": "00018000", "sensitivity": -19, "locks": {"user": "locked"}, "velocity": [0, 1, 0],
     "placement": {"type": "grid", "from": [0, 0, 0], "to": [1, 1, 1], "columns": 2, "rows": 2},
     "arrivals": {"every": 2, "first": 1, "jitter": 0.5, "stay": 1, "limit": 3}},
    {"count": 2, "scheme": "prefix", "epcPrefix": "AB", "epcBits": 112, "enter": 3, "leave": 4}
  ],
  "failing": [{"operation": "RXE_start", "parameter": "0x0405", "status": 9, "count": 1, "after": 2}],
  "events": [
    {"at": 1, "every": 5, "event": "gpi", "port": 1, "level": "high"},
    {"at": 1, "event": "antenna", "port": 1, "state": "lost"},
    {"at": 1, "event": "pa", "port": 1, "state": "high"},
    {"at": 1, "event": "temperature", "sensor": "pa", "degrees": 80},
    {"at": 1, "event": "fail", "operation": "RXE_stop", "parameter": 3, "status": 9, "count": 1, "after": 0},
    {"at": 1, "event": "enter", "epc": "AA01", "tid": "E2801160", "position": [0, 0, 1],
     "stay": 3, "user": "0001", "killPassword": "00000001", "accessPassword": "00000002", "xpc": "0001",
     "sensitivity": -20, "velocity": [0, 0.5, 0], "locks": {"epc": "locked"}},
    {"at": 1, "event": "move", "epc": "AA01", "position": [0, 0, 1], "velocity": [1, 0, 0]},
    {"at": 1, "event": "leave", "epc": "AA01"},
    {"at": 1, "event": "database", "state": "full"},
    {"at": 1, "event": "error", "text": "made up"},
    {"at": 1, "event": "apiError", "code": 259},
    {"at": 1, "event": "fault"}
  ]
})");

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
        EXPECT_EQ(set(RXE_PARAM_RADIO_STOP, stopRecord(milliseconds, 0)), RXE_OK);
        run();
        std::set<std::string> epcs;
        for (const TAG_INFO_s& tag : recordsOf<TAG_INFO_s>(TAG_CUSTOM)) {
            std::string text;
            for (int i = 0; i < (tag.epcLength & 0x7FF) / 8; ++i) {
                char digits[3];
                std::snprintf(digits, sizeof digits, "%02x", tag.epc[i]);
                text += digits;
            }
            epcs.insert(text);
        }
        return epcs;
    }
};

#endif
