// SPDX-License-Identifier: MIT
// Something that several threads use, one at a time, and for which the engine thread does not
// wait: what it cannot do at once it leaves behind, and the thread whose turn it is does that
// too before its turn ends. All other threads wait for their turn. Nothing is lost: where more
// is left behind than there is room for, the engine thread waits like the others.
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
// long as no other thread wants it.
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

// `Work` is what may be left behind, up to `room` pieces of it, which `finish` does later, on
// another thread; a piece is made once and reused, so that its memory is kept. Only one thread
// at a time may be inside the engine's callback.
template <class Work, std::size_t room, void (*finish)(Work&)>
class turn_s {
  public:
    // Runs `now` in the thread's turn. The engine thread, while it is another one's turn, calls
    // `leave` instead, to fill a piece of work that is left behind. What the engine thread does
    // and leaves keeps its order.
    template <class Now, class Leave>
    void doOrLeave(Now&& now, Leave&& leave) {
        if (!isEngineThread) {
            doInTurn(now);
            return;
        }
        if (!flag_.take()) {
            const std::uint32_t end = end_.load(std::memory_order_relaxed);
            if (!crowded_.load(std::memory_order_relaxed) &&
                end - begin_.load(std::memory_order_acquire) != room) {
                leave(left_[end % room]);
                end_.store(end + 1, std::memory_order_seq_cst);
                // The other thread has either seen it, or its turn has ended by now.
                if (flag_.take()) {
                    give();
                }
                return;
            }
            flag_.takeAfterWaiting();
        }
        finishAll();
        now();
        flag_.give();  // no other thread leaves anything
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
        for (std::size_t finished = 0; begin != end_.load(std::memory_order_seq_cst); ++finished) {
            if (finished == room) {  // it is left as fast as it is done, and the turn must end
                crowded_.store(true, std::memory_order_relaxed);
            }
            finish(left_[begin % room]);
            begin_.store(++begin, std::memory_order_release);
        }
    }

    void give() {
        do {
            finishAll();
            crowded_.store(false, std::memory_order_relaxed);
            flag_.give(std::memory_order_seq_cst);
        } while (begin_.load(std::memory_order_relaxed) != end_.load(std::memory_order_seq_cst) &&
                 flag_.take());
    }

    spin_flag_s flag_;
    std::atomic<std::uint32_t> begin_{0};  // of what is left; written by the thread whose turn it is
    std::atomic<std::uint32_t> end_{0};    // written by the engine thread
    std::atomic<bool> crowded_{false};     // the engine thread is to wait; written as `begin_` is
    std::array<Work, room> left_{};
};
