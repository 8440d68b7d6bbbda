// SPDX-License-Identifier: MIT
// When a run starts and when it ends: the start trigger, and the stop rules of the run
// and of one olio. Radio thread only.
#pragma once

#include <cstdint>

#include "run_state.hpp"

namespace rxe {

// Waits until the GPI start trigger fires, or the host stops the wait: then it returns
// false. With `again`, after a run, the trigger has to be released first.
bool waitForTrigger(const run_s& run, bool again);

// Whether a rule ends the run now; the first one that fires stays the cause. Asked
// between two slots, so a rule fires at most one read late.
bool mustStop(run_s* run);

// How long the olio may dwell, microseconds; the largest number when it has no limit, as with a
// dwell time of 0.
std::int64_t dwellLimit(const OLIO_s& olio);
// Whether the olio is done after `rounds` rounds of this turn. Asked after each round, so that
// every olio does at least one.
bool olioIsDone(const run_s& run, const OLIO_s& olio, std::uint32_t rounds);

}  // namespace rxe
