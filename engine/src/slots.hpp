// SPDX-License-Identifier: MIT
// Slotted ALOHA as the Query and the tags play it (EPC Gen2 v2.0.1, 6.3.2.10
// and annex D). Tags that draw the same kind of number are alike until their
// slot comes, so a slot's occupancy is drawn when the slot comes, from the
// binomial distribution that the earlier slots leave over: the same as a draw
// for each tag at the Query, at a cost that does not grow with the tags.
#pragma once

#include <cmath>
#include <cstdint>

#include "random.hpp"

namespace rxe {

struct frame_s {
    // 2^Q
    std::uint32_t slots = 1;
    // The slot that comes, from 0; `slots` when the frame is over.
    std::uint32_t next = 0;
    // Tags whose slot has not come yet.
    std::uint32_t waiting = 0;
};

// The next slot of the frame, which must not be over: how many tags answer in it. They no
// longer wait.
std::uint32_t drawSlot(frame_s* frame, random_s* random);
// How many of `count` tags fall into one slot that each hits with `probability`.
std::uint32_t drawBinomial(std::uint32_t count, double probability, random_s* random);

// The adaptive Q of annex D. With a start at 0 the first collisions raise it,
// some 3 slots for each step, so a wrong guess costs a few dozen short slots.
struct adaptive_q_s {
    // 0 to 15, with a fraction.
    double value = 0;
    unsigned q() const { return static_cast<unsigned>(std::lround(value)); }
};
// How much an empty slot lowers Q and a collision raises it; annex D suggests 0.1 to 0.5.
constexpr double qStep = 0.3;
inline void noteEmpty(adaptive_q_s* q) {
    q->value = q->value > qStep ? q->value - qStep : 0;
}
inline void noteCollision(adaptive_q_s* q) {
    q->value = q->value < 15 - qStep ? q->value + qStep : 15;
}

}  // namespace rxe
