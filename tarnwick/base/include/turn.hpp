// SPDX-License-Identifier: MIT
// Something that several threads use, one at a time, and for which the engine thread never
// waits: what it cannot do at once it leaves behind, and whoever is at it does that too
// before he goes. All other threads wait for their turn.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <thread>

// Whether this thread is inside the engine's callback. Set for the length of one packet.
inline thread_local bool isEngineThread = false;

// A flag that one thread at a time holds, for a moment. Both sides cost one instruction as
// long as nobody else wants it.
class spin_flag_s {
  public:
    bool take() { return !taken.exchange(true, std::memory_order_seq_cst); }
    void takeAfterWaiting() {
        // A thread that must run before all others would never let the holder go on by
        // yielding alone.
        constexpr int yields = 100;
        for (int tries = 0; !take(); ++tries) {
            if (tries < yields) {
                std::this_thread::yield();
            } else {
                std::this_thread::sleep_for(std::chrono::microseconds(50));
            }
        }
    }
    // `order`: sequentially consistent where the holder looks afterwards for what was left.
    void give(std::memory_order order = std::memory_order_release) { taken.store(false, order); }

  private:
    std::atomic<bool> taken{false};
};

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
        if (flag_.take()) {
            finishAll();
            now();
            flag_.give();  // nobody else leaves anything
            return true;
        }
        const std::uint32_t end = end_.load(std::memory_order_relaxed);
        if (end - begin_.load(std::memory_order_acquire) == room) {
            return false;
        }
        leave(left_[end % room]);
        end_.store(end + 1, std::memory_order_seq_cst);
        // The other one has either seen it, or has gone by now.
        if (flag_.take()) {
            give();
        }
        return true;
    }

    // The same for threads that may wait.
    template <class Now>
    void doInTurn(Now&& now) {
        flag_.takeAfterWaiting();
        finishAll();
        now();
        give();
    }

  private:
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
            flag_.give(std::memory_order_seq_cst);
        } while (begin_.load(std::memory_order_relaxed) != end_.load(std::memory_order_seq_cst) &&
                 flag_.take());
    }

    spin_flag_s flag_;
    std::atomic<std::uint32_t> begin_{0};  // of what is left; written by whoever is at it
    std::atomic<std::uint32_t> end_{0};    // written by the engine thread
    std::array<Work, room> left_{};
};
