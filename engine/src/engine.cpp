// SPDX-License-Identifier: MIT
// The radio thread sleeps while there is nothing to do and holds no lock while it works. At the
// end of a run it wakes the threads that wait in RXE_stop and RXE_start.
#include "engine.hpp"

#include <system_error>

#include "clock.hpp"
#include "playback.hpp"
#include "run.hpp"

namespace rxe {
namespace {

// Waits for work: a run, a question, an event. On the real clock the wait also ends at
// the timeline's next event; on the fast clock no time passes while the radio is idle.
void waitForWork(engine_s* engine, std::unique_lock<std::mutex>* lock) {
    host_s& host = engine->host;
    const radio_s& radio = engine->radio;
    const auto hasWork = [&] {
        return engine->exiting || host.activity.load(std::memory_order_relaxed) != activity_e::IDLE ||
               host.errorLogRequested.load(std::memory_order_relaxed) ||
               host.events.waiting.load(std::memory_order_relaxed);
    };
    if (radio.scenario.fastClock) {
        host.wake.wait(*lock, hasWork);
    } else {
        host.wake.wait_until(*lock, radio.origin + std::chrono::microseconds(radio.nextEvent), hasWork);
    }
}

// One run; without one, answers to requests and events that are due.
void work(activity_e activity, std::uint16_t fakeTagRate, radio_s* radio, host_s* host) {
    catchUp(radio);
    if (activity == activity_e::IDLE) {
        sendWhatIsDue(radio, host);
        return;
    }
    radio->lastOngoing = radio->now;
    if (activity == activity_e::FAKE_TAGS) {
        runFakeTags(radio, host, fakeTagRate);
    } else if (radio->replay.active()) {
        runReplay(radio, host);
    } else {
        runInventory(radio, host);
    }
}

// The body of the radio thread: one run after the other, until the connection ends. The lock is
// free during `work`.
void radioThread(engine_s* engine) {
    host_s& host = engine->host;
    std::unique_lock lock(host.mutex);
    for (;;) {
        waitForWork(engine, &lock);
        const activity_e activity = host.activity.load(std::memory_order_relaxed);
        const std::uint16_t rate = engine->fakeTagRate;
        if (activity == activity_e::IDLE && engine->exiting) {
            return;
        }
        lock.unlock();
        work(activity, rate, &engine->radio, &host);
        lock.lock();
        if (activity != activity_e::IDLE) {
            host.activity.store(activity_e::IDLE, std::memory_order_relaxed);
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
        const std::lock_guard lock(engine->host.mutex);
        engine->exiting = true;
        engine->host.stopRequested.store(true, std::memory_order_relaxed);
    }
    engine->host.wake.notify_all();
    engine->thread.join();
}

bool onRadioThread(const engine_s& engine) {
    return engine.thread.get_id() == std::this_thread::get_id();
}

}  // namespace rxe
