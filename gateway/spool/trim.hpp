// SPDX-License-Identifier: MIT
// What goes out of the spool: entries that all sinks have, and the oldest beyond the limits, which a sink
// that is behind then loses. All of it happens within the writer's transaction.
#pragma once

#include "state.hpp"

class store_c;

// Removes what all sinks have when it is at least `worth` entries, and what is beyond the limits. Each sink
// that loses entries gets an overflow in their place, and its cursor moves before that. What the snapshot
// needs stays.
void trim(store_c* store, const boot_list_c& boots, const spool_config_s& limits, state_s* next,
          std::int64_t worth);

// Whether there is more than the limits allow.
bool isOver(store_c* store, const spool_config_s& limits, const state_s& state);

// Whether trim() has something to do.
bool isTrimDue(store_c* store, const spool_config_s& limits, const state_s& state);

// A database that was moved aside has taken everything pending with it: each sink gets an overflow as
// the first of its entries. `boot` is the row of a life of a daemon.
void dropAll(store_c* store, state_s* next, std::int64_t boot);
