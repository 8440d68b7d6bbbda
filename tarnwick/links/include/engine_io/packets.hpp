// SPDX-License-Identifier: MIT
// Which packet types the engine reports, and the names of packet types, fields of tag
// packets and link profiles. Main thread, unless a line says otherwise.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "rxe.h"

// A packet type of the engine. `enabled` is whether this program has enabled
// it; the main thread alone reads and writes that.
struct packet_name_s {
    // That of the enumerator in rxe.h, without its prefix.
    std::string_view name;
    // RXE_PACKET_ID.
    std::uint16_t id;
    bool enabled;
};
// All types that have a name here. END_OF_RUN and ERROR_LOG do not: the library delivers them without
// being asked.
extern const std::size_t nPackets;
extern const std::span<packet_name_s> packet_names;

// The row of a packet type id (RXE_PACKET_ID, below 1024), or null. The name may be read on any
// thread.
packet_name_s* findPacket(std::uint16_t id);

// A field that tag packets may carry: one bit of parameter 9 and of TAG_INFO_s
// `fields`.
struct custom_field_name_s {
    std::string_view name;
    // RXE_FIELD_*.
    std::uint32_t bit;
};
inline constexpr std::size_t nCustomFields = 13;
extern const std::array<custom_field_name_s, nCustomFields> custom_field_names;

// Names of the bits set in `mask`, in table order. Any thread.
std::vector<std::string_view> getCustomFieldNames(std::uint32_t mask);

// Turn the reporting of one packet type on and off. Nothing is written for a type that is already
// in that state; a type that is not in packet_names is written each time. Return the status of the
// engine, 0 for success.
RXE_API_STATUS enablePacketType(std::uint16_t id);
RXE_API_STATUS disablePacketType(std::uint16_t id);
RXE_API_STATUS disableAllPackets();

// The link profiles that the engine accepts, ascending (RXE_LINK_PROFILES). Constant, any thread.
extern const std::vector<std::uint16_t> RXEValidLPs;

bool isValidLP(std::uint16_t linkProfile);  // any thread
