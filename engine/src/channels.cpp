// SPDX-License-Identifier: MIT
#include "channels.hpp"

#include <algorithm>

namespace rxe {
namespace {

constexpr std::uint32_t BAND_EDGE = 900000;  // kHz
constexpr std::int64_t WINDOW = 20000000, MOST_IN_WINDOW = 400000;
constexpr std::int64_t LEAST_USE = 10000;  // a shorter stay would be gone before it brought a read
constexpr std::int64_t MOST_AT_ONCE = 4000000, REST = 100000;

bool hasWindow(std::uint32_t kilohertz) {
    return kilohertz >= BAND_EDGE;
}

// Time on the frequency within the window that ends now.
std::int64_t usedInWindow(const channel_uses_t& uses, std::uint32_t kilohertz, std::int64_t now) {
    std::int64_t used = 0;
    for (const channel_use_s& use : uses) {
        if (use.kilohertz == kilohertz) {
            used += std::max<std::int64_t>(0, use.to - std::max(use.from, now - WINDOW));
        }
    }
    return used;
}

// When the stay began that would go on now: stays with less than a rest between them are one.
std::int64_t beginWithoutRest(const channel_uses_t& uses, std::uint32_t kilohertz, std::int64_t now) {
    std::int64_t begin = now;
    for (auto use = uses.rbegin(); use != uses.rend() && use->to + REST > begin; ++use) {
        begin = use->kilohertz == kilohertz ? use->from : begin;
    }
    return begin;
}

}  // namespace

void noteUse(const channel_use_s& use, channel_uses_t* uses) {
    std::erase_if(*uses, [&](const channel_use_s& old) { return old.to <= use.to - WINDOW; });
    uses->push_back(use);
}

bool channelIsFree(const channel_uses_t& uses, std::uint32_t kilohertz, std::int64_t now,
                   std::int64_t least) {
    const bool isOfUse =
        !hasWindow(kilohertz) || usedInWindow(uses, kilohertz, now) <= MOST_IN_WINDOW - LEAST_USE;
    return isOfUse && channelLimit(uses, kilohertz, now) - now >= std::max(LEAST_USE, least);
}

std::int64_t longestStay(std::uint32_t kilohertz) {
    return hasWindow(kilohertz) ? MOST_IN_WINDOW : MOST_AT_ONCE;
}

// While an earlier stay leaves the window the new one costs nothing on balance.
std::int64_t channelLimit(const channel_uses_t& uses, std::uint32_t kilohertz, std::int64_t now) {
    if (!hasWindow(kilohertz)) {
        return beginWithoutRest(uses, kilohertz, now) + MOST_AT_ONCE;
    }
    std::int64_t left = MOST_IN_WINDOW - usedInWindow(uses, kilohertz, now), at = now;
    for (const channel_use_s& use : uses) {
        if (use.kilohertz != kilohertz || use.to + WINDOW <= at) {
            continue;
        }
        const std::int64_t untilItLeaves = std::max(use.from + WINDOW, at) - at;
        if (untilItLeaves >= left) {
            break;
        }
        left -= untilItLeaves;
        at = use.to + WINDOW;
    }
    return at + left;
}

}  // namespace rxe
