// SPDX-License-Identifier: MIT
#include "reader_clock.hpp"

#include <algorithm>

namespace {

// Reports of two connections may come mixed; a report that is older than this means a clock that was set.
constexpr std::int64_t mostLate = 10'000'000;
// A clock was set forward when a report is so much nearer to its arrival than any before it. Drift moves
// the least delay along by much less from one report to the next.
constexpr std::int64_t leastJump = 1'000'000;

}  // namespace

void reader_clock_c::take(std::optional<std::int64_t> reported, std::int64_t takenAt) {
    if (!started) {
        started = true;
        present = reported.value_or(takenAt);
        leastDelay = takenAt - present;
        lastTaken = takenAt;
        return;
    }
    const std::int64_t passed = std::max<std::int64_t>(takenAt - lastTaken, 0);
    std::int64_t time = reported ? *reported + shift : present + passed;
    const bool setBack = time < present - mostLate;
    const bool setForward = time - present - passed > leastJump && takenAt - time < leastDelay - leastJump;
    if (setBack || setForward) {
        shift += present + passed - time;
        time = present + passed;
        leastDelay = takenAt - time;
    }
    leastDelay = std::min(leastDelay, takenAt - time);
    present = std::max(present, time);
    lastTaken = takenAt;
}
