// SPDX-License-Identifier: MIT
// One inventory round on the air: Selects, Query, slots, and how the adaptive Q follows them
// (EPC Gen2 v2.0.1, 6.3.2.10). Radio thread only.
#pragma once

#include <cstddef>
#include <cstdint>

#include "run_state.hpp"

namespace rxe {

// One round of the olio at `position`, with the Selects in front of it, from INV_BEGIN to
// INV_END. Returns early when the run or the olio is over.
void doRound(run_s* run, std::size_t position);

// How a slot ended. BROKEN_EPC: the tag was acknowledged, and its EPC got lost. POSTPONED: the
// reader has heard a tag and leaves it for a channel with more time.
enum class outcome_e : std::uint8_t { EMPTY, WHOLE_EPC, COLLIDED, BROKEN_EPC, POSTPONED };

// A round and its current frame. The steps below make up doRound. They are separate
// so that gen2_rates_bench can run a single frame, as the published figures do.
struct round_s {
    run_s* run = nullptr;
    const planned_olio_s* planned = nullptr;
    active_olio_s* olio = nullptr;
    std::size_t position = 0;
    // The Select that has asked for truncated replies; null for whole ones.
    const SELECT_OP_s* truncating = nullptr;
    frame_s frame;
    // Q of the frame, which has 2^Q slots; 0 to 15. The olio's adaptive Q may have moved on.
    unsigned q = 0;
    // How long the command takes that opens the next slot, microseconds.
    double command = 0;
};
// A round of the olio at `position`, before its first frame.
round_s beginRound(run_s* run, std::size_t position);
// Puts into run->left the tags that the Query calls: in reach, selected, and with the flag that
// it asks for. Tags too weak for the receiver are left out.
void gather(round_s* round);
// Begins a frame for those that are left. `command`: how long the command takes that opens
// it, microseconds.
void openFrame(round_s* round, double command);
// The next slot of the frame, with the report of a tag that is read in it and the accesses on
// it. Lets the time pass that all this takes.
outcome_e doSlot(round_s* round);

}  // namespace rxe
