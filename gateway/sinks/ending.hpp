// SPDX-License-Identifier: MIT
// The end of clients whose library waits where nothing can call it back, such as in the resolver of names.
#pragma once

#include <chrono>
#include <functional>

inline constexpr std::chrono::seconds endWithin{1};

// Runs `work`, which ends a client, on a thread of its own and returns when it is done, or after
// endWithin. In that case the thread goes on by itself, with all that `work` owns; when the process ends
// meanwhile, it ends without the destructors of static objects, which that thread may be using.
void endInTime(std::function<void()> work);
