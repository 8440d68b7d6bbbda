// SPDX-License-Identifier: MIT
// The order of a command line: options may stand anywhere, words keep their order.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

// Puts the subcommand first and its options, with their values, behind it; the program's
// own options are left in front. What is not an option of a subcommand that takes words
// (one with prefix_command()) goes into `words`; a number may begin with "-", and so may
// anything behind "--". Throws CLI::ValidationError, with a sentence, for an option that the
// subcommand does not have.
std::vector<std::string> arrangeArguments(const CLI::App& app, const std::vector<std::string>& typed,
                                          std::vector<std::string>* words);
