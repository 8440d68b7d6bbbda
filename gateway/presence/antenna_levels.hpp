// SPDX-License-Identifier: MIT
// At which antenna a tag is. A tag at the edge between two antennas is read by both, now stronger here and
// now there; it moves only when another antenna is stronger by a margin, and stays so for a while.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>

#include "presence/rules.hpp"

// A tag's antennas: the present one and up to three others that read it lately.
class antenna_levels_c {
  public:
    // Takes a read at `now`, which never falls; `rssi` in dBm, -127 to 127. Returns the antenna from which
    // the tag has moved with this read, if it has. A level counts as the mean of the last reads, the
    // latest with a quarter. A tag without levels moves when its antenna has lost it.
    std::optional<std::uint16_t> take(std::uint16_t antenna, std::optional<int> rssi, std::int64_t now,
                                      const antenna_rules_s& rules);

    // Nothing before the first read.
    std::optional<std::uint16_t> present() const {
        return used == 0 ? std::nullopt : std::optional(places[0].antenna);
    }

    // Calls archive(value) for each value that is to be kept, on saving and on loading; an archive that
    // loads returns false when there is nothing more.
    template <class Archive>
    bool keep(Archive& archive) {
        bool whole = archive(&used) && used <= places.size() && archive(&since);
        for (std::size_t i = 0; whole && i < used; ++i) {
            whole = archive(&places[i].seen) && archive(&places[i].antenna) && archive(&places[i].level);
        }
        return whole;
    }

  private:
    static constexpr std::int16_t noLevel = std::numeric_limits<std::int16_t>::min();
    static constexpr std::int64_t never = std::numeric_limits<std::int64_t>::max();
    struct place_s {
        std::int64_t seen = 0;
        std::uint16_t antenna = 0;
        std::int16_t level = noLevel;
    };

    place_s* placeOf(std::uint16_t antenna);
    bool isBetter(const place_s& other, std::int64_t now, const antenna_rules_s& rules) const;

    std::array<place_s, 4> places{};  // the present antenna first
    std::int64_t since = never;       // from then on another antenna was better
    std::uint8_t used = 0;            // places
};
