// SPDX-License-Identifier: MIT
// The listening socket and its clients.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "fault.hpp"
#include "profile.hpp"

struct server_s {
    std::uint16_t port;                 // 0 lets the kernel choose
    std::chrono::milliseconds timeout;  // a request must be whole by then
    bool verbose;                       // one line on standard output for each request
    profile_s profile;
    fault_plan_s plan;
};

// Listens on 127.0.0.1 and answers until SIGTERM or SIGINT. Prints the ready
// line once clients can connect. Returns the exit status, with the reason on
// standard error when it is not 0.
int runServer(server_s* server);
