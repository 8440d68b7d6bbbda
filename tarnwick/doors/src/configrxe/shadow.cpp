// SPDX-License-Identifier: MIT
// The text command "configrxe shadow".
#include "configrxe.hpp"
#include "configrxe_words.hpp"
#include "engine_io/parameter_io.hpp"

int handleShadowRequest(std::vector<std::string>* tokens, std::string* reply) {
    namespace words = vocabulary::configrxe_words;
    const std::string value = tokens->size() > 2 ? (*tokens)[2] : "";
    if (tokens->size() == 2) {
        *reply = useRXEShadow ? "Success: using RXE shadow" : "Success: not using RXE shadow";
    } else if (value == words::enable.name || value == words::disable.name) {
        useRXEShadow = value == words::enable.name;
        *reply = "Success:";
    } else {
        *reply = "Failure: shadow requires either enable or disable";
    }
    return 0;
}
