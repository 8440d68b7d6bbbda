// SPDX-License-Identifier: MIT
#include "topic.hpp"

#include <algorithm>
#include <array>

namespace {

// MQTT allows 65,535 bytes; the rest is for what the placeholders become.
constexpr std::size_t longestTopic = 60'000;

// What is behind `"antenna":` up to the next byte that belongs to no number.
std::string_view antennaOf(const entry_s& entry) {
    constexpr std::string_view key = "\"antenna\":";
    const std::size_t at = entry.body.find(key);
    if (at == entry.body.npos) {
        return {};
    }
    const std::string_view rest = std::string_view(entry.body).substr(at + key.size());
    return rest.substr(0, std::min(rest.find_first_not_of("0123456789"), rest.size()));
}

struct placeholder_s {
    std::string_view name;
    std::string_view (*valueOf)(const entry_s& entry);
};
constexpr std::array placeholders{
    placeholder_s{"reader", [](const entry_s& entry) { return std::string_view(entry.reader); }},
    placeholder_s{"stream", [](const entry_s& entry) { return streamName(entry.stream); }},
    placeholder_s{"antenna", antennaOf},
    placeholder_s{"epc", [](const entry_s& entry) { return std::string_view(entry.key); }},
    placeholder_s{"type", typeOf},
};

void appendEscaped(std::string_view value, std::string* topic) {
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

// Calls `literal` and `name` for the parts of the text in turn. A brace without its other half is literal.
template <class Literal, class Name>
void splitTopic(std::string_view text, Literal literal, Name name) {
    while (!text.empty()) {
        const std::size_t open = std::min(text.find('{'), text.size());
        const std::size_t end = text.find('}', open);
        literal(text.substr(0, end == text.npos ? end : open));
        if (end == text.npos) {
            return;
        }
        name(text.substr(open + 1, end - open - 1));
        text.remove_prefix(end + 1);
    }
}

}  // namespace

std::vector<std::string_view> topicPlaceholders() {
    std::vector<std::string_view> names;
    std::ranges::transform(placeholders, std::back_inserter(names), &placeholder_s::name);
    return names;
}

std::string findTopicMistake(std::string_view text, const std::vector<std::string_view>& allowed) {
    std::string mistake;
    if (text.empty() || text.size() > longestTopic) {
        return "must have from 1 to " + std::to_string(longestTopic) + " bytes";
    }
    if (text.starts_with('$')) {
        return "topics that begin with $ belong to the server";
    }
    splitTopic(
        text,
        [&](std::string_view literal) {
            if (literal.find_first_of(std::string_view("+#{}\0", 5)) != literal.npos) {
                mistake = "must not hold +, #, a zero byte, or a brace without its other half";
            }
        },
        [&](std::string_view name) {
            if (std::ranges::find(allowed, name) == allowed.end()) {
                mistake = "{" + std::string(name) + "} is not a placeholder; use";
                for (const std::string_view other : allowed) {
                    mistake += " {" + std::string(other) + "}";
                }
            }
        });
    return mistake;
}

std::string fillTopic(std::string_view text, const entry_s& entry) {
    std::string topic;
    splitTopic(
        text, [&](std::string_view literal) { topic += literal; },
        [&](std::string_view name) {
            const auto* const row = std::ranges::find(placeholders, name, &placeholder_s::name);
            if (row != placeholders.end()) {
                appendEscaped(row->valueOf(entry), &topic);
            }
        });
    return topic;
}
