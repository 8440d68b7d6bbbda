// SPDX-License-Identifier: MIT
// When a tag arrives, moves and departs, and how many did.
#pragma once

#include <cstddef>
#include <cstdint>

// Levels are in 256ths of a dB, times in microseconds.
inline constexpr int levelsPerDecibel = 256;

struct antenna_rules_s {
    int margin = 6 * levelsPerDecibel;        // by which the other antenna has to be stronger
    std::int64_t holdOff = 500'000;           // for so long without a break
    std::int64_t forgottenAfter = 5'000'000;  // an antenna that has not read the tag for so long has lost it
    bool operator==(const antenna_rules_s&) const = default;
};

struct presence_rules_s {
    antenna_rules_s antenna;               // forgottenAfter is departAfter
    std::int64_t departAfter = 5'000'000;  // without a read
    std::size_t maxTags = 100'000;         // of all readers; beyond it the longest unseen departs early
    bool operator==(const presence_rules_s&) const = default;
};

// Counts since presence was turned on: arrived = present + departed.
struct presence_account_s {
    std::uint64_t present = 0, arrived = 0, moved = 0, departed = 0;
    std::uint64_t early = 0;  // of the departed: to keep to maxTags
};
