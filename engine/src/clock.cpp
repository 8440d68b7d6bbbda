// SPDX-License-Identifier: MIT
#include "clock.hpp"

#include <algorithm>
#include <string>

#include "delivery.hpp"
#include "events.hpp"
#include "health.hpp"
#include "status.hpp"

namespace rxe {
namespace {

// The host sends its gathered reports on CMD_ONGOING, so it comes five times a second.
constexpr std::int64_t ongoingInterval = 200000;  // microseconds
// When the host's callback keeps the radio waiting, the engine's clock falls behind the real one
// by this at most; the rest of the time is skipped.
constexpr std::int64_t maxLag = 20000;  // microseconds
// The engine's clock may be this far ahead of the real one, so that the radio sleeps once for
// several slots.
constexpr std::int64_t maxLead = 1000;  // microseconds

// The answer to RXE_getErr: refused operations, the last status, the last happenings.
void deliverErrorLog(const radio_s& radio, host_s* host) {
    const int last = host->lastRefusal.load(std::memory_order_relaxed);
    const std::string text =
        "ERRLOG refused operations: " + std::to_string(host->refusals.load(std::memory_order_relaxed)) +
        ", last status: " + std::to_string(last) + " (" + statusText(static_cast<RXE_API_STATUS>(last)) +
        ')' + whatHappened(radio.timeline);
    byte_writer_s writer = payloadWriter(host);
    putBytes(&writer, {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
    deliver(host, radio.now, RXE_PACKET_ERROR_LOG, writer.size);
}

bool eventsAreDue(const radio_s& radio, const host_s& host) {
    return radio.now >= radio.nextEvent || host.events.waiting.load(std::memory_order_relaxed);
}

// Sleeps until `due`. A stop, a request for the error log and a posted event end it early.
void sleepUntil(host_s* host, std::chrono::steady_clock::time_point due) {
    std::unique_lock lock(host->mutex);
    host->wake.wait_until(lock, due, [&] {
        return stopRequested(*host) || host->errorLogRequested.load(std::memory_order_relaxed) ||
               host->events.waiting.load(std::memory_order_relaxed);
    });
}

// Microseconds of real time since RXE_connect.
std::int64_t realNow(const radio_s& radio) {
    const auto elapsed = std::chrono::steady_clock::now() - radio.origin;
    return std::chrono::duration_cast<std::chrono::microseconds>(elapsed).count();
}

// Sleeps until the real clock has reached the engine's. When the engine's is behind by more than
// maxLag, it jumps on.
void keepPace(radio_s* radio, host_s* host) {
    const std::int64_t real = realNow(*radio);
    if (radio->now <= real + maxLead) {
        radio->now = std::max(radio->now, real - maxLag);
        return;
    }
    sleepUntil(host, radio->origin + std::chrono::microseconds(radio->now));
    if (stopRequested(*host) || host->events.waiting.load(std::memory_order_relaxed)) {
        // Woken in the middle of the wait.
        radio->now = std::min(radio->now, realNow(*radio));
    }
}

}  // namespace

void advance(radio_s* radio, host_s* host, std::int64_t microseconds) {
    const std::int64_t end = radio->now + microseconds;
    do {
        // In pieces, so that a CMD_ONGOING and each event come at their time.
        const std::int64_t next = std::min(radio->lastOngoing + ongoingInterval, radio->nextEvent);
        radio->now = std::max(radio->now, std::min(end, std::max(next, radio->now)));
        if (!radio->scenario.fastClock) {
            keepPace(radio, host);
        }
        sendWhatIsDue(radio, host);
    } while (radio->now < end && !stopRequested(*host));
}

void pass(radio_s* radio, host_s* host, double microseconds) {
    const std::int64_t nanos = radio->nanos + static_cast<std::int64_t>(microseconds * 1000);
    radio->nanos = nanos % 1000;
    advance(radio, host, nanos / 1000);
}

void catchUp(radio_s* radio) {
    if (!radio->scenario.fastClock) {
        radio->now = std::max(radio->now, realNow(*radio));
    }
}

void sendWhatIsDue(radio_s* radio, host_s* host) {
    // This runs before every slot, so each question costs one atomic load while its answer is no.
    if (host->errorLogRequested.load(std::memory_order_relaxed)) {
        host->errorLogRequested.store(false, std::memory_order_relaxed);
        deliverErrorLog(*radio, host);
    }
    if (host->resetRequested.load(std::memory_order_relaxed)) {
        host->resetRequested.store(false, std::memory_order_relaxed);
        clearReported(&radio->reported);
    }
    // Before events change the power: the time that has passed counts with the one it had.
    countWork(radio);
    if (eventsAreDue(*radio, *host)) {
        radio->nextEvent = applyDueEvents(radio, host);
    }
    if (radio->now - radio->lastOngoing < ongoingInterval) {
        return;
    }
    radio->lastOngoing = radio->now;
    const bool running = host->activity.load(std::memory_order_relaxed) != activity_e::IDLE;
    if (running && !radio->replay.active()) {  // a log that is played back has CMD_ONGOING packets
        byte_writer_s writer = payloadWriter(host);
        put(&writer, static_cast<std::uint64_t>(radio->now / 1000), 4);
        deliver(host, radio->now, RXE_PACKET_CMD_ONGOING, writer.size);
    }
    // Five times a second, so that a log can be followed while it grows.
    flushLog(&host->log);
}

void park(radio_s* radio, host_s* host) {
    sleepUntil(host, std::chrono::steady_clock::now() + std::chrono::microseconds(ongoingInterval));
    radio->now = radio->scenario.fastClock ? radio->now + ongoingInterval : realNow(*radio);
    sendWhatIsDue(radio, host);
}

}  // namespace rxe
