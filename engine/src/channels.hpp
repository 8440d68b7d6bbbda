// SPDX-License-Identifier: MIT
// How long a radio may stay on a channel, and when it may come back to it:
//   from 900 MHz up   0.4 s within any 20 s (47 CFR 15.247)
//   below             4 s, then 0.1 s of rest or another channel (ETSI EN 302 208)
// Radio thread only; times are microseconds of the engine's clock.
#pragma once

#include <cstdint>
#include <vector>

namespace rxe {

// One stay of the carrier on a frequency, from its rise until it went off.
struct channel_use_s {
    std::uint32_t kilohertz = 0;
    std::int64_t from = 0;
    std::int64_t to = 0;
};

// The stays that still count against a channel, the oldest first: those that ended less than
// 20 s ago.
using channel_uses_t = std::vector<channel_use_s>;

// Adds a stay that has just ended and forgets those that no longer count.
void noteUse(const channel_use_s& use, channel_uses_t* uses);

// Whether the frequency may be used now, for `least` microseconds and for 10 ms at least: a
// shorter stay brings no read.
bool channelIsFree(const channel_uses_t& uses, std::uint32_t kilohertz, std::int64_t now, std::int64_t least);
// The longest stay on a frequency that has rested: 0.4 s or 4 s.
std::int64_t longestStay(std::uint32_t kilohertz);
// When a stay that begins at `now` has to end. Above 900 MHz, time that leaves the 20 s window
// meanwhile may be used again.
std::int64_t channelLimit(const channel_uses_t& uses, std::uint32_t kilohertz, std::int64_t now);

}  // namespace rxe
