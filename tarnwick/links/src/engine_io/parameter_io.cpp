// SPDX-License-Identifier: MIT
#include "engine_io/parameter_io.hpp"

#include <cstdlib>
#include <vector>

#include "logger.hpp"
#include "reader_facts.hpp"
#include "rxe_intfc.hpp"
#include "util.hpp"

// Written by the command "shadow" and read by every write, all on the main thread.
constinit bool useRXEShadow = true;

namespace rxe_intfc {

RXE_API_STATUS noteFailure(RXE_API_STATUS status, std::string_view detail) {
    if (status != RXE_OK) {
        logCountedError(unit, " failed with error code: ", static_cast<int>(status), detail);
    }
    return status;
}

RXE_API_STATUS writeParameter(unsigned id, void* record) {
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

int handleShadowRequest(std::vector<std::string>* tokens, std::string* reply) {
    const std::string value = tokens->size() > 2 ? (*tokens)[2] : "";
    if (tokens->size() == 2) {
        *reply = useRXEShadow ? "Success: using RXE shadow" : "Success: not using RXE shadow";
    } else if (value == "enable" || value == "disable") {
        useRXEShadow = value == "enable";
        *reply = "Success:";
    } else {
        *reply = "Failure: shadow requires either enable or disable";
    }
    return 0;
}
