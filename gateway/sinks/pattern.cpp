// SPDX-License-Identifier: MIT
#include "sinks/pattern.hpp"

#include <algorithm>
#include <array>

namespace {

struct placeholder_s {
    std::string_view name;
    std::string_view (*valueOf)(const entry_s& entry);
};
constexpr std::array placeholders{
    placeholder_s{"reader", [](const entry_s& entry) { return std::string_view(entry.reader); }},
    placeholder_s{"stream", [](const entry_s& entry) { return streamName(entry.stream); }},
    placeholder_s{"antenna", [](const entry_s& entry) { return numberMember(entry.body, "\"antenna\":"); }},
    placeholder_s{"epc", [](const entry_s& entry) { return std::string_view(entry.key); }},
    placeholder_s{"type", typeOf},
};

// Calls `part` with a literal and the name behind it in turn; behind the last literal the name is empty.
template <class Part>
void split(std::string_view text, Part part) {
    for (;;) {
        const std::size_t open = std::min(text.find('{'), text.size());
        const std::size_t end = text.find('}', open);
        if (end == text.npos) {
            part(text, std::string_view());
            return;
        }
        part(text.substr(0, open), text.substr(open + 1, end - open - 1));
        text.remove_prefix(end + 1);
    }
}

}  // namespace

void appendAsIs(std::string_view value, std::string* text) {
    *text += value;
}

pattern_c::pattern_c(std::string_view text, append_value_t append) : appendValue(append) {
    split(text, [this](std::string_view literal, std::string_view name) {
        const auto* const row = std::ranges::find(placeholders, name, &placeholder_s::name);
        parts.push_back({std::string(literal), row == placeholders.end() ? nullptr : row->valueOf});
    });
}

std::string pattern_c::fill(const entry_s& entry) const {
    std::string text;
    for (const part_s& part : parts) {
        text += part.literal;
        if (part.valueOf != nullptr) {
            appendValue(part.valueOf(entry), &text);
        }
    }
    return text;
}

std::vector<std::string_view> placeholderNames() {
    std::vector<std::string_view> names;
    std::ranges::transform(placeholders, std::back_inserter(names), &placeholder_s::name);
    return names;
}

std::string findWrongPlaceholder(std::string_view text, const std::vector<std::string_view>& allowed) {
    std::string mistake;
    split(text, [&](std::string_view, std::string_view name) {
        if (name.empty() || std::ranges::find(allowed, name) != allowed.end()) {
            return;
        }
        mistake = "{" + std::string(name) + "} is not a placeholder; use";
        for (const std::string_view other : allowed) {
            mistake += " {" + std::string(other) + "}";
        }
    });
    return mistake;
}

std::string literalsOf(std::string_view text) {
    std::string literals;
    split(text, [&](std::string_view literal, std::string_view) { literals += literal; });
    return literals;
}
