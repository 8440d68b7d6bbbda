// SPDX-License-Identifier: MIT
// Something that several threads use, one at a time, and for which the engine thread does not
// wait: work that it cannot do at once it leaves behind, and the thread whose turn it is does that
// work too before its turn ends. All other threads wait for their turn. Nothing is lost: when the
// room for work is full, the engine thread waits like the others.
//
//   engine thread   takes the flag?   yes: finishes the work that is left, does its own
//                                     no:  leaves its work behind; the holder finishes it
//   other threads   wait for the flag, finish the work that is left, do their own
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <thread>

// Whether this thread is inside the engine's callback. Set for the length of one packet; a
// simulation's thread, which calls the same function, counts as the engine thread meanwhile.
inline thread_local bool isEngineThread = false;

// A flag that one thread at a time holds, for some microseconds. Taking it and giving it back cost
// one instruction each while no other thread wants it.
class spin_flag_s {
  public:
    // Returns whether this thread holds the flag now. Never waits.
    bool take() { return !taken.exchange(true, std::memory_order_seq_cst); }
    void takeAfterWaiting() {
        // If this thread has a higher priority, the holder may not run while this thread only
        // yields: after a hundred times it sleeps, 50 us at a time.
        constexpr int yields = 100;
        for (int tries = 0; !take(); ++tries) {
            if (tries < yields) {
                std::this_thread::yield();
            } else {
                std::this_thread::sleep_for(std::chrono::microseconds(50));
            }
        }
    }
    // `order` is sequentially consistent when the holder looks afterwards for work that was left.
    void give(std::memory_order order = std::memory_order_release) { taken.store(false, order); }

  private:
    std::atomic<bool> taken{false};
};

// `Work` is a piece of work that may be left behind, and `room` the most pieces at one time;
// `finish` does a piece later, on another thread. A piece is made once and reused, so that its
// memory is kept. Only one thread at a time may be inside the engine's callback. Neither function
// throws unless the given one does, and the given one must not.
template <class Work, std::size_t room, void (*finish)(Work&)>
//
//   turn_s<line_s, 1024, writeLine> writing;
//   writing.doOrLeave([&] { write(text); }, [&](line_s& left) { left.text = text; });
class turn_s {
  public:
    // Runs `now` in the thread's turn. While another thread has the turn, the engine thread calls
    // `leave` instead, to fill a piece of work that is left behind. Work of the engine thread keeps
    // its order, done at once or left behind.
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
                // Either the other thread has seen the piece, or its turn has ended and this thread
                // can take the flag.
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

    // The same for threads that may wait: `now` has run on return. Before it, work that the engine
    // thread has left is finished, and after it work that has come meanwhile.
    template <class Now>
    void doInTurn(Now&& now) {
        flag_.takeAfterWaiting();
        finishAll();
        now();
        give();
    }

  private:
    // Does all work that is left. The thread whose turn it is.
    void finishAll() {
        std::uint32_t begin = begin_.load(std::memory_order_relaxed);
        for (std::size_t finished = 0; begin != end_.load(std::memory_order_seq_cst); ++finished) {
            if (finished == room) {  // new work comes as fast as this thread does it; the turn must end
                crowded_.store(true, std::memory_order_relaxed);
            }
            finish(left_[begin % room]);
            begin_.store(++begin, std::memory_order_release);
        }
    }

    // Ends the turn. Work that came after the last look is finished in one more turn, unless another
    // thread has taken the flag: that thread finishes it.
    void give() {
        do {
            finishAll();
            crowded_.store(false, std::memory_order_relaxed);
            flag_.give(std::memory_order_seq_cst);
        } while (begin_.load(std::memory_order_relaxed) != end_.load(std::memory_order_seq_cst) &&
                 flag_.take());
    }

    spin_flag_s flag_;
    // Pieces that were ever finished and ever left; they wrap, and piece n is left_[n % room].
    // `begin_` is written by the thread whose turn it is, `end_` by the engine thread.
    std::atomic<std::uint32_t> begin_{0};
    std::atomic<std::uint32_t> end_{0};
    // The engine thread must wait for its turn. Written by the thread whose turn it is.
    std::atomic<bool> crowded_{false};
    // Filled by the engine thread, read by the thread whose turn it is.
    std::array<Work, room> left_{};
};
