// SPDX-License-Identifier: MIT
#include "engine.hpp"

#include <algorithm>
#include <string>
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
// The radio may be this much ahead of the real clock, so that it sleeps once
// for several slots.
constexpr std::int64_t MAX_LEAD = 1000;  // microseconds

void deliverErrorLog(engine_s* engine) {
    const int last = engine->lastRefusal.load(std::memory_order_relaxed);
    const std::string text =
        "ERRLOG refused operations: " + std::to_string(engine->refusals.load(std::memory_order_relaxed)) +
        ", last status: " + std::to_string(last) + " (" + statusText(static_cast<RXE_API_STATUS>(last)) +
        ')' + whatHappened(engine->radio.timeline);
    byte_writer_s writer = payloadWriter(engine);
    putBytes(&writer, {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
    deliver(engine, RXE_PACKET_ERROR_LOG, writer.size);
}

bool eventsAreDue(const engine_s& engine) {
    return engine.radio.now >= engine.radio.nextEvent ||
           engine.events.waiting.load(std::memory_order_relaxed);
}

void sendWhatIsDue(engine_s* engine) {
    radio_s& radio = engine->radio;
    // Looked at before every slot, so no more than a load unless there is something.
    if (engine->errorLogRequested.load(std::memory_order_relaxed)) {
        engine->errorLogRequested.store(false, std::memory_order_relaxed);
        deliverErrorLog(engine);
    }
    if (engine->resetRequested.load(std::memory_order_relaxed)) {
        engine->resetRequested.store(false, std::memory_order_relaxed);
        clearReported(&radio.reported);
    }
    countWork(engine);
    if (eventsAreDue(*engine)) {
        radio.nextEvent = applyDueEvents(engine);
    }
    if (radio.now - radio.lastOngoing < ONGOING_INTERVAL) {
        return;
    }
    radio.lastOngoing = radio.now;
    const bool running = engine->activity.load(std::memory_order_relaxed) != activity_e::IDLE;
    if (running && !radio.replay.active()) {  // a log that is played back has its own
        byte_writer_s writer = payloadWriter(engine);
        put(&writer, static_cast<std::uint64_t>(radio.now / 1000), 4);
        deliver(engine, RXE_PACKET_CMD_ONGOING, writer.size);
    }
    flushLog(&engine->log);
}

void sleepUntil(engine_s* engine, std::chrono::steady_clock::time_point due) {
    std::unique_lock lock(engine->mutex);
    engine->wake.wait_until(lock, due, [&] {
        return stopRequested(*engine) || engine->errorLogRequested.load(std::memory_order_relaxed) ||
               engine->events.waiting.load(std::memory_order_relaxed);
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
    if (radio.now <= real + MAX_LEAD) {
        radio.now = std::max(radio.now, real - MAX_LAG);
        return;
    }
    sleepUntil(engine, radio.origin + std::chrono::microseconds(radio.now));
    if (stopRequested(*engine) || engine->events.waiting.load(std::memory_order_relaxed)) {
        // Woken in the middle of the wait.
        radio.now = std::min(radio.now, realNow(radio));
    }
}

void beginRun(engine_s* engine) {
    radio_s& radio = engine->radio;
    if (!engine->scenario.fastClock) {
        radio.now = std::max(radio.now, realNow(radio));
    }
    radio.lastOngoing = radio.now;
}

// Waits for work: a run, a question, an event. Events of the timeline count
// while the radio is idle too, but with the fast clock no time passes then.
void waitForWork(engine_s* engine, std::unique_lock<std::mutex>* lock) {
    const auto hasWork = [&] {
        return engine->exiting || engine->activity.load(std::memory_order_relaxed) != activity_e::IDLE ||
               engine->errorLogRequested.load(std::memory_order_relaxed) ||
               engine->events.waiting.load(std::memory_order_relaxed);
    };
    if (engine->scenario.fastClock) {
        engine->wake.wait(*lock, hasWork);
    } else {
        engine->wake.wait_until(
            *lock, engine->radio.origin + std::chrono::microseconds(engine->radio.nextEvent), hasWork);
    }
}

void idle(engine_s* engine) {
    if (!engine->scenario.fastClock) {
        engine->radio.now = std::max(engine->radio.now, realNow(engine->radio));
    }
    sendWhatIsDue(engine);
}

void radioThread(engine_s* engine) {
    std::unique_lock lock(engine->mutex);
    for (;;) {
        waitForWork(engine, &lock);
        const activity_e activity = engine->activity.load(std::memory_order_relaxed);
        const std::uint16_t rate = engine->fakeTagRate;
        if (activity == activity_e::IDLE && engine->exiting) {
            return;
        }
        lock.unlock();
        if (activity == activity_e::IDLE) {
            idle(engine);
        } else if (engine->radio.replay.active() && activity == activity_e::INVENTORY) {
            beginRun(engine);
            runReplay(engine);
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
        const std::int64_t next = std::min(radio.lastOngoing + ONGOING_INTERVAL, radio.nextEvent);
        radio.now = std::max(radio.now, std::min(end, std::max(next, radio.now)));
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
