// SPDX-License-Identifier: MIT
#include "engine_io/parameter_io.hpp"

#include <cstdlib>

#include "logger.hpp"
#include "reader_facts.hpp"
#include "util.hpp"

// Written by the command "configrxe shadow", read by every write; main thread.
constinit bool useRXEShadow = true;

namespace rxe_intfc {

RXE_API_STATUS noteFailure(RXE_API_STATUS status, std::string_view detail) {
    if (status != RXE_OK) {
        logCountedError(unit, " failed with error code: ", static_cast<int>(status), detail);
    }
    return status;
}

// The third argument is true for every write (rxe.h).
RXE_API_STATUS writeRecord(unsigned id, void* record) {
    return noteFailure(RXE_setParam2(static_cast<unsigned short>(id), record, true, useRXEShadow));
}

RXE_API_STATUS readParameter(unsigned id, void* record) {
    return noteFailure(RXE_getParam(static_cast<unsigned short>(id), record));
}

bool hasFourGPIs() {
    return thisModel().gpis == 4;
}

std::string tenthsText(int tenths) {
    return sprintfStr("%s%d.%d", tenths < 0 ? "-" : "", std::abs(tenths / 10), std::abs(tenths % 10));
}

}  // namespace rxe_intfc
