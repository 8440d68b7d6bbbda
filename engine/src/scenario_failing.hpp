// SPDX-License-Identifier: MIT
// Operations of rxe.h that fail on purpose, so that a host's handling of errors can be tested.
// The scenario's key "failing" and the event "fail" ask for them. Any thread.
//
//   {"operation": "RXE_setParam2", "parameter": "0x0200", "status": 8, "after": 2, "count": 1}
//
// lets two writes of parameter 0x0200 succeed and the third return 8.
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

// The operations that return a status: all but RXE_strerror.
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

// Which calls fail, and with what.
struct failing_s {
    // A name of failableOperations; empty for any.
    std::string operation;
    // The call fails only for this parameter id; -1 for any id, and for operations without one.
    int parameter = -1;
    // What the call returns, 0 to 65535. 0, in an event, ends the failures that an earlier row
    // asked for.
    int status = 1;
    // Calls that still work before the first that fails.
    std::uint32_t after = 0;
    // Calls that fail; 0 for no end.
    std::uint32_t count = 1;
    bool operator==(const failing_s&) const = default;
};

// The rows at work. Shared by all threads that call the engine.
struct failures_s {
    // Guards both lists.
    std::mutex mutex;
    // The rows of the scenario as they were given.
    std::vector<failing_s> asked;
    // These rows and those of messages, in the order in which they came. Calls count `after` and
    // `count` down; a row that is used up is removed.
    std::vector<failing_s> left;
    // Whether `left` has rows. Read without the lock, which costs a call nothing while no call
    // is to fail.
    std::atomic<bool> any{false};
};

// Takes the scenario's rows in place of all others. When they are the same as last time, the
// counts go on: RXE_getAPIVerNum reads the scenario before RXE_connect does, and may be one of
// the calls that fail.
void presetFailures(const std::vector<failing_s>& rows, failures_s* failures);
// Removes all rows; called when the connection ends.
void forgetFailures(failures_s* failures);
// Adds a row behind the others. A row with status 0 instead removes those for the same operation
// and parameter.
void addFailure(const failing_s& row, failures_s* failures);

// The rows that are not used up, one line of JSON: {"failing": [...]} with the keys of a scenario's
// rows. `after` and `count` are what is left of them.
std::string tellFailures(failures_s* failures);

// Returns the status that this call has to fail with, RXE_OK for none, and counts the call.
// `parameter` is -1 for an operation without one. The first row that fits and has let its
// `after` calls succeed decides; rows in front of it that fit count the call as one of those.
RXE_API_STATUS failureOf(std::string_view operation, int parameter, failures_s* failures);

}  // namespace rxe
