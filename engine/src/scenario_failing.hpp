// SPDX-License-Identifier: MIT
// Operations that are to fail, so that a host's handling of errors can be tried: what the
// scenario or a control message asked for, and the counting down. Any thread.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "rxe.h"

namespace rxe {

// The operations that return a status, and so can fail.
constexpr std::array<std::string_view, 17> failableOperations{
    "RXE_getAPIVerNum",
    "RXE_connect",
    "RXE_disconnect",
    "RXE_setCallback",
    "RXE_getParam",
    "RXE_setParam",
    "RXE_setParam2",
    "RXE_setNVMParam",
    "RXE_start",
    "RXE_stop",
    "RXE_resume",
    "RXE_resetDb",
    "RXE_getErr",
    "RXE_txFakeTags",
    "RXE_enablePacketLogging",
    "RXE_disablePacketLogging",
    "RXE_formatPayloadToStruct",
};

struct failing_s {
    // A name of failableOperations; empty for any.
    std::string operation;
    // The parameter id that the call has to be for; -1 for any, also for operations without one.
    int parameter = -1;
    // What the call returns.
    int status = 1;
    // Calls that still work before the first that fails.
    std::uint32_t after = 0;
    // Calls that fail; 0 for no end.
    std::uint32_t count = 1;
    bool operator==(const failing_s&) const = default;
};

struct failures_s {
    // Guards both lists.
    std::mutex mutex;
    // The rows of the scenario as they were.
    std::vector<failing_s> asked;
    // The same with messages' rows, counted down; a row that is used up goes.
    std::vector<failing_s> left;
    // Whether `left` has rows. Read without the lock, so that calls pass by when none is to fail.
    std::atomic<bool> any{false};
};

// Takes the scenario's rows. Rows that are the same as last time keep their
// counts: the version is asked for, and may fail, before RXE_connect.
void presetFailures(const std::vector<failing_s>& rows, failures_s* failures);
// The connection is over: no call is to fail any more.
void forgetFailures(failures_s* failures);
// A row with status 0 ends those for the same operation and parameter.
void addFailure(const failing_s& row, failures_s* failures);

// Counts the call, and returns the status that it has to fail with, RXE_OK for none. `parameter`
// is -1 for an operation without one. A row that still lets calls
// succeed counts this one and leaves it to the next row that fits.
RXE_API_STATUS failureOf(std::string_view operation, int parameter, failures_s* failures);

}  // namespace rxe
