// SPDX-License-Identifier: MIT
#include "subscription_stream.hpp"

#include <algorithm>

std::optional<subscriber_messages_s> subscription_stream::take(std::string_view bytes) {
    if (!unread_.empty()) {
        unread_ += bytes;
        bytes = unread_;
    }
    std::size_t used = framing_.isKnown() ? 0 : framing_.greetingSize(bytes);
    subscriber_messages_s messages;
    while (used < bytes.size()) {
        const std::string_view rest = bytes.substr(used);
        const frame_s frame = framing_.headOf(rest);
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
