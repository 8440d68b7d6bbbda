// SPDX-License-Identifier: MIT
// The subcommands that are a request of the same name: their words go to the daemon as they
// are typed. "status", "mode" and "events" have files of their own.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "requests.hpp"

// A row of the program's help. The daemon has a help text of its own for each command, which
// the request "help" shows.
struct command_s {
    std::string_view name;     // the command's word
    const char* help;          // a line for people
    bool showsObject = false;  // a reply that is a JSON object is shown over several lines
};
extern const std::vector<command_s> commands;

// Sends the request of `command` when its words, the command first, may stand where they do. Prints the
// reply on standard output, a failure on standard error. Returns an exit_status_e.
int runCommand(const daemon_s& daemon, const command_s& command, const std::vector<std::string>& words);
