// SPDX-License-Identifier: MIT
// The statuses that this engine gives beside RXE_OK and RXE_NO_START_ONGOING.
// Their numbers show in the daemon's replies and logs, so they never change.
#ifndef ENGINE_STATUS_HPP
#define ENGINE_STATUS_HPP

#include "rxe.h"

namespace rxe {

enum status_e : int {
    STATUS_NOT_CONNECTED = 2,
    STATUS_ALREADY_CONNECTED = 3,
    STATUS_NULL_POINTER = 4,
    STATUS_UNKNOWN_PARAM = 5,
    STATUS_NOT_READABLE = 6,
    STATUS_NOT_WRITABLE = 7,
    STATUS_BAD_RECORD = 8,
    STATUS_BAD_ARGUMENT = 9,
    STATUS_ALREADY_STARTED = 10,
    STATUS_BAD_SCENARIO = 11,
    STATUS_FILE = 12,
    STATUS_UNKNOWN_PACKET = 13,
    STATUS_TRUNCATED = 14,
    STATUS_MALFORMED = 15,
    STATUS_IN_CALLBACK = 16,
    STATUS_TIMEOUT = 17,
    STATUS_NO_THREAD = 18,
    STATUS_NOT_SUPPORTED = 19,
    STATUS_NOT_MODELLED = 20,
    STATUS_MISCONFIGURED = 21,  // in API_ERROR packets only
};

constexpr RXE_API_STATUS toApi(status_e status) {
    return static_cast<RXE_API_STATUS>(status);
}

// The text of a status; for a number that the engine never gives, a text that
// says so. Any thread; the text lives as long as the program.
const char* statusText(RXE_API_STATUS status);

}  // namespace rxe

#endif
