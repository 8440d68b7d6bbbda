// SPDX-License-Identifier: MIT
// The state that the host's threads and the radio thread share: the parameters that the host
// writes, its requests, the events of the control socket, and the packet and the callback that
// takes it. The host's threads set a word here and wake the radio thread; only the radio thread
// delivers packets. No lock is held during the callback.
#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "codec.hpp"
#include "packet_log.hpp"
#include "params.hpp"
#include "rxe.h"
#include "scenario_failing.hpp"
#include "world.hpp"

namespace rxe {

// The host's callback. The engine ignores what it returns.
using packet_callback_f = int(RXE_packet_s*);

// ENDING lasts from just before the end-of-run packet until its callback has returned.
// Meanwhile RXE_resume answers that no start is under way, and RXE_stop and RXE_start still
// wait for the run's end.
enum class activity_e : std::uint8_t { IDLE, INVENTORY, FAKE_TAGS, ENDING };

struct host_s {
    // Guards the connection, the start of runs and the radio thread's life (engine.hpp). No thread
    // holds it while it waits for the host's callback.
    // The radio thread sleeps on `wake`; any thread notifies it.
    std::mutex mutex;
    std::condition_variable wake;

    // Written by the host's threads and the radio thread, under `mutex` except
    // for ENDING; read on any thread without it.
    std::atomic<activity_e> activity{activity_e::IDLE};
    // Requests: set by the host's threads, cleared by the radio thread, except for
    // `stopRequested`, which the next start clears.
    std::atomic<bool> stopRequested{false};
    // RXE_getErr asks for the error log as a packet.
    std::atomic<bool> errorLogRequested{false};
    // RXE_resetDb asks for an empty tag database.
    std::atomic<bool> resetRequested{false};
    // Operations refused since RXE_connect and the status of the last one, for
    // the error log. Written on any thread, read by the radio thread.
    std::atomic<std::uint32_t> refusals{0};
    std::atomic<int> lastRefusal{0};

    // All records that the host can read and write by id. Any thread; guarded by its own mutex.
    params_s params;
    // Writes with the shadow flag since RXE_connect: those that repeated the stored
    // value and so never reached the radio, and those that reached it. Written by
    // the host's threads, read by the radio thread.
    std::atomic<std::uint32_t> shadowAnswered{0};
    std::atomic<std::uint32_t> shadowWritten{0};
    // Any thread posts, the radio thread takes.
    event_queue_s events;
    // Calls of the host that are to fail. Any thread.
    failures_s failures;

    // Written by the host's threads, read by the radio thread for each packet.
    std::atomic<packet_callback_f*> callback{nullptr};
    // Any thread opens and closes it, the radio thread writes.
    packet_log_s log;
    // The packet that is being made. Radio thread only.
    alignas(8) std::array<std::uint8_t, sizeof(RXE_packet_s) + maxPayload> packet{};
};

// Whether the host has asked for a stop since the last start. Any thread; the radio asks before
// each slot.
inline bool stopRequested(const host_s& host) {
    return host.stopRequested.load(std::memory_order_relaxed);
}

}  // namespace rxe
