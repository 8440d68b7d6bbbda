// SPDX-License-Identifier: MIT
// Wakes one thread that waits for several things at once.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

class wakeup_c {
  public:
    // Any thread. What is woken before it waits does not wait.
    void wake() {
        {
            const std::lock_guard lock(mutex);
            woken = true;
        }
        condition.notify_one();
    }

    // The waiting thread. Until wake() or the end of the time.
    void waitUntil(std::chrono::steady_clock::time_point end) {
        std::unique_lock lock(mutex);
        condition.wait_until(lock, end, [this] { return woken; });
        woken = false;
    }

  private:
    std::mutex mutex;
    std::condition_variable condition;
    bool woken = false;
};
