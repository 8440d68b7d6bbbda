// SPDX-License-Identifier: MIT
// "twctl mode" and "twctl events": settings that are JSON objects.
#pragma once

#include <string>

#include "requests.hpp"

struct json_command_s {
    std::string action = "show";  // a word of the subcommand, as wordRules() has them
    std::string source;           // of "set" and "check": a file, "-", or "{...}"
};

// Each returns an exit_status_e and tells on standard error what is wrong.
int runMode(const daemon_s& daemon, const json_command_s& command);
int runEvents(const daemon_s& daemon, const json_command_s& command);
