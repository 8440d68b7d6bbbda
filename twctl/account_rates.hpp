// SPDX-License-Identifier: MIT
// "twctl account --watch": how fast the account grows.
#pragma once

#include "requests.hpp"

// Asks every `interval` seconds, for `seconds` or without end at 0, and shows what was added, a second:
// on a terminal a table that is drawn again, elsewhere a line "tagPackets 120.0  sent 100.0  ...".
// Returns an exit_status_e.
int showRates(const daemon_s& daemon, double interval, double seconds);
