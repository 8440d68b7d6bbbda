// SPDX-License-Identifier: MIT
// How many peers of a publisher have completed their handshake and are connected, from the events of
// the library's monitor. When a handshake succeeds the library does not say on which connection, and when
// it fails not always that it failed: a socket of the wrong type looks the same as a subscriber that goes.
// So connections whose handshake is not known to be complete are kept apart. Not for several threads at the
// same time.
#pragma once

#include <chrono>
#include <cstddef>
#include <unordered_map>
#include <unordered_set>

class listener_count {
  public:
    using clock_t = std::chrono::steady_clock;

    // A connection was made; `fd` is its descriptor.
    void connected(int fd, clock_t::time_point now) {
        established_.erase(fd);
        open_[fd] = now;
        settle();
    }

    // The handshake of one of the connections is complete. A handshake takes some round trips, so when
    // only one connection is new it is that one. Otherwise it shows when the others have gone.
    void succeeded(clock_t::time_point now) {
        constexpr std::chrono::seconds oldFrom{1};
        const int* onlyNew = nullptr;
        std::size_t news = 0;
        for (const auto& [fd, since] : open_) {
            if (now - since < oldFrom) {
                onlyNew = &fd;
                ++news;
            }
        }
        if (news == 1 && undecided_ == 0) {
            const int fd = *onlyNew;
            established_.insert(fd);
            open_.erase(fd);
        } else {
            ++undecided_;
        }
        settle();
    }

    void disconnected(int fd) {
        if (established_.erase(fd) == 0) {
            open_.erase(fd);
        }
        settle();
    }

    [[nodiscard]] int count() const { return static_cast<int>(established_.size() + undecided_); }

  private:
    // All that are left have succeeded when there are not more of them than successes.
    void settle() {
        if (undecided_ != 0 && undecided_ >= open_.size()) {
            for (const auto& [fd, since] : open_) {
                established_.insert(fd);
            }
            open_.clear();
            undecided_ = 0;
        }
    }

    std::unordered_map<int, clock_t::time_point> open_;  // since when, by descriptor
    std::unordered_set<int> established_;
    std::size_t undecided_ = 0;  // of `open_`, successes of which it is not known whose they are
};
