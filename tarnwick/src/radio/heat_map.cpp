// SPDX-License-Identifier: MIT
// Heat maps: the level that a tag had on each beam of the array reader. The
// packet follows its tag packet and completes the report.
#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "mode_config.hpp"
#include "radio.hpp"
#include "radio_state.hpp"

namespace {

nlohmann::json heatMapEntry(short beam, float level) {
    std::string polarization;
    if (getPolarizationString(beam_to_pol(beam), &polarization) != 0) {
        polarization = "UNDEFINED";
    }
    return {{"az", static_cast<int>(beam_to_az(beam))},
            {"el", static_cast<int>(beam_to_el(beam))},
            {"pol", std::move(polarization)},
            {"rssi", static_cast<double>(level)}};
}

}  // namespace

void process_parallel_rssi_debug(RXE_packet_s* packet) {
    PARALLEL_RSSI_s levels{};
    if (RXE_formatPayloadToStruct(packet, &levels) == RXE_OK) {
        nlohmann::json heatMap;  // stays null for an empty list
        const auto count = std::min<std::size_t>(levels.count, std::size(levels.beam));
        for (std::size_t i = 0; i < count; ++i) {
            heatMap.push_back(heatMapEntry(levels.beam[i], levels.rssi[i]));
        }
        reportData()["HEATMAP"] = std::move(heatMap);
    }
    // A map that cannot be read still ends the report.
    send_out_tag_data();
}
