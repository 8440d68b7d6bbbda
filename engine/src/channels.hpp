// SPDX-License-Identifier: MIT
// How long a radio may stay on a channel, and when it may come back to it.
// Above 900 MHz: 0.4 s within any 20 s (47 CFR 15.247). Below: 4 s, then 0.1 s
// of rest or another channel (ETSI EN 302 208). Radio thread only; times are
// microseconds of the engine's clock.
#pragma once

#include <cstdint>
#include <vector>

namespace rxe {

// One stay of the carrier on a frequency.
// Times from the rise of the carrier until it went off.
struct channel_use_s {
    std::uint32_t kilohertz = 0;
    std::int64_t from = 0;
    std::int64_t to = 0;
};

// The stays that still count, in their order.
using channel_uses_t = std::vector<channel_use_s>;

// Adds a stay that has just ended and forgets those that no longer count.
void noteUse(const channel_use_s& use, channel_uses_t* uses);

// Whether the frequency may be used now, for `least` microseconds and long enough to be of use.
bool channelIsFree(const channel_uses_t& uses, std::uint32_t kilohertz, std::int64_t now, std::int64_t least);
// The longest stay on a frequency that has rested, microseconds.
std::int64_t longestStay(std::uint32_t kilohertz);
// When a stay that begins now has to end.
std::int64_t channelLimit(const channel_uses_t& uses, std::uint32_t kilohertz, std::int64_t now);

}  // namespace rxe
