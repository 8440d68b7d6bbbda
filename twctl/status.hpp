// SPDX-License-Identifier: MIT
// "twctl status": how the daemon and the radio are, as a table for people or as one line of
// JSON for programs.
#pragma once

#include <string>
#include <vector>

#include "requests.hpp"

// The members that can be asked for by name, with blanks between, in the order of the table.
std::string statusNames();

// How many alarms can be asked for at once.
inline constexpr int mostAlarms = 1000;

// One call of the subcommand.
struct status_request_s {
    std::vector<std::string> names;  // the members to ask for; empty: all, with the alarms
    bool json = false;               // one line for programs, in place of the table for people
    int alarms = 5;                  // how many of the last ones stand below the whole table
};

// Asks the daemon and prints the status. Returns an exit_status_e; a reply that is not JSON is
// exitTrouble.
int runStatus(const daemon_s& daemon, const status_request_s& request);
