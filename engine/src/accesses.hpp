// SPDX-License-Identifier: MIT
// Access commands on one tag, from its handle to the last operation: how long they take,
// what the tag answers, and what gets lost on the way. Radio thread only.
//
// An operation is not begun on a channel whose time it would outlast. The radio takes
// another channel in front of it: the tag loses power there, and with it its handle and
// the access password that it was given, so it is selected, singulated and opened again.
#pragma once

#include <cstddef>

#include "run_state.hpp"

namespace rxe {

// How long the accesses of the olio on one tag take at most, microseconds. A read to the
// end of a bank counts as one word, since the plan does not tell the bank's length.
double accessTime(const plan_s& plan, const planned_olio_s& planned);
// Does the accesses of the olio, in id order, on a tag that has been acknowledged; the
// first that fails ends them. Returns whether the tag is still in the dialogue, and so
// turns its flag at the next command: not when it has lost power or was given a wrong
// password.
bool doAccesses(run_s* run, std::size_t position, lit_tag_s lit);

}  // namespace rxe
