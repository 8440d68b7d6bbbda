// SPDX-License-Identifier: MIT
// The errors and warnings that the daemon has logged. Its replies hold only their
// number, and alarms are told once, to those that listen; the log alone remembers them.
#pragma once

#include <string>
#include <vector>

struct alarms_s {
    std::vector<std::string> lines;  // "2026-03-02T10:15:30.123Z ERROR Antenna Disconnected on Port 2"
    std::string trouble;             // why the log cannot be read; empty when it was
};

// The last `count` of them, the newest last, from tarnwick.log and tarnwick.log.1 in the
// working directory of the process that listens on the ipc endpoint. Takes the right to
// look there: that of root or of the user who runs the daemon.
alarms_s lastAlarms(const std::string& endpoint, std::size_t count);
