// SPDX-License-Identifier: MIT
#include "topic.hpp"

#include "sinks/pattern.hpp"

namespace {

// MQTT allows 65,535 bytes; the rest is for what the placeholders become.
constexpr std::size_t longestTopic = 60'000;

}  // namespace

std::string findTopicMistake(std::string_view text, const std::vector<std::string_view>& allowed) {
    if (text.empty() || text.size() > longestTopic) {
        return "must have from 1 to " + std::to_string(longestTopic) + " bytes";
    }
    if (text.starts_with('$')) {
        return "topics that begin with $ belong to the server";
    }
    const std::string mistake = findWrongPlaceholder(text, allowed);
    return mistake.empty() && literalsOf(text).find_first_of(std::string_view("+#{}\0", 5)) != text.npos
               ? "must not hold +, #, a zero byte, or a brace without its other half"
               : mistake;
}

void appendTopicLevel(std::string_view value, std::string* topic) {
    constexpr std::string_view safe = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~:";
    constexpr std::string_view digits = "0123456789ABCDEF";
    for (const char c : value.empty() ? std::string_view("-") : value) {
        if (safe.find(c) != safe.npos) {
            *topic += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            *topic += {'%', digits[byte >> 4U], digits[byte & 15U]};
        }
    }
}
