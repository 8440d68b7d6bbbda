// SPDX-License-Identifier: MIT
#include "texts.hpp"

#include <cmath>
#include <cstdio>

namespace why {

std::string shortNumber(double value) {
    const double tenths = std::round(value * 10) + 0.0;  // not -0
    char text[32];
    std::snprintf(text, sizeof text, std::fmod(tenths, 10) == 0 ? "%.0f" : "%.1f", tenths / 10);
    return text;
}

std::string listed(const std::vector<std::string>& words, const char* lastJoint) {
    std::string text;
    for (std::size_t i = 0; i < words.size(); ++i) {
        text += (i == 0 ? "" : i + 1 == words.size() ? lastJoint : ", ") + words[i];
    }
    return text;
}

std::string antennasText(const numbers_t& numbers) {
    std::vector<std::string> words;
    for (const std::uint32_t number : numbers) {
        words.push_back(std::to_string(number));
    }
    return (numbers.size() == 1 ? "antenna " : "antennas ") + listed(words);
}

std::string timeOfDay(const std::string& iso) {
    constexpr std::size_t dateDigits = 11, timeDigits = 8;
    const bool isTime = iso.size() > dateDigits + timeDigits && iso[dateDigits - 1] == 'T';
    return isTime ? iso.substr(dateDigits, timeDigits) : iso;
}

}  // namespace why
