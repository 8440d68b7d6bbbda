// SPDX-License-Identifier: MIT
// "twctl account": the account of tag packets as a table, as JSON, or as rates.
#pragma once

#include "requests.hpp"

// One call of the subcommand.
struct account_request_s {
    bool json = false;      // the daemon's JSON on one line, in place of the table for people
    bool rates = false;     // again and again what was added meanwhile, in place of the sums
    double interval = 1.0;  // seconds between two rates
    double seconds = 0.0;   // how long to show rates; 0 is no limit
};

// Asks the daemon and prints its account; rates until the time is over, or until SIGINT or SIGTERM,
// both of which stay blocked. Returns an exit_status_e: exitFailure for an account that does not
// close, exitTrouble for a reply that is not an account.
int runAccount(const daemon_s& daemon, const account_request_s& request);
