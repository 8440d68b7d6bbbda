// SPDX-License-Identifier: MIT
// What happens to the world while the engine is connected: due moments of the
// timeline, and what the control socket posts in between. Radio thread only.
#pragma once

#include <cstdint>

#include "host.hpp"
#include "radio.hpp"

namespace rxe {

// Changes the world by what is due and sends the packets that tell of it. To be called
// when `now` has reached radio.nextEvent, and when an event was posted. Returns when it
// has to be called again, microseconds of the engine's clock.
std::int64_t applyDueEvents(radio_s* radio, host_s* host);

}  // namespace rxe
