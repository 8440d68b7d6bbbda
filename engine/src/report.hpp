// SPDX-License-Identifier: MIT
// What the host is told of a read: filters, the tag database, tag packets, and the
// levels on the array's beams. Radio thread only.
#pragma once

#include <cstddef>

#include "gen2.hpp"
#include "run_state.hpp"

namespace rxe {

// What one tag gave in one slot.
struct sighting_s {
    lit_tag_s lit;
    // dBm at the reader, with this moment's fading.
    float level = -200;
    // It may point into run_s::scratch or the tag's bank, so it holds until either changes.
    backscatter_s reply;
};

// Counts the read and reports it, unless a filter holds it back: then it returns false.
bool reportTag(run_s* run, std::size_t position, const sighting_s& sighting);
// Reports a read of a tag that is not in the field, for RXE_txFakeTags.
void reportFake(run_s* run, const tag_s& tag);

}  // namespace rxe
