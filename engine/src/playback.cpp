// SPDX-License-Identifier: MIT
// Only packets come from the log. Answers to the host's requests, the end of a stopped run and
// the parameters are the engine's own, as in a simulated run.
#include "playback.hpp"

#include <algorithm>
#include <span>

#include "clock.hpp"
#include "delivery.hpp"

namespace rxe {
namespace {

// Lets the time between two packets pass; false when the host has stopped.
bool waitUntil(radio_s* radio, host_s* host, std::int64_t time) {
    if (radio->replay.fast) {
        radio->now = std::max(radio->now, time);
    } else if (time > radio->now) {
        advance(radio, host, time - radio->now);
    }
    return !stopRequested(*host);
}

// The packet as the log has it, whatever types the host has enabled.
void play(const radio_s& radio, host_s* host, const replay_packet_s& packet) {
    byte_writer_s writer = payloadWriter(host);
    putBytes(&writer, std::span(radio.replay.bytes).subspan(packet.offset, packet.length));
    deliverAsIs(host, radio.now, packet.rawType, writer.size);
}

// Sends what the radio sends at a stop; the end in the log has not been reached.
void endByHost(const radio_s& radio, host_s* host, std::int64_t begin) {
    const START_INFO_s info{.duration = static_cast<std::uint64_t>(radio.now - begin),
                            .tagReads = 0,
                            .rounds = 0,
                            .stopCause = CAUSE_HOST};
    deliver(host, radio.now, RXE_PACKET_START_INFO3, encodeStartInfo(info, payloadRoom(host)));
    host->activity.store(activity_e::ENDING, std::memory_order_relaxed);
    sendEndOfRun(host, radio.now, CAUSE_HOST);
}

}  // namespace

// The times of the log are shifted so that the run begins now.
void runReplay(radio_s* radio, host_s* host) {
    replay_s& replay = radio->replay;
    const std::size_t run = replay.next;
    replay.next = (run + 1) % (replay.runs.size() - 1);
    const std::int64_t begin = radio->now;
    const std::int64_t shift = begin - replay.packets[replay.runs[run]].time;
    for (std::size_t i = replay.runs[run]; i < replay.runs[run + 1]; ++i) {
        const replay_packet_s& packet = replay.packets[i];
        if (!waitUntil(radio, host, packet.time + shift)) {
            endByHost(*radio, host, begin);
            return;
        }
        if (endsRun(replay, packet)) {
            host->activity.store(activity_e::ENDING, std::memory_order_relaxed);
            play(*radio, host, packet);
            return;
        }
        play(*radio, host, packet);
    }
    // The log ends within the run, so only the host can end it.
    while (!stopRequested(*host)) {
        park(radio, host);
    }
    endByHost(*radio, host, begin);
}

}  // namespace rxe
