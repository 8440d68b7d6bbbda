// SPDX-License-Identifier: MIT
// The engine's state and its radio thread.
//
// The host's threads ask (start, stop, error log) by setting words below and
// waking the radio thread; only the radio thread delivers packets. No lock is
// held while it is in the host's callback.
#ifndef ENGINE_ENGINE_HPP
#define ENGINE_ENGINE_HPP

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

#include "channels.hpp"
#include "codec.hpp"
#include "control.hpp"
#include "events.hpp"
#include "health.hpp"
#include "packet_log.hpp"
#include "params.hpp"
#include "plan.hpp"
#include "random.hpp"
#include "replay.hpp"
#include "reported.hpp"
#include "rxe.h"
#include "scenario.hpp"
#include "world.hpp"

namespace rxe {

using packet_callback_f = int(RXE_packet_s*);

// ENDING lasts from just before the end-of-run packet to its return: to the
// host the start is over then, to RXE_stop and RXE_start it is not yet.
enum class activity_e : std::uint8_t { IDLE, INVENTORY, FAKE_TAGS, ENDING };

enum class connection_e : std::uint8_t { DOWN, UP, CLOSING };

constexpr std::int16_t NOT_ON_AIR = -32768;

// What belongs to the radio thread alone. RXE_connect fills it before the
// thread starts.
struct radio_s {
    world_s world;
    reported_s reported;
    random_s random;
    timeline_s timeline;
    health_s health;
    replay_s replay;
    channel_uses_t channelUses;                    // of all runs since RXE_connect
    std::int16_t onAir = NOT_ON_AIR;               // what is transmitted, tenths of dBm
    bool fault = false;                            // has come up; ends the run
    std::int64_t now = 0;                          // microseconds since RXE_connect, the engine's clock
    std::int64_t nanos = 0;                        // the part of a microsecond beyond `now`
    std::int64_t nextEvent = 0;                    // when applyDueEvents has to be called
    std::int64_t lastOngoing = 0;                  // when the last CMD_ONGOING went out
    std::chrono::steady_clock::time_point origin;  // what `now` 0 was on the real clock
    alignas(8) std::array<std::uint8_t, sizeof(RXE_packet_s) + MAX_PAYLOAD> packet{};
};

struct engine_s {
    // Guards the connection, the start of runs and the thread's life.
    std::mutex mutex;
    std::condition_variable wake;   // of the radio thread
    std::condition_variable ended;  // a run has, or the thread
    std::thread thread;
    connection_e connection = connection_e::DOWN;
    bool exiting = false;  // the thread is to end
    std::uint64_t runsEnded = 0;
    std::uint16_t fakeTagRate = 0;  // tags a second

    // Written by the host's threads and the radio thread, under `mutex` but
    // for ENDING; read on any thread without it.
    std::atomic<activity_e> activity{activity_e::IDLE};
    // Requests: written by the host's threads, taken by the radio thread.
    std::atomic<bool> stopRequested{false};
    std::atomic<bool> errorLogRequested{false};
    std::atomic<bool> resetRequested{false};
    std::atomic<packet_callback_f*> callback{nullptr};
    // Operations refused since RXE_connect and the status of the last one, for
    // the error log. Written on any thread.
    std::atomic<std::uint32_t> refusals{0};
    std::atomic<int> lastRefusal{0};

    scenario_s scenario;  // written by RXE_connect while there is no thread
    params_s params;
    // Writes that came with the shadow flag: those that repeated the stored
    // value and so never reached the radio, and those that did. Any thread.
    std::atomic<std::uint32_t> shadowAnswered{0};
    std::atomic<std::uint32_t> shadowWritten{0};
    event_queue_s events;  // any thread posts, the radio thread takes
    failures_s failures;
    control_s control;  // opened and closed with the connection
    packet_log_s log;
    radio_s radio;
};

// Starts and ends the radio thread; the caller holds no lock. `stopThread` is
// for other threads than the radio's.
bool startThread(engine_s* engine);
void stopThread(engine_s* engine);
bool onRadioThread(const engine_s& engine);

// Radio thread: lets `microseconds` of the engine's clock pass, really or not,
// and sends what is due meanwhile. Returns early when a stop is requested.
void advance(engine_s* engine, std::int64_t microseconds);
// Radio thread: the same for a wait that only the host can end, which sleeps
// with the fast clock too.
void park(engine_s* engine);

// Radio thread, called by advance and park when `now` has reached
// radio.nextEvent or an event was posted: changes the world by what is due,
// sends the packets that tell of it, and returns the time of the next call at
// the latest. In events.cpp.
std::int64_t applyDueEvents(engine_s* engine);

inline bool stopRequested(const engine_s& engine) {
    return engine.stopRequested.load(std::memory_order_relaxed);
}

}  // namespace rxe

#endif
