// SPDX-License-Identifier: MIT
// Reads the bytes that a client sends to the reply socket, to learn how long its messages are. The
// library limits each frame of a message, but not their number, and keeps them all until the last one
// has come.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "zmtp_framing.hpp"

// The longest request, bytes.
inline constexpr std::int64_t maxRequestBytes = 16 << 20;

// The bytes of one client on one connection. Not for several threads at the same time.
class request_stream {
  public:
    // Takes the next bytes, in pieces of any size. False when the frames of a message together need
    // more memory than the longest request: then the client must be disconnected.
    bool take(std::string_view bytes);

  private:
    bool takeHead();

    zmtp_framing framing_;
    // The beginning of a greeting, or of the head of a frame, that is not complete yet.
    std::string head_;
    // Bytes of the present frame that have not come yet.
    std::uint64_t missing_ = 0;
    // Bytes that the frames of the present message need.
    std::uint64_t memory_ = 0;
};
