// SPDX-License-Identifier: MIT
#include "scenario.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <nlohmann/json.hpp>
#include <span>
#include <string_view>

namespace rxe {
namespace {

using json = nlohmann::json;

// Why a value was refused, as the end of a sentence; empty when it was taken.
using refusal_t = std::string;

struct key_s {
    std::string_view name;
    refusal_t (*take)(const json& value, scenario_s* scenario);
};

template <typename Number>
refusal_t takeInteger(const json& value, std::int64_t low, std::int64_t high, Number* out) {
    const std::string refusal =
        "must be a whole number from " + std::to_string(low) + " to " + std::to_string(high);
    if (!value.is_number_integer() ||
        (value.is_number_unsigned() && value > std::numeric_limits<std::int64_t>::max())) {
        return refusal;
    }
    const auto number = value.get<std::int64_t>();
    if (number < low || number > high) {
        return refusal;
    }
    *out = static_cast<Number>(number);
    return {};
}

//   "2.1.50.0"
refusal_t takeVersion(const json& value, REL_VERSION_s* version) {
    const refusal_t refusal = "must be a text of four numbers from 0 to 255, such as \"2.1.50.0\"";
    if (!value.is_string()) {
        return refusal;
    }
    const auto& text = value.get_ref<const std::string&>();
    const char* at = text.data();
    const char* const end = at + text.size();
    std::array<std::uint8_t, 4> numbers{};
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        if (i > 0 && (at == end || *at++ != '.')) {
            return refusal;
        }
        const auto [next, fault] = std::from_chars(at, end, numbers[i]);
        if (fault != std::errc{}) {
            return refusal;
        }
        at = next;
    }
    if (at != end) {
        return refusal;
    }
    *version = {numbers[0], numbers[1], numbers[2], numbers[3]};
    return {};
}

refusal_t takeHex(const json& value, std::size_t maxBytes, std::vector<std::uint8_t>* bytes) {
    const refusal_t refusal = "must be a text of hexadecimal digits, an even number of them and at most " +
                              std::to_string(maxBytes * 2);
    if (!value.is_string()) {
        return refusal;
    }
    const auto& text = value.get_ref<const std::string&>();
    if (text.empty() || text.size() % 2 != 0 || text.size() > maxBytes * 2) {
        return refusal;
    }
    std::vector<std::uint8_t> taken(text.size() / 2);
    for (std::size_t i = 0; i < taken.size(); ++i) {
        const char* const pair = text.data() + 2 * i;
        const auto [next, fault] = std::from_chars(pair, pair + 2, taken[i], 16);
        if (fault != std::errc{} || next != pair + 2) {
            return refusal;
        }
    }
    *bytes = std::move(taken);
    return {};
}

refusal_t takeDigits(const json& value, std::size_t low, std::size_t high, std::string* digits) {
    if (value.is_string()) {
        const auto& text = value.get_ref<const std::string&>();
        if (text.size() >= low && text.size() <= high &&
            text.find_first_not_of("0123456789") == std::string::npos) {
            *digits = text;
            return {};
        }
    }
    return "must be a text of " + std::to_string(low) + " to " + std::to_string(high) + " digits";
}

refusal_t takeKeys(const json& object, std::span<const key_s> keys, const std::string& path,
                   scenario_s* scenario);

constexpr std::array tagKeys{
    key_s{"count", [](const json& v, scenario_s* s) { return takeInteger(v, 0, 100000, &s->tags.count); }},
    key_s{"companyPrefix",
          [](const json& v, scenario_s* s) { return takeDigits(v, 6, 12, &s->tags.sgtin.companyPrefix); }},
    key_s{"itemReference",
          [](const json& v, scenario_s* s) { return takeDigits(v, 1, 7, &s->tags.sgtin.itemReference); }},
    key_s{"filter", [](const json& v, scenario_s* s) { return takeInteger(v, 0, 7, &s->tags.sgtin.filter); }},
    key_s{"epcPrefix", [](const json& v, scenario_s* s) { return takeHex(v, 60, &s->tags.epcPrefix); }},
    key_s{"epcBits",
          [](const json& v, scenario_s* s) -> refusal_t {
              refusal_t refusal = takeInteger(v, 16, 496, &s->tags.epcBits);
              return refusal.empty() && s->tags.epcBits % 16 != 0 ? "must be a multiple of 16" : refusal;
          }},
    key_s{"firstSerial",
          [](const json& v, scenario_s* s) {
              return takeInteger(v, 0, (std::int64_t{1} << 38) - 100001, &s->tags.firstSerial);
          }},
    key_s{"tidPrefix", [](const json& v, scenario_s* s) { return takeHex(v, 26, &s->tags.tidPrefix); }},
};

constexpr std::array temperatureKeys{
    key_s{"pa", [](const json& v, scenario_s* s) { return takeInteger(v, -128, 127, &s->paTemp); }},
    key_s{"ambient", [](const json& v, scenario_s* s) { return takeInteger(v, -128, 127, &s->ambTemp); }},
};

refusal_t takeAntennas(const json& value, scenario_s* scenario) {
    if (!value.is_array()) {
        return "must be an array of antenna numbers from 1 to 16";
    }
    std::uint16_t connected = 0;
    for (const json& element : value) {
        int antenna = 0;
        if (refusal_t refusal = takeInteger(element, 1, 16, &antenna); !refusal.empty()) {
            return "holds an element that " + refusal;
        }
        connected = static_cast<std::uint16_t>(connected | 1U << (antenna - 1));
    }
    scenario->antennasConnected = connected;
    return {};
}

refusal_t takeGpi(const json& value, scenario_s* scenario) {
    const refusal_t refusal = "must be an array of up to four words \"low\" or \"high\", port 1 first";
    if (!value.is_array() || value.size() > scenario->gpiHigh.size()) {
        return refusal;
    }
    for (std::size_t i = 0; i < value.size(); ++i) {
        if (value[i] != "low" && value[i] != "high") {
            return refusal;
        }
        scenario->gpiHigh[i] = value[i] == "high";
    }
    return {};
}

refusal_t takeClock(const json& value, scenario_s* scenario) {
    if (value != "real" && value != "fast") {
        return "must be \"real\" or \"fast\"";
    }
    scenario->fastClock = value == "fast";
    return {};
}

refusal_t takeRate(const json& value, scenario_s* scenario) {
    if (!value.is_number() || value < 1 || value > 100000) {
        return "must be a number from 1 to 100000";
    }
    scenario->tagsPerSecond = value.get<double>();
    return {};
}

refusal_t takePower(const json& value, scenario_s* scenario) {
    if (!value.is_number() || value < 0 || value > 40) {
        return "must be a number of dBm from 0 to 40";
    }
    scenario->maxTxPower = static_cast<std::int16_t>(std::lround(value.get<double>() * 10));
    return {};
}

constexpr std::array topKeys{
    key_s{"library", [](const json& v, scenario_s* s) { return takeVersion(v, &s->library); }},
    key_s{"firmware", [](const json& v, scenario_s* s) { return takeVersion(v, &s->firmware); }},
    key_s{"seed",
          [](const json& v, scenario_s* s) {
              return takeInteger(v, 0, std::numeric_limits<std::int64_t>::max(), &s->seed);
          }},
    key_s{"clock", takeClock},
    key_s{"tagsPerSecond", takeRate},
    key_s{"maxTxPower", takePower},
    key_s{"antennas", takeAntennas},
    key_s{"gpi", takeGpi},
    key_s{"temperatures",
          [](const json& v, scenario_s* s) { return takeKeys(v, temperatureKeys, "temperatures.", s); }},
    key_s{"tags", [](const json& v, scenario_s* s) { return takeKeys(v, tagKeys, "tags.", s); }},
};

// A refusal that names its key has a quote in front; the others get theirs here.
refusal_t takeKeys(const json& object, std::span<const key_s> keys, const std::string& path,
                   scenario_s* scenario) {
    if (!object.is_object()) {
        return "must be an object";
    }
    for (const auto& [name, value] : object.items()) {
        const auto key =
            std::find_if(keys.begin(), keys.end(), [&](const key_s& k) { return k.name == name; });
        refusal_t refusal = key == keys.end() ? "is not a known key" : key->take(value, scenario);
        if (!refusal.empty()) {
            return refusal.front() == '"' ? refusal : '"' + path + name + "\" " + refusal;
        }
    }
    return {};
}

// Rules between keys, each told under the key that has to change.
refusal_t checkTogether(const scenario_s& scenario) {
    const tag_generator_s& tags = scenario.tags;
    if (tags.epcPrefix.empty()) {
        if (tags.sgtin.companyPrefix.size() + tags.sgtin.itemReference.size() != 13) {
            return "\"tags.itemReference\" must have 13 digits together with \"tags.companyPrefix\"";
        }
        return {};
    }
    const std::size_t serialBits =
        tags.epcBits < tags.epcPrefix.size() * 8 ? 0 : tags.epcBits - tags.epcPrefix.size() * 8;
    if (serialBits < 64 && ((tags.firstSerial + tags.count) >> serialBits) != 0) {
        return "\"tags.epcPrefix\" leaves too few of the \"tags.epcBits\" for the serial numbers";
    }
    return {};
}

}  // namespace

bool loadScenario(scenario_s* scenario, std::string* error) {
    const char* const path = std::getenv("RXE_SCENARIO");
    if (path == nullptr || *path == '\0') {
        return true;
    }
    const std::string who = std::string("RXE_SCENARIO: ") + path + ": ";
    std::ifstream file(path);
    if (!file) {
        *error = who + "cannot be opened";
        return false;
    }
    const json document = json::parse(file, nullptr, false);
    if (document.is_discarded()) {
        *error = who + "is not valid JSON";
        return false;
    }
    scenario_s loaded;
    refusal_t refusal = takeKeys(document, topKeys, "", &loaded);
    if (refusal.empty()) {
        refusal = checkTogether(loaded);
    }
    if (!refusal.empty()) {
        *error = who + refusal;
        return false;
    }
    *scenario = loaded;
    return true;
}

}  // namespace rxe
