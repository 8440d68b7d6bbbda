// SPDX-License-Identifier: MIT
// What the engine holds, read back parameter by parameter, as JSON. Private to
// rxe_intfc; main thread, also while the radio runs.
//
// Nothing here looks at this program's memory of what it wrote.
#pragma once

#include <cstddef>
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>

#include "rxe.h"

// A select slot that sends a Gen2 Challenge instead of a Select: `enable` is
// neither 0 nor 1. It takes the place of a SELECT_OP_s, `bitLength` where that
// has its pointer and the message where that has its mask:
//
//   0      1            2          3           4  5       6 ... 9    10 ... 75
//   |enable|incRepLen   |immediate |csi        | bitLength| reserved | message  |
struct CHALLENGE_OP_s {
    std::uint8_t enable;
    std::uint8_t includeResponseLength;  // 0 or 1 (EPC Gen2, 6.3.2.12.1.2)
    std::uint8_t immediateResponse;      // 0 or 1
    std::uint8_t cryptoSuiteIndex;
    std::uint16_t bitLength;  // of the message, bits
    std::uint8_t reserved6[4];
    std::uint8_t message[66];  // (bitLength + 7) / 8 bytes count, most significant bit first
};
static_assert(sizeof(CHALLENGE_OP_s) == sizeof(SELECT_OP_s));
static_assert(offsetof(CHALLENGE_OP_s, bitLength) == offsetof(SELECT_OP_s, pointer));
static_assert(offsetof(CHALLENGE_OP_s, message) == offsetof(SELECT_OP_s, mask));

namespace rxe_intfc {

// Ids that the engine's ranges have; 0 addresses a whole range, for disabling,
// except for the channels, of which the engine itself refuses 0.
struct id_range_s {
    int first, last;
    const char* unsupported;  // failure text for an id outside
};
inline constexpr id_range_s channelIds{0, RXE_MAX_CHANNELS, "Failure: channel id not supported"};
inline constexpr id_range_s selectIds{1, RXE_MAX_SELECTS, "Failure: select id not supported"};
inline constexpr id_range_s inventoryIds{1, 0xFF, "Failure: inventory id not supported"};
inline constexpr id_range_s accessIds{1, RXE_MAX_ACCESSES, "Failure: access id not supported"};
inline constexpr id_range_s filterIds{1, RXE_PARAM_AUTORESTART - RXE_PARAM_ID_FILTER - 1,
                                      "Failure: filter id not supported"};
inline constexpr id_range_s olioIds{1, RXE_MAX_OLIOS, "Failure: olio id not supported"};

inline bool isIn(const id_range_s& range, int id) {
    return id >= range.first && id <= range.last;
}

}  // namespace rxe_intfc

// Renders a slot of the selects as what it holds: a Select or a challenge.
int selectSlot_to_json(const SELECT_OP_s* select, nlohmann::json* out);
int challenge_to_json(const CHALLENGE_OP_s* challenge, nlohmann::json* out);
int idFilter_to_json(const REPORT_FILTER_ID_s* filter, nlohmann::json* out);
int lastReportInterval_to_json(const REPORT_FILTER_LAST_REPORT_s* filter, nlohmann::json* out);
