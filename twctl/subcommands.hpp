// SPDX-License-Identifier: MIT
// The subcommands on the command line: their options, help and callbacks. Each
// fills its own record while the line is parsed, and writes its exit status into
// `status` when it has run.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

// All but "watch": requests, settings, beams, the engine's events. `words` are those of
// the subcommand that is run, as arrangeArguments() leaves them.
void addRequests(CLI::App* app, const std::vector<std::string>* words, int* status);

void addWatch(CLI::App* app, int* status);

// A time in seconds; fractions down to a millisecond count.
CLI::Validator secondsRange();
