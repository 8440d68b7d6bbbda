// SPDX-License-Identifier: MIT
// "twctl status": how the daemon and the radio are.
#pragma once

#include <string>
#include <vector>

#include "requests.hpp"

// The members that can be asked for by name, with blanks between.
std::string statusNames();

// Prints a table for people or, with `json`, one line for programs. `names` are
// the members to ask for, all when it is empty. Returns an exit_status_e.
int runStatus(const daemon_s& daemon, const std::vector<std::string>& names, bool json);
