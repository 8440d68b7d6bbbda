// SPDX-License-Identifier: MIT
// What a subscriber sends to a publisher, read along as it comes off the wire: which
// topics the peer has subscribed to. ZMTP 1.0 to 3.1 (rfc.zeromq.org, 13, 15, 23, 37).
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>

// The longest message of a subscriber, in bytes: one that says whether it subscribes, and
// the topic.
inline constexpr std::size_t maxSubscriptionBytes = 64;
// The longest frame: the handshake of a peer that tells an identity is longer than any
// subscription.
inline constexpr std::int64_t maxSubscriberFrameBytes = 512;

// Subscriptions and other messages of a subscriber.
struct subscriber_messages_s {
    std::size_t count = 0;
    std::size_t longest = 0;  // bytes
};

// One peer's side of one connection. One thread.
class subscription_stream {
  public:
    // Takes the next bytes. Returns the messages complete in them, or nothing when one is
    // too long and the peer must go.
    std::optional<subscriber_messages_s> take(std::string_view bytes);

    // The weight of the present subscriptions: 1 for each, and 1 more for each byte of the
    // topic behind the second. The publisher's tree of topics has that many branches at most.
    [[nodiscard]] std::size_t weight() const { return weight_; }

  private:
    // How frames are written: with the length first, or with the flags first.
    enum class framing_e : std::uint8_t { unknown, lengthFirst, flagsFirst };

    std::size_t greetingSize(std::string_view bytes);
    bool takeFrame(std::string_view body, bool command, subscriber_messages_s* messages);

    framing_e framing_ = framing_e::unknown;
    std::string unread_;  // the begin of what is not complete yet
    std::unordered_set<std::string> topics_;
    std::size_t weight_ = 0;
};
