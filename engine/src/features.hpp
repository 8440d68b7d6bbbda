// SPDX-License-Identifier: MIT
// Parameters that only some readers and firmware versions have. Any thread: these are
// functions of the reader_s alone, which does not change while there is a connection.
#pragma once

#include <cstdint>

#include "rxe.h"
#include "world.hpp"

namespace rxe {

// What decides about it: the scenario's model and versions.
struct reader_s {
    reader_model_e model = reader_model_e::ANY;
    REL_VERSION_s firmware = {};
    REL_VERSION_s library = {};
};

// False for a parameter that this reader or its firmware does not have. True for all other
// ids, also for those that are not parameters.
bool hasParameter(const reader_s& reader, std::uint16_t id);
// Whether the transmit delay can follow passes without new tags (type 2). Every reader can
// rest after passes without any tag.
bool delaysAfterNoUniques(const reader_s& reader);

}  // namespace rxe
