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

int idFilter_to_json(const REPORT_FILTER_ID_s* filter, nlohmann::json* out);
int lastReportInterval_to_json(const REPORT_FILTER_LAST_REPORT_s* filter, nlohmann::json* out);
