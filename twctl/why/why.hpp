// SPDX-License-Identifier: MIT
// "twctl why": what became of one tag, and what to do that it is reported.
#pragma once

#include <string>

#include "requests.hpp"

struct why_s {
    std::string epc;  // hexadecimal digits, also only the first ones of several tags
    double seconds = 10.0;
    bool json = false;
    // The software radio's control socket, or "none". Empty: where it usually is, if one runs there.
    std::string engine{};
};

// Has the daemon trace the EPC while it listens for `seconds`, explains what it found on
// standard output, and ends the trace, unless it was there before. SIGINT and SIGTERM end the
// listening early, and are blocked for good. Returns an exit_status_e: exitSuccess for any
// explanation, exitNoAnswer when there is nothing to explain, with a sentence on standard error:
// not an EPC, no daemon, no radio, a simulation.
int runWhy(const daemon_s& daemon, const why_s& why);
