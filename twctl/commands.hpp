// SPDX-License-Identifier: MIT
// The subcommands that are a request of the same name.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "requests.hpp"

struct command_s {
    std::string_view name;  // as it goes to the daemon
    const char* help;       // of the client, for people
};
extern const std::vector<command_s> commands;

// Sends such a request when its words may stand where they do. Prints what the reply says,
// or on standard error the failure. Returns an exit_status_e.
int runCommand(const daemon_s& daemon, const std::vector<std::string>& words);
