// SPDX-License-Identifier: MIT
// The transmitting and the receiving side of an olio, as its record asks for them. Any thread.
#pragma once

#include "run_state.hpp"

namespace rxe {

// The olio before its first round: transmitting and receiving side, and receiver sensitivity. The
// carrier has the olio's own power and no channel yet.
active_olio_s activate(const world_s& world, const plan_s& plan, const planned_olio_s& planned);

}  // namespace rxe
