// SPDX-License-Identifier: MIT
#include "rules.hpp"

#include <algorithm>
#include <array>
#include <limits>

#include "clock.hpp"

namespace rxe {
namespace {

constexpr std::int64_t triggerPoll = 10000;  // microseconds between two looks at a level that has to last

// Whether the level of a port has been as wanted for `hold` ms, counted from
// `watched` at the earliest.
bool levelHolds(const radio_s& radio, std::size_t port, bool high, std::uint16_t hold, std::int64_t watched) {
    const gpi_s& gpi = radio.world.gpis[port];
    return gpi.high == high && radio.now - std::max(gpi.since, watched) >= hold * millisecond;
}

// One GPI rule: the mask of a stop or start record with the hold times by port.
bool gpiFires(const radio_s& radio, std::uint8_t mask, const std::array<std::uint16_t, 4>& hold,
              std::int64_t watched) {
    for (std::size_t i = 0; i < hold.size(); ++i) {
        const bool takesPart = ((mask >> (i + 4)) & 1) != 0;
        const bool wantsHigh = ((mask >> i) & 1) != 0;
        if (takesPart && levelHolds(radio, i, wantsHigh, hold[i], watched)) {
            return true;
        }
    }
    return false;
}

// Milliseconds by port, of a stop or start record.
std::array<std::uint16_t, 4> holdTimes(const auto& record) {
    return {record.holdTime1, record.holdTime2, record.holdTime3, record.holdTime4};
}

// Quirk of the record: a tag count above RXE_NO_MORE_UNIQUE_TAGS_BASE is another rule, by which
// the run ends when no tag was new for as many seconds as it is above.
bool noMoreUniques(const run_s& run) {
    const int seconds = run.plan.stop.tagCount - RXE_NO_MORE_UNIQUE_TAGS_BASE;
    return seconds > 0 && run.radio->now - run.lastUnique >= seconds * second;
}

// Checks the rules in this order: of two that fire at once the first is the cause.
stop_cause_e causeToStop(const run_s& run) {
    const PER_RADIO_STOP2_s& stop = run.plan.stop;
    const std::int64_t elapsed = run.radio->now - run.begin;
    if (stopRequested(*run.host)) {
        return CAUSE_HOST;
    }
    if (run.radio->fault) {
        return CAUSE_ERROR;
    }
    if (stop.duration != 0 && elapsed >= stop.duration * millisecond) {
        return CAUSE_DURATION;
    }
    if (stop.tagCount != 0 && stop.tagCount <= RXE_NO_MORE_UNIQUE_TAGS_BASE && run.reads >= stop.tagCount) {
        return CAUSE_TAG_COUNT;
    }
    if (noMoreUniques(run)) {
        return CAUSE_TAG_COUNT;
    }
    return gpiFires(*run.radio, stop.gpiBitMask, holdTimes(stop), run.begin) ? CAUSE_GPI : RUNNING;
}

// Whether the start trigger has its level for its hold time, counted from `watched` at the
// earliest.
bool triggerFires(const run_s& run, std::int64_t watched) {
    return gpiFires(*run.radio, run.plan.start.gpiBitMask, holdTimes(run.plan.start), watched);
}

}  // namespace

bool mustStop(run_s* run) {
    if (run->cause == RUNNING) {
        run->cause = causeToStop(*run);
    }
    return run->cause != RUNNING;
}

std::int64_t dwellLimit(const OLIO_s& olio) {
    const bool limited = olio.stopType == RXE_STOP_DWELL_TIME || olio.stopType > RXE_STOP_ROUNDS_AND_DWELL;
    return limited && olio.stopValue != 0 ? olio.stopValue * millisecond
                                          : std::numeric_limits<std::int64_t>::max();
}

bool olioIsDone(const run_s& run, const OLIO_s& olio, std::uint32_t rounds) {
    if (run.radio->now >= run.olioEnd) {
        return true;
    }
    if (olio.stopType == RXE_STOP_INVENTORY_ROUNDS) {
        return rounds >= olio.stopValue;
    }
    if (olio.stopType == RXE_STOP_DWELL_TIME) {
        return olio.stopValue == 0;
    }
    if (olio.stopType > RXE_STOP_ROUNDS_AND_DWELL) {
        return rounds >= olio.stopType - std::uint32_t{RXE_STOP_ROUNDS_AND_DWELL};
    }
    // The other types are RXE_STOP_GPIO1_HIGH to RXE_STOP_GPIO4_LOW, for each port high, then low.
    const std::size_t port = (olio.stopType - 1U) / 2U - 1;
    return levelHolds(*run.radio, port, olio.stopType % 2 != 0, olio.stopValue, run.olioBegin);
}

bool waitForTrigger(const run_s& run, bool again) {
    const GPIO_START2_s& start = run.plan.start;
    const auto levelIsThere = [&] { return gpiFires(*run.radio, start.gpiBitMask, {}, 0); };
    while (!stopRequested(*run.host) && again && levelIsThere()) {
        park(run.radio, run.host);
    }
    const std::int64_t since = run.radio->now;
    while (!stopRequested(*run.host) && !triggerFires(run, since)) {
        levelIsThere() ? advance(run.radio, run.host, triggerPoll) : park(run.radio, run.host);
    }
    return !stopRequested(*run.host);
}

}  // namespace rxe
