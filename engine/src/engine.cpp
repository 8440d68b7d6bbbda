// SPDX-License-Identifier: MIT
#include "engine.hpp"

#include <algorithm>
#include <cstdio>
#include <string_view>
#include <system_error>

#include "delivery.hpp"
#include "run.hpp"
#include "status.hpp"

namespace rxe {
namespace {

// The host flushes its batches on CMD_ONGOING, so it comes five times a second.
constexpr std::int64_t ONGOING_INTERVAL = 200000;  // microseconds
// With a host that keeps the radio waiting, what is older than this is not made up for.
constexpr std::int64_t MAX_LAG = 20000;  // microseconds

void deliverErrorLog(engine_s* engine) {
    std::array<char, 160> text;
    const int last = engine->lastRefusal.load(std::memory_order_relaxed);
    const int length =
        std::snprintf(text.data(), text.size(), "ERRLOG refused operations: %u, last status: %d (%s)",
                      engine->refusals.load(std::memory_order_relaxed), last,
                      statusText(static_cast<RXE_API_STATUS>(last)));
    byte_writer_s writer = payloadWriter(engine);
    putBytes(&writer, {reinterpret_cast<const std::uint8_t*>(text.data()),
                       std::min(static_cast<std::size_t>(length), text.size() - 1)});
    deliver(engine, TYPE_ERROR_LOG, writer.size);
}

void sendWhatIsDue(engine_s* engine) {
    radio_s& radio = engine->radio;
    if (engine->errorLogRequested.exchange(false, std::memory_order_relaxed)) {
        deliverErrorLog(engine);
    }
    if (radio.now - radio.lastOngoing >= ONGOING_INTERVAL) {
        radio.lastOngoing = radio.now;
        byte_writer_s writer = payloadWriter(engine);
        put(&writer, static_cast<std::uint64_t>(radio.now / 1000), 4);
        deliver(engine, TYPE_CMD_ONGOING, writer.size);
        flushLog(&engine->log);
    }
}

void sleepUntil(engine_s* engine, std::chrono::steady_clock::time_point due) {
    std::unique_lock lock(engine->mutex);
    engine->wake.wait_until(lock, due, [&] {
        return stopRequested(*engine) || engine->errorLogRequested.load(std::memory_order_relaxed);
    });
}

std::int64_t realNow(const radio_s& radio) {
    const auto elapsed = std::chrono::steady_clock::now() - radio.origin;
    return std::chrono::duration_cast<std::chrono::microseconds>(elapsed).count();
}

// Brings the real clock to the engine's, or the engine's to the real one when
// the host has kept the radio waiting for too long.
void keepPace(engine_s* engine) {
    radio_s& radio = engine->radio;
    const std::int64_t real = realNow(radio);
    if (radio.now <= real) {
        radio.now = std::max(radio.now, real - MAX_LAG);
        return;
    }
    sleepUntil(engine, radio.origin + std::chrono::microseconds(radio.now));
    if (stopRequested(*engine)) {  // woken in the middle of the wait
        radio.now = std::min(radio.now, realNow(radio));
    }
}

void beginRun(engine_s* engine) {
    radio_s& radio = engine->radio;
    if (!engine->scenario.fastClock) {
        radio.now = realNow(radio);
    }
    radio.lastOngoing = radio.now;
    if (engine->resetRequested.exchange(false, std::memory_order_relaxed)) {
        clearReported(radio.tags.size(), &radio.reported);
    }
}

void radioThread(engine_s* engine) {
    std::unique_lock lock(engine->mutex);
    for (;;) {
        engine->wake.wait(lock, [&] {
            return engine->exiting || engine->activity.load(std::memory_order_relaxed) != activity_e::IDLE ||
                   engine->errorLogRequested.load(std::memory_order_relaxed);
        });
        const activity_e activity = engine->activity.load(std::memory_order_relaxed);
        const std::uint16_t rate = engine->fakeTagRate;
        if (activity == activity_e::IDLE && !engine->errorLogRequested.load(std::memory_order_relaxed)) {
            return;
        }
        lock.unlock();
        if (activity == activity_e::IDLE) {
            sendWhatIsDue(engine);
        } else {
            beginRun(engine);
            activity == activity_e::INVENTORY ? runInventory(engine) : runFakeTags(engine, rate);
        }
        lock.lock();
        if (activity != activity_e::IDLE) {
            engine->activity.store(activity_e::IDLE, std::memory_order_relaxed);
            ++engine->runsEnded;
            engine->ended.notify_all();
        }
    }
}

}  // namespace

bool startThread(engine_s* engine) {
    engine->exiting = false;
    try {
        engine->thread = std::thread(radioThread, engine);
    } catch (const std::system_error&) {
        return false;
    }
    return true;
}

void stopThread(engine_s* engine) {
    {
        const std::lock_guard lock(engine->mutex);
        engine->exiting = true;
        engine->stopRequested.store(true, std::memory_order_relaxed);
    }
    engine->wake.notify_all();
    engine->thread.join();
}

bool onRadioThread(const engine_s& engine) {
    return engine.thread.get_id() == std::this_thread::get_id();
}

void advance(engine_s* engine, std::int64_t microseconds) {
    radio_s& radio = engine->radio;
    const std::int64_t end = radio.now + microseconds;
    do {
        radio.now = std::max(radio.now, std::min(end, radio.lastOngoing + ONGOING_INTERVAL));
        if (!engine->scenario.fastClock) {
            keepPace(engine);
        }
        sendWhatIsDue(engine);
    } while (radio.now < end && !stopRequested(*engine));
}

void park(engine_s* engine) {
    sleepUntil(engine, std::chrono::steady_clock::now() + std::chrono::microseconds(ONGOING_INTERVAL));
    radio_s& radio = engine->radio;
    radio.now = engine->scenario.fastClock ? radio.now + ONGOING_INTERVAL : realNow(radio);
    sendWhatIsDue(engine);
}

}  // namespace rxe
