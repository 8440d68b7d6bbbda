// SPDX-License-Identifier: MIT
// Numbers, times and lists as the sentences of the rules have them.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace why {

using numbers_t = std::set<std::uint32_t>;

// "12.5", "12": at most one digit behind the point.
std::string shortNumber(double value);
inline std::string secondsText(double value) {
    return shortNumber(value) + " s";
}
inline std::string dBmText(double value) {
    return shortNumber(value) + " dBm";
}

// "a, b and c"
std::string listed(const std::vector<std::string>& words, const char* lastJoint = " and ");

// "antenna 1", "antennas 1 and 2"
std::string antennasText(const numbers_t& numbers);

inline const char* isOrAre(std::size_t count) {
    return count == 1 ? "is" : "are";
}

// "12:04:10" of "2026-11-22T12:04:10.123+0000", another text as it is.
std::string timeOfDay(const std::string& iso);

}  // namespace why
