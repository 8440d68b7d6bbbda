// SPDX-License-Identifier: MIT
// A run that is played back from a packet log instead of being simulated.
#pragma once

#include "host.hpp"
#include "radio.hpp"

namespace rxe {

// Radio thread: delivers the next run of radio->replay, and returns when it is over. The
// run ends as the log's did; when the host stops it, with a packet that says so.
void runReplay(radio_s* radio, host_s* host);

}  // namespace rxe
