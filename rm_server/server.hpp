// SPDX-License-Identifier: MIT
// The listening socket and its clients.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "fault.hpp"
#include "profile.hpp"

struct server_s {
    // 0 lets the kernel choose; runServer then writes the port here.
    std::uint16_t port;
    // From the connection on; a request that is not whole by then ends its connection.
    std::chrono::milliseconds timeout;
    // Prints a line on standard output for each request.
    bool verbose;
    profile_s profile;
    fault_plan_s plan;
};

// Listens on 127.0.0.1 and answers until SIGTERM or SIGINT, which it blocks, up to 64 clients at a
// time on one thread. Prints the ready line when clients can connect. Returns the exit status, 0
// after a signal, 1 with the reason on standard error.
int runServer(server_s* server);
