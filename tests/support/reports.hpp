// SPDX-License-Identifier: MIT
// Functions of subscribers to tag reports: take frame after frame, and read one.
#pragma once

#include <algorithm>
#include <deque>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>

#include "support/reader.hpp"

// The frames of a subscriber's messages, one by one, without the empty ones
// that end a batch.
struct report_stream_s {
    std::string next() {
        while (waiting.empty()) {
            const std::optional<frames_t> message = socket.receive();
            if (!message) {
                throw std::runtime_error("no report came");
            }
            std::ranges::remove_copy(*message, std::back_inserter(waiting), "");
        }
        std::string frame = waiting.front();
        waiting.pop_front();
        return frame;
    }

    const socket_s& socket;
    std::deque<std::string> waiting = {};
};

// All frames of the messages that come, until none has come for `silence`; without empty frames.
inline frames_t framesOf(const socket_s& subscriber, std::chrono::milliseconds silence) {
    frames_t frames;
    while (const std::optional<frames_t> message = subscriber.receive(silence)) {
        std::ranges::remove_copy(*message, std::back_inserter(frames), "");
    }
    return frames;
}

// The engine's tags are SGTIN-96 (GS1 Tag Data Standard 1.13, section 14.5.1)
// with filter 1, company prefix 0614141 and item 812345: all but the low 36 bits
// of their EPCs.
inline const char* const tagPrefix = "3034257bf7194e4";

inline std::string idOf(const nlohmann::json& report) {
    return report.at("data").at("idHex").get<std::string>();
}

// More tags than any test needs. Each is reported once, so that reports come all the time.
inline const char* const manyTags = R"({"tags": {"count": 50000}, "tagsPerSecond": 400})";
