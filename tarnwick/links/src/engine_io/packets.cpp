// SPDX-License-Identifier: MIT
// Which packet types the engine reports, and the record of what was turned on.
#include "engine_io/packets.hpp"
#include "engine_io/parameter_io.hpp"
#include "logger.hpp"

namespace {

using rxe_intfc::unit;

// `id` is an RXE_PACKET_ID. The row changes only when the engine has accepted the write.
RXE_API_STATUS setPacketType(std::uint16_t id, bool enable) {
    packet_name_s* row = findPacket(id);
    if (row != nullptr && row->enabled == enable) {
        return RXE_OK;
    }
    logInfo(unit, enable ? " Enabling Packet " : " Disabling Packet ", id, " ",
            row != nullptr ? row->name : std::string_view());
    PACKET_ENABLE_s record{};
    record.enable = enable ? 1 : 0;
    record.id = id;
    const RXE_API_STATUS status = rxe_intfc::writeParameter<RXE_PARAM_PACKET_ENABLE>(record);
    if (status == RXE_OK && row != nullptr) {
        row->enabled = enable;
    }
    return status;
}

}  // namespace

RXE_API_STATUS enablePacketType(std::uint16_t id) {
    return setPacketType(id, true);
}

RXE_API_STATUS disablePacketType(std::uint16_t id) {
    return setPacketType(id, false);
}

RXE_API_STATUS disableAllPackets() {
    logInfo(unit, " Disable All Packets ");
    const RXE_API_STATUS status = rxe_intfc::writeParameter<RXE_PARAM_PACKET_ENABLE>(PACKET_ENABLE_s{});
    if (status == RXE_OK) {
        for (packet_name_s& row : packet_names) {
            row.enabled = false;
        }
    }
    return status;
}
