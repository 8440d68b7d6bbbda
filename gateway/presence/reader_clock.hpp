// SPDX-License-Identifier: MIT
// The time of one reader, as its own reports tell it. Presence goes by the time of the read and not by that
// of its arrival here: reports that waited in a queue while the gateway was away, or while its link
// stood still, come all at once, and would look like one moment.
//
// A reader's clock may be wrong and may be set. So ages are counted by a clock that only goes forward:
// that of the reports plus a shift, which changes when the reader's clock jumps. All times are
// microseconds since 1970.
#pragma once

#include <cstdint>
#include <optional>

class reader_clock_c {
  public:
    // Takes the next report: its own time, if it has one, and when the gateway took it.
    void take(std::optional<std::int64_t> reported, std::int64_t takenAt);

    // The latest report by the clock that only goes forward.
    std::int64_t now() const { return present; }
    // A time of that clock as the reader's own clock shows it at present, and back.
    std::int64_t ownTime(std::int64_t time) const { return time - shift; }
    std::int64_t clockTime(std::int64_t own) const { return own + shift; }
    // The same as the gateway's clock would have shown it, to compare tags of different readers.
    std::int64_t gatewayTime(std::int64_t time) const { return time + leastDelay; }

    // As antenna_levels_c does it.
    template <class Archive>
    bool keep(Archive& archive) {
        std::uint8_t any = started ? 1 : 0;
        const bool whole = archive(&any) && archive(&present) && archive(&shift) && archive(&lastTaken) &&
                           archive(&leastDelay);
        started = any != 0;
        return whole;
    }

  private:
    bool started = false;
    std::int64_t present = 0;
    std::int64_t shift = 0;
    std::int64_t lastTaken = 0;
    std::int64_t leastDelay = 0;  // from a report's time to its arrival
};
