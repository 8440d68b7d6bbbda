// SPDX-License-Identifier: MIT
#include "status.hpp"

#include <algorithm>
#include <array>

namespace rxe {
namespace {

// A status and its text, which shows in the daemon's log and replies.
struct status_text_s {
    int status;
    const char* text;
};

constexpr std::array statusTexts{
    status_text_s{RXE_OK, "success"},
    status_text_s{STATUS_NOT_CONNECTED, "not connected to the radio"},
    status_text_s{STATUS_ALREADY_CONNECTED, "already connected to the radio"},
    status_text_s{STATUS_NULL_POINTER, "null pointer given"},
    status_text_s{STATUS_UNKNOWN_PARAM, "unknown parameter id"},
    status_text_s{STATUS_NOT_READABLE, "parameter cannot be read"},
    status_text_s{STATUS_NOT_WRITABLE, "parameter cannot be written"},
    status_text_s{STATUS_BAD_RECORD, "a field of the record is out of range"},
    status_text_s{STATUS_BAD_ARGUMENT, "argument out of range"},
    status_text_s{STATUS_ALREADY_STARTED, "a start is already under way"},
    status_text_s{STATUS_BAD_SCENARIO, "the scenario file is not usable"},
    status_text_s{STATUS_FILE, "the file cannot be written"},
    status_text_s{STATUS_UNKNOWN_PACKET, "packets of this type have no record"},
    status_text_s{STATUS_TRUNCATED, "the payload ends within a field"},
    status_text_s{STATUS_MALFORMED, "the payload is malformed"},
    status_text_s{STATUS_IN_CALLBACK, "not possible from within the callback"},
    status_text_s{STATUS_TIMEOUT, "the callback did not return in time"},
    status_text_s{STATUS_NO_THREAD, "the radio thread could not be started"},
    status_text_s{STATUS_NOT_SUPPORTED, "this reader or its firmware has no such parameter"},
    status_text_s{STATUS_NOT_MODELLED, "the software radio does not model this command"},
    status_text_s{STATUS_MISCONFIGURED, "an enabled olio lacks its inventory set or a channel"},
    status_text_s{RXE_NO_START_ONGOING, "no start is under way"},
};

constexpr bool hasText(int status) {
    return std::ranges::count(statusTexts, status, &status_text_s::status) == 1;
}
// The engine's own statuses are numbered from 2 without a gap.
constexpr bool allHaveTexts() {
    for (int status = STATUS_NOT_CONNECTED; status <= STATUS_MISCONFIGURED; ++status) {
        if (!hasText(status)) {
            return false;
        }
    }
    return hasText(RXE_OK) && hasText(RXE_NO_START_ONGOING);
}
static_assert(allHaveTexts());

}  // namespace

const char* statusText(RXE_API_STATUS status) {
    for (const status_text_s& row : statusTexts) {
        if (row.status == static_cast<int>(status)) {
            return row.text;
        }
    }
    return "unknown status";
}

}  // namespace rxe
