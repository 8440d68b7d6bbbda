// SPDX-License-Identifier: MIT
#include "delivery.hpp"

namespace rxe {

bool wanted(const engine_s& engine, std::uint16_t rawType) {
    // These two are answers to the host's own stop and question; no id switches them off.
    return rawType == TYPE_END_OF_RUN || rawType == TYPE_ERROR_LOG ||
           packetEnabled(engine.params, idOf(rawType));
}

void deliver(engine_s* engine, std::uint16_t rawType, std::size_t length) {
    if (wanted(*engine, rawType)) {
        deliverAsIs(engine, rawType, length);
    }
}

void deliverAsIs(engine_s* engine, std::uint16_t rawType, std::size_t length) {
    auto* const packet = reinterpret_cast<RXE_packet_s*>(engine->radio.packet.data());
    packet->type = rawType;
    packet->length = static_cast<std::uint16_t>(length);
    logPacket(engine->radio.now, *packet, &engine->log);
    packet_callback_f* const callback = engine->callback.load(std::memory_order_acquire);
    if (callback != nullptr) {
        callback(packet);
    }
}

}  // namespace rxe
