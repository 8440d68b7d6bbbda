// SPDX-License-Identifier: MIT
// Where peers come to the daemon: the two endpoints on which it listens itself.
#pragma once

#include <cstdint>

// The file of the reply socket, and the TCP port of tag_data while it is bound.
inline constexpr const char* replySocketFile = "/tmp/tarnwick_rep";
inline constexpr std::uint16_t dataPort = 5160;
