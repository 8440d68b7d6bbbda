// SPDX-License-Identifier: MIT
// From received bytes to the bytes of the answer; no sockets here.
#pragma once

#include <string>
#include <string_view>

#include "fault.hpp"
#include "profile.hpp"

// A request of a client is some 500 bytes.
inline constexpr std::size_t maxRequestLength = 16384;

// What the server does once a request is complete.
struct answer_s {
    std::string bytes;   // sent in one piece; empty when nothing is said
    bool close = true;   // false: keep the connection and say nothing
    std::string legend;  // for the trace: the command, or what was wrong with it
};

// True when `received` needs no more bytes: the request is whole or too long.
bool isComplete(std::string_view received);

// The answer to what was received, whole or not. Counts the request in `*plan`.
answer_s answerRequest(std::string_view received, const profile_s& profile, fault_plan_s* plan);
