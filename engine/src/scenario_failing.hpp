// SPDX-License-Identifier: MIT
// Operations that are to fail: what the scenario or a control message asked
// for, and the counting down. Any thread.
#ifndef ENGINE_SCENARIO_FAILING_HPP
#define ENGINE_SCENARIO_FAILING_HPP

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "rxe.h"

namespace rxe {

// The operations that return a status.
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
    std::string operation;  // empty: any
    int parameter = -1;     // -1: any, also operations without one
    int status = 1;
    std::uint32_t after = 0;  // calls that still work before the first that fails
    std::uint32_t count = 1;  // calls that fail, 0: no end
    bool operator==(const failing_s&) const = default;
};

struct failures_s {
    std::mutex mutex;
    std::vector<failing_s> asked;  // as the scenario had them
    std::vector<failing_s> left;   // counted down; a row that is used up goes
    std::atomic<bool> any{false};  // whether `left` has rows, for calls that need not look
};

// Takes the scenario's rows. Rows that are the same as last time keep their
// counts: the version is asked for, and may fail, before RXE_connect.
void presetFailures(const std::vector<failing_s>& rows, failures_s* failures);
void forgetFailures(failures_s* failures);
// A row with status 0 ends those for the same operation and parameter.
void addFailure(const failing_s& row, failures_s* failures);

// The status that this call has to fail with, RXE_OK for none.
RXE_API_STATUS failureOf(std::string_view operation, int parameter, failures_s* failures);

}  // namespace rxe

#endif
