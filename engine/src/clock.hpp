// SPDX-License-Identifier: MIT
// The engine's clock, and what is due by time alone, whatever the radio does: CMD_ONGOING,
// answers to the host's requests, events. Radio thread only. Times are microseconds of the
// engine's clock.
#pragma once

#include <cstdint>

#include "host.hpp"
#include "radio.hpp"

namespace rxe {

// Lets `microseconds` of the engine's clock pass, asleep on the real clock and at once
// on the fast one, and sends what is due meanwhile. Returns early when the host has
// asked for a stop.
void advance(radio_s* radio, host_s* host, std::int64_t microseconds);
// The same for a duration on the air, which has a fraction; the fractions add up.
void pass(radio_s* radio, host_s* host, double microseconds);
// The same for a wait that only an event or the host can end: it sleeps for a fifth of
// a second, on the fast clock too.
void park(radio_s* radio, host_s* host);

// Moves the engine's clock up to the real one, after a wait between two runs. The fast
// clock stays.
void catchUp(radio_s* radio);
// Applies the events and answers the requests that are due now.
void sendWhatIsDue(radio_s* radio, host_s* host);

}  // namespace rxe
