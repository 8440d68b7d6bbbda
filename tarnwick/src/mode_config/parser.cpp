// SPDX-License-Identifier: MIT
// What the key parsers share.
#include "mode_config/parser.hpp"

#include <nlohmann/json.hpp>

#include "util.hpp"

using nlohmann::json;

namespace {

// Whether a JSON text opens more than `limit` arrays and objects inside one
// another. Of a text that is no JSON the answer means nothing.
bool isNestedDeeper(std::string_view text, int limit) {
    int depth = 0;
    bool inString = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (inString) {
            inString = c != '"';
            i += c == '\\' ? 1 : 0;
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            if (++depth > limit) {
                return true;
            }
        } else if (c == ']' || c == '}') {
            --depth;
        }
    }
    return false;
}

}  // namespace

bool parseJsonText(const std::string& text, json* out, std::string* reason, int maxNesting) {
    if (isNestedDeeper(text, maxNesting)) {
        *reason = "nested too deep";
        return false;
    }
    try {
        *out = json::parse(text);
        return true;
    } catch (const json::exception& error) {  // no JSON, or a number too large
        *reason = error.what();
        return false;
    }
}

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
