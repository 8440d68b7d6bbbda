// SPDX-License-Identifier: MIT
// "twctl request": one request to the daemon and its reply.
#pragma once

#include <string>
#include <vector>

struct request_s {
    std::vector<std::string> words;  // joined by single blanks
    std::string endpoint = "ipc:///tmp/tarnwick_rep";
    double timeoutSeconds = 5.0;
};

// Sends the request, waits for the reply and prints it on standard output;
// what goes wrong on this side is told on standard error. Returns an exit_status_e.
int runRequest(const request_s& request);
