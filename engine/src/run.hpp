// SPDX-License-Identifier: MIT
// What the radio does between RXE_start and the end-of-run packet. Radio
// thread only; both return when the run is over and its packets delivered.
#pragma once

#include <cstdint>

#include "host.hpp"
#include "radio.hpp"

namespace rxe {

// What the last run of a start amounted to, as START_INFO3 tells it.
struct run_totals_s {
    // Microseconds.
    std::int64_t duration = 0;
    // Reads that were reported, and inventory rounds.
    std::uint32_t reads = 0;
    std::uint32_t rounds = 0;
};

// Walks the enabled olios until a stop rule fires or the host stops it. With a start trigger and
// autorestart it begins again, and returns when no restart follows. `totals`, when not null,
// gets those of the last run.
void runInventory(radio_s* radio, host_s* host, run_totals_s* totals = nullptr);

// Reports `rate` made-up tags a second until the host stops it.
void runFakeTags(radio_s* radio, host_s* host, std::uint16_t rate);

}  // namespace rxe
