// SPDX-License-Identifier: MIT
#include "request_stream.hpp"

#include <algorithm>

namespace {

// What the library needs for a frame beside its bytes, and what a request may need: the longest one, and
// the frames of its envelope.
constexpr std::uint64_t frameMemory = 64;
constexpr std::uint64_t maxMemory = maxRequestBytes + 16 * frameMemory;

}  // namespace

bool request_stream::take(std::string_view bytes) {
    while (!bytes.empty()) {
        if (missing_ > 0) {
            const auto skipped = static_cast<std::size_t>(std::min<std::uint64_t>(missing_, bytes.size()));
            missing_ -= skipped;
            bytes.remove_prefix(skipped);
            continue;
        }
        head_ += bytes.front();
        bytes.remove_prefix(1);
        if (!takeHead()) {
            return false;
        }
    }
    return true;
}

// Looks at the greeting or the head so far. False when the message becomes too long.
bool request_stream::takeHead() {
    if (!framing_.isKnown()) {
        if (const std::size_t size = framing_.greetingSize(head_); !framing_.isKnown()) {
            return true;
        } else if (size > 0) {
            head_.clear();
            return true;
        }
    }
    const frame_s frame = framing_.headOf(head_);
    if (frame.bodySize > maxMemory) {
        return false;
    }
    if (frame.headSize == 0 || head_.size() < frame.headSize) {
        return true;
    }
    head_.clear();
    missing_ = frame.bodySize;
    if (frame.command) {
        return true;
    }
    memory_ += frameMemory + frame.bodySize;
    if (memory_ > maxMemory) {
        return false;
    }
    memory_ = frame.more ? memory_ : 0;
    return true;
}
