// SPDX-License-Identifier: MIT
// Where the frames are in the bytes that a peer sends. ZMTP 1.0 to 3.1 (rfc.zeromq.org, 13, 15, 23, 37):
//
//   1.0        frame ...
//   2.0        greeting: 12 bytes | frame ...
//   3.0, 3.1   greeting: 64 bytes | frame ...     the handshake comes as command frames
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

// The head of a frame.
struct frame_s {
    std::size_t headSize = 0;  // bytes; 0: not complete
    std::uint64_t bodySize = 0;
    bool command = false;
    bool more = false;  // frames of the same message follow
};

// The version of one peer. Not for several threads at the same time.
class zmtp_framing {
  public:
    // The bytes before the first frame, or npos when more must come to know. A peer of ZMTP 1.0
    // begins with a frame. To be asked until it is known.
    std::size_t greetingSize(std::string_view bytes);
    [[nodiscard]] bool isKnown() const { return order_ != order_e::unknown; }

    // The frame that begins with these bytes. Its size may be known before the head is complete.
    [[nodiscard]] frame_s headOf(std::string_view bytes) const;

  private:
    // ZMTP 1.0 writes the length of a frame first, later versions the flags. Unknown until the
    // greeting is complete.
    enum class order_e : std::uint8_t { unknown, lengthFirst, flagsFirst };
    order_e order_ = order_e::unknown;
};
