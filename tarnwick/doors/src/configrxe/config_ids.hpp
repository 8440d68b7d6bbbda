// SPDX-License-Identifier: MIT
// The ids of the engine's records, as the command "configrxe" and the document of the
// engine's state take them. Private to configrxe.
#pragma once

#include "rxe.h"

namespace rxe_intfc {

// Ids that a range of the engine has. Id 0 addresses the whole range, for disabling, except
// in the range of the channels: the engine refuses it there.
struct id_range_s {
    int first, last;          // both included
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
