// SPDX-License-Identifier: MIT
// What the radio does between RXE_start and the end-of-run packet. Radio thread only; both
// functions return when the run is over and its packets are delivered.
#pragma once

#include <cstdint>

#include "host.hpp"
#include "radio.hpp"

namespace rxe {

// The totals of a run, as START_INFO3 carries them. Benchmarks read them.
struct run_totals_s {
    // Microseconds of the engine's clock; with a start trigger from when that fired.
    std::int64_t duration = 0;
    // Reads that were reported, and inventory rounds.
    std::uint32_t reads = 0;
    std::uint32_t rounds = 0;
};

// Walks the enabled olios until a stop rule fires or the host stops it, and ends with
// START_INFO3 and the end-of-run packet. With a start trigger it waits for the trigger first;
// with autorestart as well it begins again after a run that a rule has ended (RESTART), and
// returns when no restart follows. `totals`, when not null, gets those of the last run.
void runInventory(radio_s* radio, host_s* host, run_totals_s* totals = nullptr);

// Reports `rate` made-up tags a second, 1 to 65535, until the host stops it. The EPCs are
// SGTIN-96 with serial numbers from 0 on.
void runFakeTags(radio_s* radio, host_s* host, std::uint16_t rate);

}  // namespace rxe
