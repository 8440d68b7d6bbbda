// SPDX-License-Identifier: MIT
// "twctl complete": what may come next on a line that is being typed. The shell's
// completion script asks it, so that the script knows no word itself.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <string_view>
#include <vector>

// `line` is what stands in front of the cursor, "twctl" first. Each result is a
// whole word that begins with the unfinished one. There are none where any text may stand,
// such as the name of a file; the shell then completes files.
std::vector<std::string> completeLine(const CLI::App& app, std::string_view line);
