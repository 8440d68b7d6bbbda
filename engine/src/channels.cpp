// SPDX-License-Identifier: MIT
#include "channels.hpp"

#include <algorithm>

namespace rxe {
namespace {

// Microseconds, except for the edge between the two rules.
constexpr std::uint32_t bandEdge = 900000;  // kHz
constexpr std::int64_t windowTime = 20000000, mostInWindow = 400000;
constexpr std::int64_t leastUse = 10000;  // a shorter stay ends before it brings a read
constexpr std::int64_t mostAtOnce = 4000000, restTime = 100000;

bool hasWindow(std::uint32_t kilohertz) {
    return kilohertz >= bandEdge;
}

// Time on the frequency within the window that ends now.
std::int64_t usedInWindow(const channel_uses_t& uses, std::uint32_t kilohertz, std::int64_t now) {
    std::int64_t used = 0;
    for (const channel_use_s& use : uses) {
        if (use.kilohertz == kilohertz) {
            used += std::max<std::int64_t>(0, use.to - std::max(use.from, now - windowTime));
        }
    }
    return used;
}

// When the stay began that would continue at `now`: stays with less than a rest between them
// count as one.
std::int64_t beginWithoutRest(const channel_uses_t& uses, std::uint32_t kilohertz, std::int64_t now) {
    std::int64_t begin = now;
    for (auto use = uses.rbegin(); use != uses.rend() && use->to + restTime > begin; ++use) {
        begin = use->kilohertz == kilohertz ? use->from : begin;
    }
    return begin;
}

}  // namespace

// A stay that has left the window of 20 s counts for neither rule, so the list stays short.
void noteUse(const channel_use_s& use, channel_uses_t* uses) {
    std::erase_if(*uses, [&](const channel_use_s& old) { return old.to <= use.to - windowTime; });
    uses->push_back(use);
}

// A channel also counts as taken when what is left of its time is too short to be of use.
bool channelIsFree(const channel_uses_t& uses, std::uint32_t kilohertz, std::int64_t now,
                   std::int64_t least) {
    const bool isOfUse =
        !hasWindow(kilohertz) || usedInWindow(uses, kilohertz, now) <= mostInWindow - leastUse;
    return isOfUse && channelLimit(uses, kilohertz, now) - now >= std::max(leastUse, least);
}

std::int64_t longestStay(std::uint32_t kilohertz) {
    return hasWindow(kilohertz) ? mostInWindow : mostAtOnce;
}

// While an earlier stay leaves the window at one end, the new stay enters it at the other, and
// the time used within the window does not grow.
std::int64_t channelLimit(const channel_uses_t& uses, std::uint32_t kilohertz, std::int64_t now) {
    if (!hasWindow(kilohertz)) {
        return beginWithoutRest(uses, kilohertz, now) + mostAtOnce;
    }
    std::int64_t left = mostInWindow - usedInWindow(uses, kilohertz, now), at = now;
    for (const channel_use_s& use : uses) {
        if (use.kilohertz != kilohertz || use.to + windowTime <= at) {
            continue;
        }
        const std::int64_t untilItLeaves = std::max(use.from + windowTime, at) - at;
        if (untilItLeaves >= left) {
            break;
        }
        left -= untilItLeaves;
        at = use.to + windowTime;
    }
    return at + left;
}

}  // namespace rxe
