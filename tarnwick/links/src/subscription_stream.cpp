// SPDX-License-Identifier: MIT
#include "subscription_stream.hpp"

#include <algorithm>

namespace {

// The head of a frame; `headSize` is 0 while it is not complete.
struct frame_s {
    std::size_t headSize = 0;  // 0: not complete
    std::uint64_t bodySize = 0;
    bool command = false;
    bool more = false;  // frames of the same message follow
};

std::uint8_t byteAt(std::string_view bytes, std::size_t index) {
    return static_cast<std::uint8_t>(bytes[index]);
}

// Eight bytes, high one first.
std::uint64_t longSize(std::string_view bytes) {
    std::uint64_t size = 0;
    for (std::size_t i = 0; i < 8; ++i) {
        size = size << 8 | byteAt(bytes, i);
    }
    return size;
}

// Whether the flags at this place say that more frames follow; false while they are not there.
bool hasMoreFlag(std::string_view bytes, std::size_t index) {
    return index < bytes.size() && (byteAt(bytes, index) & 1) != 0;
}

//   | flags: 1 | size: 1, or 8 with flag 2 | body |      flag 1: more frames follow; 4: a command
frame_s flagsFirstHead(std::string_view bytes) {
    constexpr unsigned longFlag = 2;
    constexpr unsigned commandFlag = 4;
    if (bytes.size() < 2) {
        return {};
    }
    const bool command = (byteAt(bytes, 0) & commandFlag) != 0;
    const bool more = hasMoreFlag(bytes, 0);
    if ((byteAt(bytes, 0) & longFlag) == 0) {
        return {2, byteAt(bytes, 1), command, more};
    }
    return bytes.size() < 9 ? frame_s{} : frame_s{9, longSize(bytes.substr(1)), command, more};
}

//   | size: 1, or 255 and 8 | flags: 1 | body |      the size counts the flags
frame_s lengthFirstHead(std::string_view bytes) {
    if (bytes.empty()) {
        return {};
    }
    if (byteAt(bytes, 0) != 0xFF) {
        return {2, byteAt(bytes, 0) - std::uint64_t{1}, false, hasMoreFlag(bytes, 1)};
    }
    return bytes.size() < 9 ? frame_s{}
                            : frame_s{10, longSize(bytes.substr(1)) - 1, false, hasMoreFlag(bytes, 9)};
}

}  // namespace

// Bytes before the first frame, or npos when more must come to know. A peer of ZMTP 1.0
// begins with a frame.
std::size_t subscription_stream::greetingSize(std::string_view bytes) {
    constexpr std::size_t signatureSize = 10;
    constexpr std::uint8_t revision2 = 1;
    if (bytes.empty()) {
        return std::string_view::npos;
    }
    if (byteAt(bytes, 0) != 0xFF || (bytes.size() >= signatureSize && (byteAt(bytes, 9) & 1) == 0)) {
        framing_ = framing_e::lengthFirst;
        return 0;
    }
    if (bytes.size() <= signatureSize) {
        return std::string_view::npos;
    }
    const std::uint8_t revision = byteAt(bytes, signatureSize);
    const std::size_t size = revision <= revision2 ? 12 : 64;
    if (bytes.size() < size) {
        return std::string_view::npos;
    }
    framing_ = revision == 0 ? framing_e::lengthFirst : framing_e::flagsFirst;
    return size;
}

std::optional<subscriber_messages_s> subscription_stream::take(std::string_view bytes) {
    if (!unread_.empty()) {
        unread_ += bytes;
        bytes = unread_;
    }
    std::size_t used = framing_ == framing_e::unknown ? greetingSize(bytes) : 0;
    subscriber_messages_s messages;
    while (used < bytes.size()) {
        const std::string_view rest = bytes.substr(used);
        const frame_s frame =
            framing_ == framing_e::flagsFirst ? flagsFirstHead(rest) : lengthFirstHead(rest);
        if (frame.bodySize > maxSubscriberFrameBytes) {
            return std::nullopt;
        }
        if (frame.headSize == 0 || rest.size() < frame.headSize + frame.bodySize) {
            break;
        }
        frames_ = frame.more && !frame.command ? frames_ + 1 : 0;
        if (frames_ > maxFurtherFrames) {
            return std::nullopt;
        }
        if (!takeFrame(rest.substr(frame.headSize, frame.bodySize), frame.command, &messages)) {
            return std::nullopt;
        }
        used += frame.headSize + frame.bodySize;
    }
    unread_ = std::string(bytes.substr(used == std::string_view::npos ? 0 : used));
    return messages;
}

// Takes the body of a frame. Commands other than SUBSCRIBE and CANCEL do not reach the publisher and
// are skipped. False when the message is too long.
bool subscription_stream::takeFrame(std::string_view body, bool command, subscriber_messages_s* messages) {
    const std::string_view subscribe = command ? "\11SUBSCRIBE" : std::string_view("\1", 1);
    const std::string_view cancel = command ? "\6CANCEL" : std::string_view("\0", 1);
    const bool subscribes = body.starts_with(subscribe);
    const bool cancels = body.starts_with(cancel);
    if (command && !subscribes && !cancels) {
        return true;
    }
    const std::string topic(body.substr(subscribes ? subscribe.size() : cancels ? cancel.size() : 0));
    const std::size_t size = 1 + topic.size();
    const std::size_t weight = std::max<std::size_t>(topic.size(), 2) - 1;
    if (size > maxSubscriptionBytes) {
        return false;
    }
    ++messages->count;
    messages->longest = std::max(messages->longest, size);
    if (subscribes) {
        weight_ += topics_.insert(topic).second ? weight : 0;
    } else if (cancels) {
        weight_ -= topics_.erase(topic) != 0 ? weight : 0;
    }
    return true;
}
