// SPDX-License-Identifier: MIT
// The statuses that this engine gives beside RXE_OK and RXE_NO_START_ONGOING.
// Their numbers show in the daemon's replies and logs, so they never change.
#pragma once

#include "rxe.h"

namespace rxe {

enum status_e : int {
    // Of the connection.
    STATUS_NOT_CONNECTED = 2,
    STATUS_ALREADY_CONNECTED = 3,
    // Of arguments and parameters.
    STATUS_NULL_POINTER = 4,
    STATUS_UNKNOWN_PARAM = 5,
    STATUS_NOT_READABLE = 6,
    STATUS_NOT_WRITABLE = 7,
    STATUS_BAD_RECORD = 8,
    STATUS_BAD_ARGUMENT = 9,
    // Of runs and files.
    STATUS_ALREADY_STARTED = 10,
    STATUS_BAD_SCENARIO = 11,
    STATUS_FILE = 12,
    // Of payloads: a type without a record, one that ends within a field, other faults.
    STATUS_UNKNOWN_PACKET = 13,
    STATUS_TRUNCATED = 14,
    STATUS_MALFORMED = 15,
    // Of threads: the call is refused within the callback, the callback does not return, the
    // system has no thread.
    STATUS_IN_CALLBACK = 16,
    STATUS_TIMEOUT = 17,
    STATUS_NO_THREAD = 18,
    // The reader or its firmware does not have it; the software radio does not model it.
    STATUS_NOT_SUPPORTED = 19,
    STATUS_NOT_MODELLED = 20,
    // In API_ERROR packets only: an olio lacks its inventory set, or there is no channel.
    STATUS_MISCONFIGURED = 21,
};

constexpr RXE_API_STATUS toApi(status_e status) {
    return static_cast<RXE_API_STATUS>(status);
}

// The text of a status; for a number that the engine never gives, a text that
// says so. Any thread; the text lives as long as the program.
const char* statusText(RXE_API_STATUS status);

}  // namespace rxe
