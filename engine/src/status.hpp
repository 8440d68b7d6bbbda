// SPDX-License-Identifier: MIT
// The statuses that this engine returns beside RXE_OK and RXE_NO_START_ONGOING. Their numbers
// show in the daemon's replies and logs, so they never change.
#pragma once

#include "rxe.h"

namespace rxe {

enum status_e : int {
    // RXE_connect has not been called, or RXE_disconnect has.
    STATUS_NOT_CONNECTED = 2,
    STATUS_ALREADY_CONNECTED = 3,
    // A pointer argument is null.
    STATUS_NULL_POINTER = 4,
    // The id names no parameter; or, for a read, a whole range of them.
    STATUS_UNKNOWN_PARAM = 5,
    STATUS_NOT_READABLE = 6,
    STATUS_NOT_WRITABLE = 7,
    // A field of a written record is out of range; the parameter keeps its value.
    STATUS_BAD_RECORD = 8,
    // An empty device, an unusual baud rate, 0 fake tags a second.
    STATUS_BAD_ARGUMENT = 9,
    // RXE_start or RXE_txFakeTags during a run.
    STATUS_ALREADY_STARTED = 10,
    // The scenario or the log to be played back cannot be used. Standard error says why.
    STATUS_BAD_SCENARIO = 11,
    // The packet log cannot be written.
    STATUS_FILE = 12,
    // RXE_formatPayloadToStruct: the type has no record.
    STATUS_UNKNOWN_PACKET = 13,
    // The payload ends within a field.
    STATUS_TRUNCATED = 14,
    // The payload has an unknown code, or a length that its record has no room for.
    STATUS_MALFORMED = 15,
    // RXE_disconnect from within the callback, which would wait for itself.
    STATUS_IN_CALLBACK = 16,
    // RXE_stop: the callback has not returned for 5 s.
    STATUS_TIMEOUT = 17,
    // RXE_connect: the system cannot create the radio thread.
    STATUS_NO_THREAD = 18,
    // This reader or its firmware does not have the parameter.
    STATUS_NOT_SUPPORTED = 19,
    // The record is for a command that the software radio does not have.
    STATUS_NOT_MODELLED = 20,
    // In API_ERROR packets only: an olio lacks its inventory set, or there is not a channel.
    STATUS_MISCONFIGURED = 21,
};

// The same number in the type of rxe.h; status_e{} becomes RXE_OK.
constexpr RXE_API_STATUS toApi(status_e status) {
    return static_cast<RXE_API_STATUS>(status);
}

// The text of a status; for a number that the engine never gives, a text that
// says so. Any thread; the text lives as long as the program.
const char* statusText(RXE_API_STATUS status);

}  // namespace rxe
