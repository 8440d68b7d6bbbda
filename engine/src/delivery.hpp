// SPDX-License-Identifier: MIT
// The way of a packet to the host: log, then callback. Radio thread only.
#ifndef ENGINE_DELIVERY_HPP
#define ENGINE_DELIVERY_HPP

#include <cstddef>
#include <cstdint>
#include <span>

#include "engine.hpp"

namespace rxe {

// Where the payload of the next packet is written.
inline std::span<std::uint8_t> payloadRoom(engine_s* engine) {
    return std::span(engine->radio.packet).subspan(sizeof(RXE_packet_s));
}
// Its head, in front of that room. The array is aligned for it.
inline RXE_packet_s* nextPacket(engine_s* engine) {
    return static_cast<RXE_packet_s*>(static_cast<void*>(engine->radio.packet.data()));
}
inline byte_writer_s payloadWriter(engine_s* engine) {
    return {.out = payloadRoom(engine)};
}

// Whether the host wants packets of this raw type, so that nothing is encoded in vain.
bool wanted(const engine_s& engine, std::uint16_t rawType);

// Hands over a packet whose `length` bytes of payload stand in the room; drops
// it when the host does not want its type.
void deliver(engine_s* engine, std::uint16_t rawType, std::size_t length);
// The same whether the host wants its type or not: packets of a log that is
// played back, which holds what the host wanted then.
void deliverAsIs(engine_s* engine, std::uint16_t rawType, std::size_t length);

// API_ERROR with this code, least significant byte first.
void sendApiError(engine_s* engine, std::uint32_t code);
// Tells the host how full the tag database is, once for each state until it is
// cleared: at nine tenths, and when a tag has found no room.
void warnOfDatabase(engine_s* engine, bool noRoom);

}  // namespace rxe

#endif
