// SPDX-License-Identifier: MIT
#include "antenna_levels.hpp"

#include <algorithm>
#include <span>
#include <utility>

namespace {

constexpr int weight = 4;  // the latest read counts one part in so many

}  // namespace

// That of the antenna, or a free one, or that of the other antenna that has not read for longest.
antenna_levels_c::place_s* antenna_levels_c::placeOf(std::uint16_t antenna) {
    const std::span<place_s> known = std::span(places).first(used);
    if (const auto own = std::ranges::find(known, antenna, &place_s::antenna); own != known.end()) {
        return &*own;
    }
    place_s* const place = used < places.size()
                               ? &places[used++]
                               : &*std::ranges::min_element(known.subspan(1), {}, &place_s::seen);
    *place = {.seen = 0, .antenna = antenna};
    return place;
}

bool antenna_levels_c::isBetter(const place_s& other, std::int64_t now, const antenna_rules_s& rules) const {
    const place_s& own = places[0];
    if (now - other.seen >= rules.forgottenAfter) {
        return false;
    }
    const bool haveLevels = own.level != noLevel && other.level != noLevel;
    return now - own.seen >= rules.forgottenAfter ||
           (haveLevels && other.level - own.level >= std::max(rules.margin, 1));
}

std::optional<std::uint16_t> antenna_levels_c::take(std::uint16_t antenna, std::optional<int> rssi,
                                                    std::int64_t now, const antenna_rules_s& rules) {
    place_s* const read = placeOf(antenna);
    if (rssi) {
        const int level = *rssi * levelsPerDecibel;
        const bool isNew = read->level == noLevel || now - read->seen >= rules.forgottenAfter;
        read->level = static_cast<std::int16_t>(isNew ? level : read->level + (level - read->level) / weight);
    }
    read->seen = now;
    place_s* best = nullptr;
    for (place_s& other : std::span(places).first(used).subspan(1)) {
        if (isBetter(other, now, rules) &&
            (best == nullptr || std::pair(other.level, other.seen) > std::pair(best->level, best->seen))) {
            best = &other;
        }
    }
    since = best == nullptr ? never : std::min(since, now);
    if (best == nullptr || now - since < rules.holdOff) {
        return std::nullopt;
    }
    since = never;
    std::swap(*best, places[0]);
    return best->antenna;
}
