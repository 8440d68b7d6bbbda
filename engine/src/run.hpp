// SPDX-License-Identifier: MIT
// What the radio does between RXE_start and the end-of-run packet. Radio
// thread only; both return when the run is over and its packets delivered.
#ifndef ENGINE_RUN_HPP
#define ENGINE_RUN_HPP

#include <cstdint>

#include "engine.hpp"

namespace rxe {

// Walks the enabled olios until a stop rule fires or the host stops it.
void runInventory(engine_s* engine);

// Reports `rate` made-up tags a second until the host stops it.
void runFakeTags(engine_s* engine, std::uint16_t rate);

}  // namespace rxe

#endif
