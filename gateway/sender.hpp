// SPDX-License-Identifier: MIT
// The thread around a sink: from the spool to the receiver, and back to the cursor.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "config.hpp"
#include "sink.hpp"
#include "spool.hpp"

struct sender_status_s {
    bool up = false;
    std::string trouble;         // why it is not up; empty at first
    std::uint64_t inFlight = 0;  // offered and not settled
};

class sender_c {
  public:
    // `sink` is the sink's account, for its id, cursor and streams.
    sender_c(const sink_config_s& config, const sink_account_s& sink, spool_c* spool);
    // Ends at once.
    ~sender_c();
    sender_c(const sender_c&) = delete;
    sender_c& operator=(const sender_c&) = delete;

    // Main thread. From now on it ends as soon as everything in the spool is settled, or without
    // `deliverRest` what is in flight, at the latest at `end`.
    void drain(std::chrono::steady_clock::time_point end, bool deliverRest);
    // Main thread. Whether it has ended since drain(). When its time is over, a sink that still waits for
    // its receiver is called back.
    bool hasEnded();
    // Main thread. Waits for its end.
    void join();

    sender_status_s status() const;  // any thread

  private:
    struct impl_s;
    std::unique_ptr<impl_s> impl;
};
