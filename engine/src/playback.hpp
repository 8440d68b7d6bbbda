// SPDX-License-Identifier: MIT
// A run that is played back from a packet log instead of being simulated. Its packets go to
// the host whatever types the host has enabled, since the log holds what its writer enabled.
#pragma once

#include "host.hpp"
#include "radio.hpp"

namespace rxe {

// Radio thread. Delivers the next run of radio->replay at the times of the log or, with
// replay_s::fast, at once, and returns when it is over. The run ends as it does in the log.
// When the host stops it before, START_INFO3 and an end-of-run packet follow with stop cause 1.
// A log that ends within a run leaves the run open until the host stops it.
void runReplay(radio_s* radio, host_s* host);

}  // namespace rxe
