// SPDX-License-Identifier: MIT
// Something that several threads use, one at a time, and for which the engine thread never
// waits: what it cannot do at once it leaves behind, and whoever is at it does that too
// before he goes. All other threads wait for their turn.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <thread>

// Whether this thread is inside the engine's callback. Set for the length of one packet.
inline thread_local bool isEngineThread = false;

// `Work` is what may be left behind, up to `room` of it, which `finish` does later, on another
// thread; it is made once and reused, so that its memory is kept. Only one thread at a time
// may be inside the engine's callback.
template <class Work, std::size_t room, void (*finish)(Work&)>
class turn_s {
  public:
    // Runs `now` with nobody else at it. The engine thread, which finds another one at it,
    // calls `leave` instead, to fill the work that is left behind. What the engine thread
    // does and leaves keeps its order. False when there was no room: nothing will be done.
    template <class Now, class Leave>
    bool doOrLeave(Now&& now, Leave&& leave) {
        if (!isEngineThread) {
            doInTurn(now);
            return true;
        }
        if (take()) {
            finishAll();
            now();
            // Nobody else leaves anything, so there is nothing to look for.
            taken_.store(false, std::memory_order_release);
            return true;
        }
        const std::uint32_t end = end_.load(std::memory_order_relaxed);
        if (end - begin_.load(std::memory_order_acquire) == room) {
            return false;
        }
        leave(left_[end % room]);
        end_.store(end + 1, std::memory_order_seq_cst);
        // The other one has either seen it, or has gone by now.
        if (take()) {
            give();
        }
        return true;
    }

    // The same for threads that may wait.
    template <class Now>
    void doInTurn(Now&& now) {
        while (!take()) {
            std::this_thread::yield();
        }
        finishAll();
        now();
        give();
    }

  private:
    bool take() { return !taken_.exchange(true, std::memory_order_seq_cst); }

    void finishAll() {
        std::uint32_t begin = begin_.load(std::memory_order_relaxed);
        while (begin != end_.load(std::memory_order_seq_cst)) {
            finish(left_[begin % room]);
            begin_.store(++begin, std::memory_order_release);
        }
    }

    void give() {
        do {
            finishAll();
            taken_.store(false, std::memory_order_seq_cst);
        } while (begin_.load(std::memory_order_relaxed) != end_.load(std::memory_order_seq_cst) && take());
    }

    std::atomic<bool> taken_{false};
    std::atomic<std::uint32_t> begin_{0};  // of what is left; written by whoever is at it
    std::atomic<std::uint32_t> end_{0};    // written by the engine thread
    std::array<Work, room> left_{};
};
