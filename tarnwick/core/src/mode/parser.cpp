// SPDX-License-Identifier: MIT
// Functions that the key parsers share.
#include "mode/parser.hpp"

#include <nlohmann/json.hpp>

#include "mode/record.hpp"
#include "util.hpp"

using nlohmann::json;

int refuse(std::string* reply, std::string_view text) {
    *reply = text;
    return keyRefused;
}

int optionalKey(int accessorResult, std::string* reply) {
    if (accessorResult == -1) {
        reply->clear();
        return keyAbsent;
    }
    return accessorResult == 0 ? keyParsed : keyRefused;
}

bool required(int accessorResult, const char* key, const std::string& object, std::string* reply) {
    if (accessorResult == -1) {
        *reply = std::string("Failure: ") + key + " must be included in " + object;
    }
    return accessorResult == 0;
}

int getObjectOrArray(const json* root, const char* key, json* value, std::string* reply) {
    const int result = optionalKey(getJsonValueObject(root, key, value, reply), reply);
    if (result != keyRefused) {
        return result;
    }
    if (getJsonValueArray(root, key, value, reply) != 0) {
        return refuse(reply,
                      std::string("Failure: \"") + key + "\" must be either a object or an array of objects");
    }
    reply->clear();
    return keyParsed;
}

int parseOperations(const json* root, const char* key, value_parser_t parse, mode_configuration_s* mode,
                    std::string* reply) {
    reply->clear();
    json array;
    switch (getJsonValueArray(root, key, &array, reply)) {
        case 0:
            return parse(&array, mode, reply);
        case -1:
            reply->clear();
            return keyAbsent;
        default:
            return refuse(reply, std::string("Failure: \"") + key +
                                     "\" must be either an array of objects or an array of array of objects");
    }
}

int parseFlatOrForEachAntenna(const json* array, value_parser_t flat, value_parser_t perAntenna,
                              mode_configuration_s* mode, std::string* reply) {
    if (!std::ranges::all_of(*array, [](const json& element) { return element.is_array(); })) {
        return flat(array, mode, reply);
    }
    if (array->size() == mode->antennas.size()) {
        return perAntenna(array, mode, reply);
    }
    sprintfStr(reply,
               "Failure: Number of arrays in the array must be %zu to match the number of antennas enabled",
               mode->antennas.size());
    return keyRefused;
}

int refuseTooMany(const char* what, std::size_t limit, std::string* reply) {
    return refuse(reply, std::string("Failure: Number of unique \"") + what +
                             "\" objects must be less than (" + std::to_string(limit) + ")");
}

std::vector<std::uint8_t> hexBytes(std::string_view digits) {
    std::vector<std::uint8_t> bytes;
    bytes.reserve(digits.size() / 2);
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
        bytes.push_back(hex2int(digits[i], digits[i + 1]));
    }
    return bytes;
}
