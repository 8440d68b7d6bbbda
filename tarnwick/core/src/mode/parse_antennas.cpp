// SPDX-License-Identifier: MIT
// Where and how the radio transmits: "antennas" or "beams", "transmitPower",
// "linkProfile" and "environment".
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>

#include "engine_io/packets.hpp"
#include "mode/beams.hpp"
#include "mode/defaults.hpp"
#include "mode/parser.hpp"
#include "mode/record.hpp"
#include "reader_facts.hpp"
#include "util.hpp"

using nlohmann::json;

namespace {

constexpr double antennaPowerMin = 0.0;  // dBm
constexpr int maxAzimuth = 359;          // degrees
constexpr int maxElevation = 70;

std::string quotedKey(const char* key, const char* rest) {
    return std::string("Failure: mode json payload mode \"") + key + "\" " + rest;
}

// Stores a list of antennas or beams when its length is within the bounds.
int storeAntennas(const char* key, std::vector<std::uint32_t>&& list, std::vector<std::uint32_t>* antennas,
                  std::string* reply) {
    if (list.empty()) {
        return refuse(reply, quotedKey(key, "list must contains values"));
    }
    if (list.size() > MODE_MAX_ANTENNAS) {
        return refuse(reply, quotedKey(key, "list must contain fewer than ") +
                                 std::to_string(MODE_MAX_ANTENNAS) + " values");
    }
    *antennas = std::move(list);
    return keyParsed;
}

// An antenna number. Quirk: of a larger number the low 32 bits count. 0, which is not an antenna, for
// a value that is not an unsigned number.
std::uint32_t antennaNumber(const json& element) {
    const auto* number = element.get_ptr<const json::number_unsigned_t*>();
    return number == nullptr ? 0 : static_cast<std::uint32_t>(*number);
}

// dBm as the record holds it.
std::int16_t tenths(double dBm) {
    return static_cast<std::int16_t>(dBm * 10);
}

// Any JSON number. Quirk: it is narrowed to its low 16 bits, and a fraction is dropped.
std::optional<std::uint16_t> narrowNumber(const json& element) {
    if (const auto* real = element.get_ptr<const json::number_float_t*>()) {
        constexpr double beyond = 9223372036854775808.0;  // 2 to the 63rd: does not fit 64 bits, counts as 0
        const bool fits = *real > -beyond && *real < beyond;
        return fits ? static_cast<std::uint16_t>(static_cast<std::int64_t>(*real)) : std::uint16_t{0};
    }
    if (!element.is_number()) {
        return std::nullopt;
    }
    return element.get<std::uint16_t>();
}

// The value of a key that holds a number, or an array with one for each antenna. A number is
// checked against the bounds and stored in *number; an array is copied to *list, without a check
// of its elements. Returns the result of a key parser.
template <class Number>
int getNumberOrArray(const json* root, const char* key, Number* number, Number low, Number high, json* list,
                     std::string* reply) {
    constexpr int wrongType = -2;  // of the accessor
    reply->clear();
    const int result = getJsonValue(root, key, number, reply, low, high);
    if (result != wrongType) {
        return optionalKey(result, reply);
    }
    if (getJsonValueArray(root, key, list, reply) != 0) {
        return refuse(reply, std::string("Failure: \"") + key +
                                 "\" field must contain a number or an array of numbers");
    }
    reply->clear();
    return keyParsed;
}

int parsePowerList(const json& list, mode_configuration_s* mode, std::string* reply) {
    const double ceiling = readerFacts.max_tx_pwr_x_10 / 10.0;
    mode->transmitPowerX10List.clear();
    for (const json& element : list) {
        if (!element.is_number()) {
            return refuse(reply, "Failure: \"transmitPower\" must be an array containing only numbers");
        }
        const auto dBm = element.get<double>();
        if (dBm < antennaPowerMin || dBm > ceiling) {
            sprintfStr(reply,
                       "Failure: value provided for \"transmitPower\" is out of bounds. Must be between %.2f "
                       "and %.2f.",
                       antennaPowerMin, ceiling);
            return keyRefused;
        }
        mode->transmitPowerX10List.push_back(tenths(dBm));
    }
    return keyParsed;
}

int requireValidLP(std::uint16_t linkProfile, std::string* reply) {
    if (isValidLP(linkProfile)) {
        return keyParsed;
    }
    return refuse(reply, "Failure: value provided for \"linkProfile\" (" + std::to_string(linkProfile) +
                             ") is not a valid LP");
}

int parseLinkProfileList(const json& list, mode_configuration_s* mode, std::string* reply) {
    for (const json& element : list) {
        const std::optional<std::uint16_t> linkProfile = narrowNumber(element);
        if (!linkProfile) {
            return refuse(reply, "Failure: \"linkProfile\" must be an array containing only numbers");
        }
        if (requireValidLP(*linkProfile, reply) != keyParsed) {
            return keyRefused;
        }
        mode->linkProfileList.push_back(*linkProfile);
    }
    return keyParsed;
}

}  // namespace

int parseAntennas(const json* value, std::vector<std::uint32_t>* antennas, std::string* reply) {
    if (!value->is_array()) {
        return refuse(reply, quotedKey(key::antennas, "must have an array value"));
    }
    std::vector<std::uint32_t> list;
    for (const json& element : *value) {
        const std::uint32_t antenna = antennaNumber(element);
        if (!isValidAntenna(antenna)) {
            sprintfStr(reply, "Failure: antenna values is invalid (%d entered)", static_cast<int>(antenna));
            return keyRefused;
        }
        if (antenna == 0) {
            return refuse(reply, "Failure: antenna values must be greater than 0 (0 entered)");
        }
        list.push_back(antenna);
    }
    return storeAntennas(key::antennas, std::move(list), antennas, reply);
}

int parseBeams(const json* value, std::vector<std::uint32_t>* antennas, std::string* reply) {
    if (!value->is_array()) {
        return refuse(reply, quotedKey(key::beams, "must have an array value"));
    }
    std::vector<std::uint32_t> list;
    for (const json& element : *value) {
        if (!element.is_object()) {
            return refuse(reply, "Failure: each beam must be an object");
        }
        std::uint16_t beam = 0;
        if (getBeam(&element, &beam, reply) != keyParsed) {
            return keyRefused;
        }
        list.push_back(beam);
    }
    return storeAntennas(key::beams, std::move(list), antennas, reply);
}

int getBeam(const json* object, std::uint16_t* beam, std::string* reply) {
    if (!object->is_object()) {
        return refuse(reply, "Failure: beam must be an object!");
    }
    std::uint16_t azimuth = 0;
    std::uint16_t elevation = 0;
    QDX_BEAM_POL_e polarization = DEFAULT_BEAM_POLARIZATION;
    if (getJsonValue(object, key::azimuth, &azimuth, reply, 0, maxAzimuth) != 0 ||
        getJsonValue(object, key::elevation, &elevation, reply, 0, maxElevation) != 0 ||
        optionalKey(getJsonWord(object, key::polarization, polarizationWords, &polarization, reply), reply) ==
            keyRefused) {
        return keyRefused;
    }
    const std::uint16_t id =
        az_el_pol_to_beam(static_cast<short>(azimuth), static_cast<short>(elevation), polarization);
    if (id == 0) {
        const std::string word(findWord(polarizationWords, polarization));
        sprintfStr(reply, "Failure: azimuth (%d), elevation (%d), polarization (%s) combination not allowed",
                   azimuth, elevation, word.c_str());
        return keyRefused;
    }
    *beam = id;
    return keyParsed;
}

int parseTransmitPower(const json* root, mode_configuration_s* mode, std::string* reply) {
    double dBm = 0;
    json list;
    const int result = getNumberOrArray(root, key::transmitPower, &dBm, antennaPowerMin,
                                        readerFacts.max_tx_pwr_x_10 / 10.0, &list, reply);
    if (result != keyParsed) {
        return result == keyAbsent ? keyParsed : keyRefused;
    }
    if (list.is_array()) {
        return parsePowerList(list, mode, reply);
    }
    mode->transmitPowerX10 = tenths(dBm);
    return keyParsed;
}

int parseLinkProfile(const json* root, mode_configuration_s* mode, std::string* reply) {
    std::uint16_t linkProfile = 0;
    json list;
    const int result = getNumberOrArray(root, key::linkProfile, &linkProfile, std::uint16_t{0},
                                        std::numeric_limits<std::uint16_t>::max(), &list, reply);
    if (result != keyParsed) {
        return result;
    }
    if (list.is_array()) {
        return parseLinkProfileList(list, mode, reply);
    }
    mode->linkProfile = linkProfile;
    return requireValidLP(linkProfile, reply);
}

int parseEnvironmentParam(const json* root, mode_configuration_s* mode, std::string* reply) {
    reply->clear();
    return optionalKey(getJsonWord(root, key::environment, environmentWords, &mode->environment, reply),
                       reply);
}
