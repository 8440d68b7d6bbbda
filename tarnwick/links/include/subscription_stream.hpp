// SPDX-License-Identifier: MIT
// Reads the bytes that a subscriber sends to a publisher, to learn its subscriptions:
//
//   message    | 1 subscribe, 0 cancel | topic |  of one frame; in 3.1 also as a command
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>

#include "zmtp_framing.hpp"

// The longest message of a subscriber, bytes: one byte to subscribe or cancel, and the topic.
inline constexpr std::size_t maxSubscriptionBytes = 64;
// The longest frame, bytes. Handshakes are longer than subscriptions: a peer may send its
// identity there.
inline constexpr std::int64_t maxSubscriberFrameBytes = 512;
// The most frames of a message behind its first one. A subscription has one frame, and the library
// keeps all frames of a message until the last one has come.
inline constexpr std::size_t maxFurtherFrames = 16;

// The messages that some bytes have completed, subscriptions and others. Commands of the
// handshake do not count.
struct subscriber_messages_s {
    std::size_t count = 0;
    // Bytes.
    std::size_t longest = 0;
};

// The bytes of one peer on one connection. Not for several threads at the same time.
class subscription_stream {
  public:
    // Takes the next bytes, in pieces of any size. Returns the messages that they complete, or
    // nothing when a message or a frame is too long, or has too many frames: then the peer must be
    // disconnected.
    std::optional<subscriber_messages_s> take(std::string_view bytes);

    // The weight of the present subscriptions: 1 for each, and 1 more for each byte of the topic
    // after the second. The publisher keeps topics in a tree, which has at most this many nodes
    // for them.
    [[nodiscard]] std::size_t weight() const { return weight_; }

  private:
    bool takeFrame(std::string_view body, bool command, subscriber_messages_s* messages);

    zmtp_framing framing_;
    // The beginning of a greeting or frame that is not complete yet.
    std::string unread_;
    // Frames so far of a message that is not complete.
    std::size_t frames_ = 0;
    // The present subscriptions.
    std::unordered_set<std::string> topics_;
    std::size_t weight_ = 0;
};
