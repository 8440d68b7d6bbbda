// SPDX-License-Identifier: MIT
#include "profile.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "table_names.hpp"

namespace {

using nlohmann::json;

// A reply has to fit into one read of 4,096 bytes at the client, so texts stay short.
constexpr std::size_t maxTextLength = 64;

// More ports than any reader has, so that a test can claim too many.
constexpr int maxPorts = 64;

// The built-in profiles differ in these four; cables have no loss.
profile_s makeProfile(const char* model, const char* hostName, int ports, int maxTxPower) {
    return {.model = model,
            .hostName = hostName,
            .regionName = "United States",
            .standardName = "US FCC 15",
            .channelWidth = 500.0,
            .ports = ports,
            .maxTxPower = maxTxPower,
            .powerSource = 0,
            .cables = std::vector<cable_s>(static_cast<std::size_t>(ports), cable_s{0, 0})};
}

// Ports and power as the three models have them; 14 are the elements of the array.
struct built_in_s {
    std::string_view name;
    profile_s (*make)();
};

constexpr std::array builtIns{
    built_in_s{"PN5100", [] { return makeProfile("PN5100", "pn5100", 4, 315); }},
    built_in_s{"PN8200", [] { return makeProfile("PN8200", "pn8200", 8, 315); }},
    built_in_s{"QDX4400", [] { return makeProfile("QDX4400", "qdx4400", 14, 360); }},
};

// The keys of a profile by the type of their values. All are required but "cables".
struct text_key_s {
    const char* name;
    std::string profile_s::*field;
};
constexpr std::array textKeys{
    text_key_s{"model", &profile_s::model},
    text_key_s{"hostName", &profile_s::hostName},
    text_key_s{"regionName", &profile_s::regionName},
    text_key_s{"standardName", &profile_s::standardName},
};

struct number_key_s {
    const char* name;
    int profile_s::*field;
    int low, high;
};
constexpr std::array numberKeys{
    number_key_s{"ports", &profile_s::ports, 1, maxPorts},
    number_key_s{"maxTxPower", &profile_s::maxTxPower, 0, 1000},
    number_key_s{"powerSource", &profile_s::powerSource, 0, 255},
};

struct cable_key_s {
    const char* name;
    int cable_s::*field;
};
constexpr std::array cableKeys{
    cable_key_s{"lossPerHundredFt", &cable_s::lossPerHundredFt},
    cable_key_s{"length", &cable_s::length},
};
// The product of two such numbers still fits an int at the client.
constexpr int maxCableNumber = 30000;

bool isKnownKey(const std::string& key) {
    const auto isNamed = [&key](const auto& row) { return key == row.name; };
    return std::ranges::any_of(textKeys, isNamed) || std::ranges::any_of(numberKeys, isNamed) ||
           key == "channelWidth" || key == "cables";
}

// False when the value is not an integer from `low` to `high`.
bool readInteger(const json& value, int low, int high, int* out) {
    if (!value.is_number_integer()) {
        return false;
    }
    // Unsigned values are compared first: one beyond int64 would turn negative.
    if (value.is_number_unsigned() &&
        value.get<std::uint64_t>() > static_cast<std::uint64_t>(maxCableNumber)) {
        return false;
    }
    const auto number = value.get<std::int64_t>();
    if (number < low || number > high) {
        return false;
    }
    *out = static_cast<int>(number);
    return true;
}

std::string rangeText(const std::string& key, int low, int high) {
    return "key \"" + key + "\" must be an integer from " + std::to_string(low) + " to " +
           std::to_string(high);
}

// Printable ASCII only: other characters need care in XML, and readers do not have them.
bool isPlainText(const std::string& text) {
    return !text.empty() && text.size() <= maxTextLength &&
           std::ranges::all_of(text, [](char c) { return c >= ' ' && c <= '~'; });
}

// The read functions check the values of their keys. On failure they return false and put the line
// with the key into `*error`.
bool readTexts(const json& root, profile_s* profile, std::string* error) {
    for (const auto& key : textKeys) {
        const auto& value = root[key.name];
        if (!value.is_string() || !isPlainText(value.get_ref<const std::string&>())) {
            *error = "key \"" + std::string(key.name) + "\" must be a text of 1 to " +
                     std::to_string(maxTextLength) + " printable ASCII characters";
            return false;
        }
        profile->*key.field = value.get<std::string>();
    }
    return true;
}

bool readNumbers(const json& root, profile_s* profile, std::string* error) {
    for (const auto& key : numberKeys) {
        if (!readInteger(root[key.name], key.low, key.high, &(profile->*key.field))) {
            *error = rangeText(key.name, key.low, key.high);
            return false;
        }
    }
    const auto& width = root["channelWidth"];
    if (!width.is_number() || !(width.get<double>() > 0.0) || width.get<double>() > 100000.0) {
        *error = "key \"channelWidth\" must be a number above 0 and up to 100000 (kHz)";
        return false;
    }
    profile->channelWidth = width.get<double>();
    return true;
}

bool readCable(const json& value, const std::string& name, cable_s* cable, std::string* error) {
    if (!value.is_object()) {
        *error = "key \"" + name + "\" must be an object";
        return false;
    }
    for (const auto& item : value.items()) {
        if (std::ranges::none_of(cableKeys, [&item](const auto& row) { return item.key() == row.name; })) {
            *error = "key " + json(name + "." + item.key()).dump() + " is not known";
            return false;
        }
    }
    for (const auto& key : cableKeys) {
        const auto full = name + "." + key.name;
        if (!value.contains(key.name)) {
            *error = "key \"" + full + "\" is missing";
            return false;
        }
        if (!readInteger(value[key.name], -maxCableNumber, maxCableNumber, &(cable->*key.field))) {
            *error = rangeText(full, -maxCableNumber, maxCableNumber);
            return false;
        }
    }
    return true;
}

// One entry for each antenna in order; antennas without an entry have no loss.
bool readCables(const json& root, profile_s* profile, std::string* error) {
    profile->cables.assign(static_cast<std::size_t>(profile->ports), cable_s{0, 0});
    const auto found = root.find("cables");
    if (found == root.end()) {
        return true;
    }
    if (!found->is_array() || found->size() > profile->cables.size()) {
        *error = "key \"cables\" must be an array of at most " + std::to_string(profile->ports) +
                 " entries, one for each port";
        return false;
    }
    for (std::size_t i = 0; i < found->size(); ++i) {
        if (!readCable((*found)[i], "cables[" + std::to_string(i) + "]", &profile->cables[i], error)) {
            return false;
        }
    }
    return true;
}

// Whether there is every required key and no unknown one.
bool checkKeys(const json& root, std::string* error) {
    if (!root.is_object()) {
        *error = "not a JSON object";
        return false;
    }
    for (const auto& item : root.items()) {
        if (!isKnownKey(item.key())) {
            *error = "key " + json(item.key()).dump() + " is not known";
            return false;
        }
    }
    const auto isPresent = [&](const char* name) {
        if (!root.contains(name)) {
            *error = "key \"" + std::string(name) + "\" is missing";
            return false;
        }
        return true;
    };
    return std::ranges::all_of(textKeys, [&](const auto& key) { return isPresent(key.name); }) &&
           std::ranges::all_of(numberKeys, [&](const auto& key) { return isPresent(key.name); }) &&
           isPresent("channelWidth");
}

}  // namespace

bool findBuiltInProfile(std::string_view name, profile_s* profile) {
    const auto found = std::ranges::find(builtIns, name, &built_in_s::name);
    if (found == builtIns.end()) {
        return false;
    }
    *profile = found->make();
    return true;
}

std::string builtInProfileNames() {
    return tableNames(builtIns);
}

bool parseProfile(std::string_view text, profile_s* profile, std::string* error) {
    const json root = json::parse(text, nullptr, false);
    if (root.is_discarded()) {
        *error = "not valid JSON";
        return false;
    }
    // Into a profile of its own, so that a mistake leaves the caller's as it was.
    profile_s read;
    if (!checkKeys(root, error) || !readTexts(root, &read, error) || !readNumbers(root, &read, error) ||
        !readCables(root, &read, error)) {
        return false;
    }
    *profile = std::move(read);
    return true;
}

bool readProfileFile(const std::string& path, profile_s* profile, std::string* error) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    const auto text = content.str();
    if (!file.is_open() || text.empty()) {
        *error = "neither a readable file nor one of " + builtInProfileNames();
        return false;
    }
    return parseProfile(text, profile, error);
}

std::string renderProfile(const profile_s& profile) {
    nlohmann::ordered_json root;
    for (const auto& key : textKeys) {
        root[key.name] = profile.*key.field;
    }
    root["channelWidth"] = profile.channelWidth;
    for (const auto& key : numberKeys) {
        root[key.name] = profile.*key.field;
    }
    root["cables"] = nlohmann::ordered_json::array();
    for (const auto& cable : profile.cables) {
        root["cables"].push_back({{"lossPerHundredFt", cable.lossPerHundredFt}, {"length", cable.length}});
    }
    return root.dump(2);
}
