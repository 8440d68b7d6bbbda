// SPDX-License-Identifier: MIT
// "twctl mode" and "twctl events": settings that are JSON objects. They are shown, sent, or
// checked against the published schema without a daemon.
#pragma once

#include <string>

#include "requests.hpp"

struct json_command_s {
    std::string action = "show";  // a word of the subcommand, as wordRules() has them
    std::string source;           // of "set" and "check": a file, "-", or "{...}"
};

// Each runs one action and returns an exit_status_e; what is wrong goes to standard error. A
// document with faults is sent all the same, since only the daemon knows its reader; one that
// would end the daemon is not.
int runMode(const daemon_s& daemon, const json_command_s& command);
int runEvents(const daemon_s& daemon, const json_command_s& command);
