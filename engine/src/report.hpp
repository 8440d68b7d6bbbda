// SPDX-License-Identifier: MIT
// Reports a read to the host: filters, the tag database, tag packets, and the levels on the
// array's beams. Radio thread only.
#pragma once

#include <cstddef>

#include "gen2.hpp"
#include "run_state.hpp"

namespace rxe {

// One tag's reply in one slot.
struct sighting_s {
    lit_tag_s lit;
    // dBm at the reader, with the fading of this slot. The RSSI of the tag packet is this, rounded
    // and cut to -128 to 127.
    float level = -200;
    // Points into run_s::scratch or into the tag's EPC bank, so it is valid until either changes.
    backscatter_s reply;
};

// Enters the tag into the database, counts the read, and delivers each enabled kind of tag
// packet, with PARALLEL_RSSI_DEBUG behind them for a beam. False when an id filter or the filter
// of last reports holds the read back: then nothing is delivered.
bool reportTag(run_s* run, std::size_t position, const sighting_s& sighting);
// Reports a read of a tag that is not in the field, at -50 dBm on antenna 1, for
// RXE_txFakeTags. Filters and the database have no part in it.
void reportFake(run_s* run, const tag_s& tag);

}  // namespace rxe
