// SPDX-License-Identifier: MIT
// Slotted ALOHA of the Gen2 air interface (EPC Gen2 v2.0.1, 6.3.2.10 and annex D). After a Query
// each tag draws a slot from 0 to 2^Q - 1. The engine does not draw for each tag. It draws how
// many tags are in a slot when that slot comes: with n tags still waiting and s slots left, from
// the binomial distribution of n trials with probability 1/s. The result has the same
// distribution, at a cost that does not grow with the number of tags.
#pragma once

#include <cmath>
#include <cstdint>

#include "random.hpp"

namespace rxe {

// The slots between a Query or QueryAdjust and the next one.
struct frame_s {
    // 2^Q
    std::uint32_t slots = 1;
    // The next slot, from 0; `slots` when the frame is over.
    std::uint32_t next = 0;
    // Tags whose slot has not come yet.
    std::uint32_t waiting = 0;
};

// The next slot of the frame, which must not be over: how many tags answer in it. They no
// longer wait.
std::uint32_t drawSlot(frame_s* frame, random_s* random);
// How many of `count` tags fall into one slot, when each does so with `probability`. With a mean
// above 60 it is drawn from a normal distribution: so many tags collide whatever their number.
std::uint32_t drawBinomial(std::uint32_t count, double probability, random_s* random);

// The adaptive Q (EPC Gen2 v2.0.1, annex D). From a start at 0 each 3 or 4 collisions raise Q by
// one, so that a wrong initial Q costs a few dozen short slots.
struct adaptive_q_s {
    // 0 to 15, with a fraction.
    double value = 0;
    unsigned q() const { return static_cast<unsigned>(std::lround(value)); }
};
// How much an empty slot lowers Q and a collision raises it; annex D suggests 0.1 to 0.5.
constexpr double qStep = 0.3;
// Qfp of annex D stays within 0 and 15.
inline void noteEmpty(adaptive_q_s* q) {
    q->value = q->value > qStep ? q->value - qStep : 0;
}
inline void noteCollision(adaptive_q_s* q) {
    q->value = q->value < 15 - qStep ? q->value + qStep : 15;
}

}  // namespace rxe
