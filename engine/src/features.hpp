// SPDX-License-Identifier: MIT
// Which parameters a reader has, by its model, its firmware and the library's version. Any
// thread: these are functions of the reader_s alone, which does not change while there is a
// connection. The daemon decides by the same versions which parameters it uses.
#pragma once

#include <cstdint>

#include "rxe.h"
#include "world.hpp"

namespace rxe {

// The scenario's model and versions.
struct reader_s {
    // ANY has the parameters of every model.
    reader_model_e model = reader_model_e::ANY;
    REL_VERSION_s firmware = {};
    REL_VERSION_s library = {};
};

// False for a parameter that this reader or its firmware does not have; a call for it gets
// STATUS_NOT_SUPPORTED. True for all other ids, also for those that are not parameters.
bool hasParameter(const reader_s& reader, std::uint16_t id);
// Whether the transmit delay can be of type 2: the radio rests after a pass without a new tag.
// An old PN5100 (firmware other than 2) has only type 1, after a pass without any read.
bool delaysAfterNoUniques(const reader_s& reader);

}  // namespace rxe
