// SPDX-License-Identifier: MIT
#include "delivery.hpp"

namespace rxe {
bool wanted(const host_s& host, std::uint16_t rawType) {
    // These two are answers to the host's own stop and question; no id switches them off.
    return rawType == RXE_PACKET_END_OF_RUN || rawType == RXE_PACKET_ERROR_LOG ||
           packetEnabled(host.params, RXE_PACKET_ID(rawType));
}

void deliver(host_s* host, std::int64_t now, std::uint16_t rawType, std::size_t length) {
    if (wanted(*host, rawType)) {
        deliverAsIs(host, now, rawType, length);
    }
}

void deliverAsIs(host_s* host, std::int64_t now, std::uint16_t rawType, std::size_t length) {
    RXE_packet_s* const packet = nextPacket(host);
    packet->type = rawType;
    packet->length = static_cast<std::uint16_t>(length);
    // Before the callback, so that a packet is in the log even if the host ends within it.
    logPacket(now, *packet, &host->log);
    packet_callback_f* const callback = host->callback.load(std::memory_order_acquire);
    if (callback != nullptr) {
        callback(packet);
    }
}

void sendEndOfRun(host_s* host, std::int64_t now, stop_cause_e cause) {
    byte_writer_s writer = payloadWriter(host);
    put(&writer, endOfRunMark, 2);
    put(&writer, cause, 2);
    deliver(host, now, RXE_PACKET_END_OF_RUN, writer.size);
}

void sendApiError(host_s* host, std::int64_t now, std::uint32_t code) {
    byte_writer_s writer = payloadWriter(host);
    for (int shift = 0; shift < 32; shift += 8) {
        put(&writer, code >> shift & 0xFF, 1);
    }
    deliver(host, now, RXE_PACKET_API_ERROR, writer.size);
}

}  // namespace rxe
