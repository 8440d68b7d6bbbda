// SPDX-License-Identifier: MIT
// Applies what happens to the world while the engine is connected: moments of the timeline
// that are due, and events that the control socket has posted. Radio thread only.
#pragma once

#include <cstdint>

#include "host.hpp"
#include "radio.hpp"

namespace rxe {

// Changes the world by what is due and sends the packets that tell of it; moves the
// temperatures on as well. Call it when the clock has reached radio.nextEvent, and when an
// event was posted. Returns the time of the next call, microseconds of the engine's clock.
// During a replay only posted events are applied, since the log has the packets of all others.
std::int64_t applyDueEvents(radio_s* radio, host_s* host);

}  // namespace rxe
