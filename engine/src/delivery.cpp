// SPDX-License-Identifier: MIT
#include "delivery.hpp"

namespace rxe {
namespace {

constexpr std::uint64_t WARNING_PERCENT = 90;  // of the database's capacity

}  // namespace

bool wanted(const engine_s& engine, std::uint16_t rawType) {
    // These two are answers to the host's own stop and question; no id switches them off.
    return rawType == RXE_PACKET_END_OF_RUN || rawType == RXE_PACKET_ERROR_LOG ||
           packetEnabled(engine.params, RXE_PACKET_ID(rawType));
}

void deliver(engine_s* engine, std::uint16_t rawType, std::size_t length) {
    if (wanted(*engine, rawType)) {
        deliverAsIs(engine, rawType, length);
    }
}

void deliverAsIs(engine_s* engine, std::uint16_t rawType, std::size_t length) {
    RXE_packet_s* const packet = nextPacket(engine);
    packet->type = rawType;
    packet->length = static_cast<std::uint16_t>(length);
    logPacket(engine->radio.now, *packet, &engine->log);
    packet_callback_f* const callback = engine->callback.load(std::memory_order_acquire);
    if (callback != nullptr) {
        callback(packet);
    }
}

void sendApiError(engine_s* engine, std::uint32_t code) {
    byte_writer_s writer = payloadWriter(engine);
    for (int shift = 0; shift < 32; shift += 8) {
        put(&writer, code >> shift & 0xFF, 1);
    }
    deliver(engine, RXE_PACKET_API_ERROR, writer.size);
}

void warnOfDatabase(engine_s* engine, bool noRoom) {
    reported_s& reported = engine->radio.reported;
    const std::uint64_t capacity = engine->radio.world.dbCapacity, used = usedRoom(reported);
    if (!reported.warned && used * 100 >= capacity * WARNING_PERCENT) {
        reported.warned = true;
        byte_writer_s writer = payloadWriter(engine);
        put(&writer, used, 4);
        put(&writer, capacity - used, 4);
        deliver(engine, RXE_PACKET_DB_WARNING, writer.size);
    }
    if (noRoom && !reported.full) {
        reported.full = true;
        deliver(engine, RXE_PACKET_DB_ERROR, 0);
    }
}

}  // namespace rxe
