// SPDX-License-Identifier: MIT
// "twctl account --watch": how fast the account grows.
#pragma once

#include "account.hpp"

// Asks again and again, and shows what was added in each interval, a second: on a terminal a table
// that is drawn anew, elsewhere a line "tagPackets 120.0  sent 100.0  ...". Returns an exit_status_e.
int showRates(const daemon_s& daemon, const account_request_s& request);
