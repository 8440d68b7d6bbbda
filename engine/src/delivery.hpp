// SPDX-License-Identifier: MIT
// The way of a packet to the host: log, then callback. Radio thread only, but for
// `wanted`, which any thread may ask.
//
// A packet is written in place: payloadWriter gives the room behind the packet's head, and
// deliver fills the head in. So there is one packet at a time. `now` is microseconds of the
// engine's clock, for the log.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "host.hpp"

namespace rxe {

// Why a run ended, as START_INFO3 and the end-of-run packet tell it.
enum stop_cause_e : std::uint16_t {
    // It has not ended.
    RUNNING = 0,
    CAUSE_HOST = 1,
    // A stop rule: passes through the olios, time, reads or no new tag, an input.
    CAUSE_LOOPS = 2,
    CAUSE_DURATION = 4,
    CAUSE_TAG_COUNT = 8,
    CAUSE_GPI = 16,
    // The event "fault".
    CAUSE_ERROR = 32,
    // No olio is enabled; an olio lacks its inventory set, or no channel is enabled.
    CAUSE_NO_OLIOS = 64,
    CAUSE_MISCONFIGURED = 1024,
};

// The first two bytes of an end-of-run packet's payload.
constexpr std::uint16_t endOfRunMark = 0x0809;

// Where the payload of the next packet is written.
inline std::span<std::uint8_t> payloadRoom(host_s* host) {
    return std::span(host->packet).subspan(sizeof(RXE_packet_s));
}
// The packet's head, in front of that room. The array is aligned for it.
inline RXE_packet_s* nextPacket(host_s* host) {
    return static_cast<RXE_packet_s*>(static_cast<void*>(host->packet.data()));
}
// A writer at the beginning of that room.
inline byte_writer_s payloadWriter(host_s* host) {
    return {.out = payloadRoom(host)};
}

// Whether the host wants packets of this raw type. Asked before a packet whose encoding is
// costly; deliver asks on its own.
bool wanted(const host_s& host, std::uint16_t rawType);

// Hands over a packet whose `length` bytes of payload stand in the room; drops
// it when the host does not want its type.
void deliver(host_s* host, std::int64_t now, std::uint16_t rawType, std::size_t length);
// The same whether the host wants its type or not: packets of a log that is
// played back, which holds what the host wanted then.
void deliverAsIs(host_s* host, std::int64_t now, std::uint16_t rawType, std::size_t length);

// The last packet of a run.
void sendEndOfRun(host_s* host, std::int64_t now, stop_cause_e cause);
// API_ERROR with this code, least significant byte first.
void sendApiError(host_s* host, std::int64_t now, std::uint32_t code);
}  // namespace rxe
