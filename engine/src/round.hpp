// SPDX-License-Identifier: MIT
// One inventory round on the air: Selects, Query, slots, and what the adaptive Q makes of
// them. Radio thread only.
#pragma once

#include <cstddef>
#include <cstdint>

#include "run_state.hpp"

namespace rxe {

// One round of the olio at `position`, with the Selects in front of it.
void doRound(run_s* run, std::size_t position);

// What came of a slot. POSTPONED: the reader has heard a tag and leaves it for a channel with
// more time.
enum class outcome_e : std::uint8_t { EMPTY, WHOLE_EPC, COLLIDED, BROKEN_EPC, POSTPONED };

// A round and the frame that it is at. The steps below make up doRound. They are separate
// so that gen2_rates_bench can run a single frame, as the published figures do.
struct round_s {
    run_s* run = nullptr;
    const planned_olio_s* planned = nullptr;
    active_olio_s* olio = nullptr;
    std::size_t position = 0;
    // The Select that has asked for truncated replies; null for whole ones.
    const SELECT_OP_s* truncating = nullptr;
    frame_s frame;
    // Of the frame; the adaptive Q of the olio may be another by now.
    unsigned q = 0;
    // How long the command takes that opens the next slot, microseconds.
    double command = 0;
};
// A round of the olio at `position`, before its first frame.
round_s beginRound(run_s* run, std::size_t position);
// Finds the tags that the Query calls, into run->left.
void gather(round_s* round);
// Begins a frame for those that are left. `command`: how long the command takes that opens
// it, microseconds.
void openFrame(round_s* round, double command);
// The next slot of the frame, with the accesses on a tag that is read in it.
outcome_e doSlot(round_s* round);

}  // namespace rxe
