// SPDX-License-Identifier: MIT
// "twctl resume": what the owner of a reader wants after a boot, from a file to the daemon.
#pragma once

#include <string>

#include "boot/boot_file.hpp"
#include "requests.hpp"

struct resume_s {
    std::string file = boot::usualFile;  // or "-", or "{...}"
    bool isNamed = false;                // the caller has named it: it must exist
    bool check = false;                  // tell mistakes and differences, change nothing
    double waitSeconds = 30.0;           // for the daemon's first answer
    std::string directory{};             // of autoStart.txt; empty: that of the process at the socket
};

// Sends what differs, the start of the radio last and only when reports have the form that the file
// says. A radio that runs is left running, and a file with mistakes changes nothing. Without the file
// there is nothing to do. Returns an exit_status_e.
int runResume(const daemon_s& daemon, const resume_s& resume);
