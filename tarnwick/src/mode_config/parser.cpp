// SPDX-License-Identifier: MIT
// What the key parsers share.
#include "mode_config/parser.hpp"

#include "util.hpp"

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

int requireArrayForEachAntenna(std::size_t arrays, const mode_configuration_s* mode, std::string* reply) {
    if (arrays == mode->antennas.size()) {
        return keyParsed;
    }
    sprintfStr(reply,
               "Failure: Number of arrays in the array must be %zu to match the number of antennas enabled",
               mode->antennas.size());
    return keyRefused;
}

std::vector<std::uint8_t> hexBytes(std::string_view digits) {
    std::vector<std::uint8_t> bytes;
    bytes.reserve(digits.size() / 2);
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
        bytes.push_back(hex2int(digits[i], digits[i + 1]));
    }
    return bytes;
}
