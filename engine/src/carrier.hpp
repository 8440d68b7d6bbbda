// SPDX-License-Identifier: MIT
// The carrier of a run: hops from channel to channel, and what of a channel's time is
// left. Radio thread only. `position` is an index into run->olios and plan.olios.
#pragma once

#include <cstddef>
#include <cstdint>

#include "run_state.hpp"

namespace rxe {

// Whether work of `microseconds` fits into what is left of the channel's time.
bool fits(const run_s& run, double microseconds);
// Whether each of the plan's channels may be used for that long once it has rested, after the
// 1.5 ms in which tags wake up.
bool everFits(const run_s& run, double microseconds);

// Takes the next channel that may be used for `least` microseconds: the carrier goes off,
// comes again there, and the tags wake up. While no channel may be used it stays off;
// false when the run or the olio is over before one may.
bool hop(run_s* run, std::size_t position, double least);
// Lets the time pass until `end`, microseconds of the engine's clock, with the carrier on;
// hops when the channel's time is used up before. Returns early when the host has asked
// for a stop, and when a hop finds no channel.
void waitOnAir(run_s* run, std::size_t position, std::int64_t end);
// The carrier goes off: CW_OFF, and the tags are without power from now on.
void carrierOff(run_s* run, std::size_t position);

// Call them around the accesses of a tag. A hop in between turns the carrier off with CW_OFF; its
// CW_ON is held back until the accesses end, because a host takes CW_ON as their end.
void beginAccesses(run_s* run);
void endAccesses(run_s* run, std::size_t position);

}  // namespace rxe
