// SPDX-License-Identifier: MIT
// Heat maps: the level that a tag had on each beam of the array reader. The packet follows the tag
// packet and completes the report. An entry: {"az":15,"el":60,"pol":"TOTAL","rssi":-61.5}
#include <algorithm>
#include <array>
#include <string>

#include "json_values.hpp"
#include "mode/beams.hpp"
#include "radio.hpp"
#include "radio_state.hpp"

namespace {

void appendEntry(short beam, float level, std::string* map) {
    std::string polarization;
    if (getPolarizationString(beam_to_pol(beam), &polarization) != 0) {
        polarization = "UNDEFINED";
    }
    std::array<char, json_text::numberRoom> number;
    const auto length = static_cast<std::size_t>(
        json_text::putReal(static_cast<double>(level), number.data()) - number.data());
    map->append(R"({"az":)").append(std::to_string(beam_to_az(beam)));
    map->append(R"(,"el":)").append(std::to_string(beam_to_el(beam)));
    map->append(R"(,"pol":")").append(polarization);
    map->append(R"(","rssi":)").append(number.data(), length).append("}");
}

}  // namespace

void process_parallel_rssi_debug(RXE_packet_s* packet) {
    static std::string map;  // static to keep its memory; engine thread
    PARALLEL_RSSI_s levels{};
    if (RXE_formatPayloadToStruct(packet, &levels) == RXE_OK) {
        map.clear();
        const auto count = std::min<std::size_t>(levels.count, std::size(levels.beam));
        for (std::size_t i = 0; i < count; ++i) {
            map += i == 0 ? '[' : ',';
            appendEntry(levels.beam[i], levels.rssi[i], &map);
        }
        map += count == 0 ? "null" : "]";
        setLateMember("HEATMAP", map);
    }
    // The report leaves also when the map cannot be decoded.
    send_out_tag_data();
}
