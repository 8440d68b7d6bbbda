// SPDX-License-Identifier: MIT
// The two endpoints on which the daemon itself listens. zmq_intfc binds them, peer_limit
// recognises their connections, and twctl has the same ones. Both are fixed.
#pragma once

#include <cstdint>

// The file of the reply socket (clients send requests there), and the TCP port of tag_data
// while its form is STRING or BINARY.
inline constexpr const char* replySocketFile = "/tmp/tarnwick_rep";
inline constexpr std::uint16_t dataPort = 5160;
