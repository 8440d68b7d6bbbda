// SPDX-License-Identifier: MIT
#include "replay.hpp"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "delivery.hpp"
#include "engine.hpp"
#include "files.hpp"

namespace rxe {
namespace {

constexpr std::size_t HEADER_SIZE = 24, RECORD_SIZE = 12;  // as packet_log.hpp draws them
constexpr std::size_t MAX_LOG = 1U << 30;                  // bytes; some hours of a busy radio
constexpr std::uint32_t LOG_VERSION = 1;
constexpr std::uint16_t CAUSE_HOST = 1;
constexpr std::string_view MAGIC = "RXEPKLOG";

// Microseconds, 100 years. The engine's clock goes on from run to run, so that a log with
// much later times would take it past its end.
constexpr std::int64_t MAX_TIME = std::int64_t{100} * 366 * 24 * 3600 * 1'000'000;

template <typename Number>
Number numberAt(const std::vector<std::uint8_t>& bytes, std::size_t offset) {
    Number number;
    std::memcpy(&number, bytes.data() + offset, sizeof number);
    return number;
}

bool endsRun(const replay_s& replay, const replay_packet_s& packet) {
    const std::uint8_t* const payload = replay.bytes.data() + packet.offset;
    return packet.rawType == RXE_PACKET_END_OF_RUN && packet.length >= 2 && payload[0] == 0x08 &&
           payload[1] == 0x09;
}

std::string checkHeader(const std::vector<std::uint8_t>& bytes) {
    if (bytes.size() < HEADER_SIZE || std::memcmp(bytes.data(), MAGIC.data(), MAGIC.size()) != 0) {
        return "is not a packet log";
    }
    const auto version = numberAt<std::uint32_t>(bytes, 8);
    return version == LOG_VERSION ? "" : "has version " + std::to_string(version) + ", which is not known";
}

// Why the records cannot be played, or an empty text.
std::string indexPackets(replay_s* replay) {
    std::int64_t latest = 0;
    for (std::size_t at = HEADER_SIZE; at < replay->bytes.size();) {
        const std::string where = "at byte " + std::to_string(at) + ": ";
        const std::size_t left = replay->bytes.size() - at;
        replay_packet_s packet{.offset = at + RECORD_SIZE};
        if (left >= RECORD_SIZE) {
            packet.time = numberAt<std::int64_t>(replay->bytes, at);
            packet.rawType = numberAt<std::uint16_t>(replay->bytes, at + 8);
            packet.length = numberAt<std::uint16_t>(replay->bytes, at + 10);
        }
        if (left < RECORD_SIZE || left - RECORD_SIZE < packet.length) {
            return where + "the file ends within a packet";
        }
        if (packet.length > MAX_PAYLOAD) {
            return where + "a packet of " + std::to_string(packet.length) + " bytes";
        }
        if (packet.time < latest) {
            return where + "the time goes backwards";
        }
        latest = packet.time;
        at += RECORD_SIZE + packet.length;
        if (packet.rawType == TYPE_SHADOW_COUNTS) {  // a note of the log, which no host was given
            continue;
        }
        if (replay->packets.empty() || endsRun(*replay, replay->packets.back())) {
            replay->runs.push_back(replay->packets.size());
        }
        replay->packets.push_back(packet);
    }
    if (latest > MAX_TIME) {
        return "holds times of more than 100 years";
    }
    replay->runs.push_back(replay->packets.size());
    return replay->packets.empty() ? "holds no packets" : "";
}

// Lets the time between two packets pass; false when the host has stopped.
bool waitUntil(engine_s* engine, std::int64_t time) {
    if (engine->radio.replay.fast) {
        engine->radio.now = std::max(engine->radio.now, time);
    } else if (time > engine->radio.now) {
        advance(engine, time - engine->radio.now);
    }
    return !stopRequested(*engine);
}

void play(engine_s* engine, const replay_packet_s& packet) {
    byte_writer_s writer = payloadWriter(engine);
    putBytes(&writer, std::span(engine->radio.replay.bytes).subspan(packet.offset, packet.length));
    deliverAsIs(engine, packet.rawType, writer.size);
}

void endByHost(engine_s* engine, std::int64_t begin) {
    const START_INFO_s info{.duration = static_cast<std::uint64_t>(engine->radio.now - begin),
                            .tagReads = 0,
                            .rounds = 0,
                            .stopCause = CAUSE_HOST};
    deliver(engine, RXE_PACKET_START_INFO3, encodeStartInfo(info, payloadRoom(engine)));
    engine->activity.store(activity_e::ENDING, std::memory_order_relaxed);
    byte_writer_s writer = payloadWriter(engine);
    put(&writer, 0x0809, 2);
    put(&writer, CAUSE_HOST, 2);
    deliver(engine, RXE_PACKET_END_OF_RUN, writer.size);
}

}  // namespace

bool loadReplay(replay_s* replay, std::string* error) {
    *replay = {};
    const char* const path = std::getenv("RXE_REPLAY");
    if (path == nullptr || *path == '\0') {
        return true;
    }
    const std::string who = std::string("RXE_REPLAY: ") + path + ": ";
    const char* const speed = std::getenv("RXE_REPLAY_SPEED");
    const std::string_view pace = speed == nullptr || *speed == '\0' ? "original" : speed;
    if (pace != "original" && pace != "fast") {
        *error = R"(RXE_REPLAY_SPEED: must be "original" or "fast")";
        return false;
    }
    replay->fast = pace == "fast";
    std::string fault = readFile(path, MAX_LOG, &replay->bytes);
    if (fault.empty()) {
        fault = checkHeader(replay->bytes);
    }
    if (fault.empty()) {
        fault = indexPackets(replay);
    }
    if (!fault.empty()) {
        *error = who + fault;
        *replay = {};
    }
    return fault.empty();
}

void runReplay(engine_s* engine) {
    replay_s& replay = engine->radio.replay;
    const std::size_t run = replay.next;
    replay.next = (run + 1) % (replay.runs.size() - 1);
    const std::int64_t begin = engine->radio.now;
    const std::int64_t shift = begin - replay.packets[replay.runs[run]].time;
    for (std::size_t i = replay.runs[run]; i < replay.runs[run + 1]; ++i) {
        const replay_packet_s& packet = replay.packets[i];
        if (!waitUntil(engine, packet.time + shift)) {
            endByHost(engine, begin);
            return;
        }
        if (endsRun(replay, packet)) {
            engine->activity.store(activity_e::ENDING, std::memory_order_relaxed);
            play(engine, packet);
            return;
        }
        play(engine, packet);
    }
    // The log ends within the run, which so has no end of its own.
    while (!stopRequested(*engine)) {
        park(engine);
    }
    endByHost(engine, begin);
}

}  // namespace rxe
