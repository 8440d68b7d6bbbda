// SPDX-License-Identifier: MIT
// Access commands on one tag, from its handle to the last operation: how long they take,
// what the tag answers, and what gets lost on the way. Radio thread only.
//
// The radio does not begin an operation that would outlast the channel's time. It hops to
// another channel first. During the hop the tag loses its power, and with it its handle and
// the access password that it was given, so the radio selects, singulates and opens it again.
#pragma once

#include <cstddef>

#include "run_state.hpp"

namespace rxe {

// How long the accesses of the olio on one tag take at most, microseconds; 0 when the olio
// asks for none. A read to the end of a bank counts as one word, since the plan does not tell
// the bank's length.
double accessTime(const plan_s& plan, const planned_olio_s& planned);
// Does the accesses of the olio at `position`, in id order, on a tag that has been
// acknowledged, and delivers an ACCESS_INFO for each radio operation. The first that fails
// ends them. Returns whether the tag is still in the dialogue: then its inventoried flag
// changes at the next command. It is not when it has lost power, was killed or was given a
// wrong password.
bool doAccesses(run_s* run, std::size_t position, lit_tag_s lit);

}  // namespace rxe
