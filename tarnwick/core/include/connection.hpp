// SPDX-License-Identifier: MIT
// The connection to the radio engine: bringing it up once, learning what this reader is,
// and whether it still answers. Main thread.
#pragma once

#include <cstdint>
#include <string>

#include "rxe.h"

// False when the process runs without a radio (argument --no_rxe). Written by main() before any
// other thread exists.
extern bool use_rxe;

// The connection is complete; whether the radio answered when last asked.
// Main thread only.
extern bool RXE_connected_status;
extern bool RXE_still_connected;

// Connects the radio, learns what this reader is, takes the channel snapshot,
// registers the packet callback and applies the starting mode. Returns 0, or
// the status to report; the radio is then closed. Once, at start-up.
RXE_API_STATUS initRXEConnection();

// Why that failed, as one clause for the log.
const std::string& connectionFailureCause();

// Disconnects the engine, also when none was connected. RXE_connected_status stays as it
// is when the engine refuses. Main thread, at shutdown, after closeZMQSocketsForRadio.
void closeRXEConnection();

// Whether the radio still answers. Asks it only when no packet has come since
// the last call, so a running radio is never disturbed.
bool check_RXE_connection();

// Packets received since the previous call.
std::uint64_t get_num_RXE_packets_since_last_time();
