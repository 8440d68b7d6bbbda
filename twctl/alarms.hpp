// SPDX-License-Identifier: MIT
// The errors and warnings that the daemon has logged. Its replies hold only their number,
// and it publishes an alarm once, to those that listen at that moment. Only the log keeps them.
#pragma once

#include <string>
#include <vector>

struct alarms_s {
    std::vector<std::string> lines;  // "2026-03-02T10:15:30.123Z ERROR Antenna Disconnected on Port 2"
    std::string trouble;             // why the log cannot be read; empty when it was
};

// The last `count` of them, the newest last, from tarnwick.log and tarnwick.log.1 in the
// working directory of the process that listens on the ipc endpoint. The caller must be root
// or the user who runs the daemon. Older logs (.2 to .5) are not read.
alarms_s lastAlarms(const std::string& endpoint, std::size_t count);
