// SPDX-License-Identifier: MIT
// "twctl status": how the daemon and the radio are.
#pragma once

#include <string>
#include <vector>

#include "requests.hpp"

// The members that can be asked for by name, with blanks between.
std::string statusNames();

inline constexpr int mostAlarms = 1000;

struct status_request_s {
    std::vector<std::string> names;  // the members to ask for; empty: all, and the alarms
    bool json = false;               // one line for programs, in place of the table for people
    int alarms = 5;                  // how many of the last ones stand below the whole table
};

// Prints the status. Returns an exit_status_e.
int runStatus(const daemon_s& daemon, const status_request_s& request);
