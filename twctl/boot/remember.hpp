// SPDX-License-Identifier: MIT
// "twctl remember": the file that "twctl resume" applies, made from the running daemon.
#pragma once

#include <string>

#include "boot/boot_file.hpp"
#include "requests.hpp"

struct remember_s {
    std::string file = boot::usualFile;  // or "-", standard output
    bool dryRun = false;                 // print what the file would hold
    std::string start{};                 // the word of "start"; empty: that of the file, or as-it-was
};

// Asks the daemon and replaces the file, whole at any moment. The file keeps its other members, its
// owner and its rights. A file that has comments, or that "resume" would refuse, stays as it is.
// Returns an exit_status_e.
int runRemember(const daemon_s& daemon, const remember_s& remember);
