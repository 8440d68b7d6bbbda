// SPDX-License-Identifier: MIT
// What the radio does between RXE_start and the end-of-run packet. Radio
// thread only; both return when the run is over and its packets delivered.
#ifndef ENGINE_RUN_HPP
#define ENGINE_RUN_HPP

#include <cstdint>

#include "engine.hpp"

namespace rxe {

// What the last run of a start amounted to, as START_INFO3 tells it.
struct run_totals_s {
    std::int64_t duration = 0;  // microseconds
    std::uint32_t reads = 0;
    std::uint32_t rounds = 0;
};

// Walks the enabled olios until a stop rule fires or the host stops it.
void runInventory(engine_s* engine, run_totals_s* totals = nullptr);

// Reports `rate` made-up tags a second until the host stops it.
void runFakeTags(engine_s* engine, std::uint16_t rate);

}  // namespace rxe

#endif
