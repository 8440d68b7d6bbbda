// SPDX-License-Identifier: MIT
// What becomes of a tag packet: the names in the reply to "account" and in traces, and what they
// mean to people. Each tag packet that the radio sends has one fate.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace vocabulary {

// The places in `fates`.
enum class fate_e : std::uint8_t {
    sent,
    filtered,
    heldBack,
    superseded,
    notDecoded,
    notText,
    refused,
    noSocket,
};

struct fate_s {
    std::string_view name;
    std::string_view text;
};

// The function of the daemon that decides it stands behind each row.
inline constexpr std::array fates{
    fate_s{"sent", "sent as a report"},                                          // send_tag_data_message
    fate_s{"filtered", "left out by the mode's tag filter"},                     // process_tag_info_packet
    fate_s{"heldBack", "held back by additional keys: reported a moment ago"},   // send_out_tag_data
    fate_s{"superseded", "replaced by the next tag before its accesses ended"},  // onTagPacket
    fate_s{"notDecoded", "not understood by the radio's library"},               // process_tag_info_packet
    fate_s{"notText", "not valid UTF-8 in one of the report's texts"},           // send_out_tag_data
    fate_s{"refused", "no room: the local consumer is away or too slow"},        // send_tag_data_message
    fate_s{"noSocket", "while the form of the reports changed"},                 // send_tag_data_message
};
inline constexpr std::size_t fateCount = fates.size();

// Of a packet that does not have a fate yet: its report waits for accesses, a heat map, or the end of
// its quiet time.
inline constexpr std::string_view pendingFate = "pending";

}  // namespace vocabulary
