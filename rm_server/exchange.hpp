// SPDX-License-Identifier: MIT
// From the bytes of a request to those of the answer, without sockets: the fuzzer and the tests
// call it as the server does.
#pragma once

#include <string>
#include <string_view>

#include "fault.hpp"
#include "profile.hpp"

// The longest request, bytes. The daemon's have some 500.
inline constexpr std::size_t maxRequestLength = 16384;

// What the server does when a request is complete.
struct answer_s {
    // Sent in one piece; empty for a fault that gives no answer.
    std::string bytes;
    // False: the server keeps the connection open and sends nothing.
    bool close = true;
    // For --verbose: the command, "(malformed)" or "(too long)".
    std::string legend;
};

// Whether the request in `received` is whole, or too long, so that the server can answer.
bool isComplete(std::string_view received);

// The answer to what was received. Bytes without a closing tag of the command get the error
// ERROR_MALFORMED_COMMAND, or ERROR_COMMAND_TOO_LONG at the limit. Counts the request in `*plan`.
answer_s answerRequest(std::string_view received, const profile_s& profile, fault_plan_s* plan);
