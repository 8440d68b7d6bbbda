// SPDX-License-Identifier: MIT
// Delivers packets to the host: first to the packet log, then to the callback. Radio thread
// only, except for `wanted`, which any thread may ask.
//
// A packet is written in place, into host_s::packet. payloadWriter gives the room behind the
// packet's head, and deliver fills the head in, so there is one packet at a time. `now` is
// microseconds of the engine's clock, for the log. The room has maxPayload bytes, enough for
// each packet of the engine.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "host.hpp"

namespace rxe {

// Why a run ended: the stop cause in START_INFO3 and in the end-of-run packet.
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

// The payload of an end-of-run packet begins with these two bytes; the stop cause follows.
//
//   | 08 | 09 | stop cause: 2 |
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

// Whether the host has enabled packets of this raw type. END_OF_RUN and ERROR_LOG are always
// wanted. Ask before you encode a packet at some cost; deliver asks on its own.
bool wanted(const host_s& host, std::uint16_t rawType);

// Hands over a packet whose `length` bytes of payload stand in the room; drops it, also from
// the log, when the host does not want its type.
void deliver(host_s* host, std::int64_t now, std::uint16_t rawType, std::size_t length);
// The same whether the host wants its type or not: packets of a log that is
// played back, which holds what the host wanted then.
void deliverAsIs(host_s* host, std::int64_t now, std::uint16_t rawType, std::size_t length);

// The last packet of a run, with its stop cause.
void sendEndOfRun(host_s* host, std::int64_t now, stop_cause_e cause);
// API_ERROR with this code. Quirk of that packet: its bytes are least significant first.
void sendApiError(host_s* host, std::int64_t now, std::uint32_t code);
}  // namespace rxe
