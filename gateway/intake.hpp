// SPDX-License-Identifier: MIT
// The daemon's frames into the spool. One thread receives from all sources.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "account.hpp"
#include "config.hpp"
#include "spool.hpp"

// A frame of a channel, judged. The body is JSON in compact form; it is empty for a frame that is
// neither a report nor an event.
struct judged_frame_s {
    std::string body;
    std::optional<std::uint64_t> number;
};

// A tag report in any of the three forms (docs/reports.md). BINARY becomes the JSON that the daemon
// would have sent, as far as the binary form holds it; its time is in UTC.
judged_frame_s judgeTagFrame(std::string_view frame);
// A heartbeat or an alarm.
judged_frame_s judgeEventFrame(std::string_view frame);

// "hh:mm:ss" of a heartbeat in seconds; -1 when the body is not a heartbeat.
std::int64_t uptimeOf(std::string_view body);

class picture_c;

class intake_c {
  public:
    // `picture` gets a copy of what came, for those who look; it may be nullptr.
    explicit intake_c(spool_c* spool, picture_c* picture = nullptr);
    ~intake_c();
    intake_c(const intake_c&) = delete;
    intake_c& operator=(const intake_c&) = delete;

    // Binds and connects, and starts the thread; or changes to other sources: endpoints that stay are
    // kept open. False with the reason, and what was open before goes on, when an endpoint cannot be
    // had: a file on which another process listens is never taken from it.
    bool open(const std::vector<source_config_s>& sources, std::string* error);
    // Takes what has arrived, then ends the thread and closes the endpoints.
    void close();

    // Any thread. Grows while the thread lives, at least every second.
    std::uint64_t pulse() const;

  private:
    struct impl_s;
    std::unique_ptr<impl_s> impl;
};
