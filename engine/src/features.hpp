// SPDX-License-Identifier: MIT
// Parameters that only some readers and firmware versions have.
#ifndef ENGINE_FEATURES_HPP
#define ENGINE_FEATURES_HPP

#include <cstdint>

#include "rxe.h"
#include "world.hpp"

namespace rxe {

struct reader_s {
    reader_model_e model = reader_model_e::ANY;
    REL_VERSION_s firmware = {};
    REL_VERSION_s library = {};
};

// False for a parameter that this reader has not; true for ids that nobody has.
bool hasParameter(const reader_s& reader, std::uint16_t id);
// Whether the transmit delay can follow passes without new tags; else only
// passes without any.
bool delaysAfterNoUniques(const reader_s& reader);

}  // namespace rxe

#endif
