// SPDX-License-Identifier: MIT
// Slotted ALOHA as the Query and the tags play it (EPC Gen2 v2.0.1, 6.3.2.10
// and annex D). Tags that draw the same kind of number are alike until their
// slot comes, so a slot's occupancy is drawn when the slot comes, from the
// binomial distribution that the earlier slots leave over: the same as a draw
// for each tag at the Query, at a cost that does not grow with the tags.
#ifndef ENGINE_SLOTS_HPP
#define ENGINE_SLOTS_HPP

#include <cmath>
#include <cstdint>

#include "random.hpp"

namespace rxe {

struct frame_s {
    std::uint32_t slots = 1;    // 2^Q
    std::uint32_t next = 0;     // the slot that comes
    std::uint32_t waiting = 0;  // tags whose slot has not come yet
};

// The next slot of the frame: how many tags answer in it. They no longer wait.
std::uint32_t drawSlot(frame_s* frame, random_s* random);
// How many of `count` tags fall into one slot that each hits with `probability`.
std::uint32_t drawBinomial(std::uint32_t count, double probability, random_s* random);

// The adaptive Q of annex D. With a start at 0 the first collisions raise it,
// some 3 slots for each step, so a wrong guess costs a few dozen short slots.
struct adaptive_q_s {
    double value = 0;
    unsigned q() const { return static_cast<unsigned>(std::lround(value)); }
};
constexpr double Q_STEP = 0.3;
inline void noteEmpty(adaptive_q_s* q) {
    q->value = q->value > Q_STEP ? q->value - Q_STEP : 0;
}
inline void noteCollision(adaptive_q_s* q) {
    q->value = q->value < 15 - Q_STEP ? q->value + Q_STEP : 15;
}

}  // namespace rxe

#endif
