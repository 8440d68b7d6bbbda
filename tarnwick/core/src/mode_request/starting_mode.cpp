// SPDX-License-Identifier: MIT
// The mode that a start begins with: what the last run has left, or the default.
#include <nlohmann/json.hpp>

#include "apply/apply.hpp"
#include "engine_io/parameter_io.hpp"
#include "json_fields.hpp"
#include "logger.hpp"
#include "mode/language.hpp"
#include "mode_request.hpp"
#include "util.hpp"

namespace {

using rxe_intfc::unit;

constexpr const char* defaultRequest = R"({"type":"SIMPLE"})";

bool isSuccess(const std::string& reply) {
    return reply.find("Success") != std::string::npos;
}

// The stored mode, or the default. A file that cannot be used is kept, unless it is empty or holds
// only the default.
struct starting_mode_s {
    std::string request = defaultRequest;
    bool isFromFile = false;
    bool isWorthKeeping = false;
};

starting_mode_s startingMode() {
    std::string text;
    std::string reason;
    if (readRegularFile(modeFile, &text, &reason) != file_read_e::done) {
        if (reason.empty()) {
            return {};  // the first start
        }
        logUncountedWarning(unit, " The stored mode is not used: ", reason);
        return {.isWorthKeeping = true};
    }
    nlohmann::json document;
    if (!parseJsonText(text, &document, &reason)) {
        logInfo(unit, " Error parsing mode_config.json. Using Default configuration (", escaped_s{reason},
                ")");
        return {.isWorthKeeping = !text.empty()};
    }
    const auto mode = document.find("mode");
    if (mode == document.end()) {
        return {.isWorthKeeping = true};
    }
    const std::string request = mode->dump();
    return {request, true, request != defaultRequest};
}

// Renames the file of the stored mode, so that the default can be stored. Returns whether that
// worked: then nothing is lost.
bool keepStoredMode() {
    std::string kept;
    std::string cause;
    if (!keepFileAs(modeFile, ".refused", &kept, &cause)) {
        logUncountedError(unit, " The default mode is not stored, since the stored mode cannot be kept as ",
                          kept, ": ", cause);
        return false;
    }
    logUncountedWarning(unit, " The stored mode could not be applied. It is kept as ", kept);
    return true;
}

// Carries out a mode request as if a client had sent it. Returns the reply.
std::string requestMode(const std::string& request) {
    std::vector<std::string> tokens{"mode", request};
    std::string reply;
    handleModeRequest(&tokens, &reply);
    return reply;
}

// The same for the default mode. The file of a stored mode that is worth keeping is renamed only
// when the engine has accepted the default; otherwise the next start tries the stored mode again.
std::string requestDefault(bool isStoredWorthKeeping) {
    if (!isStoredWorthKeeping) {
        return requestMode(defaultRequest);
    }
    nlohmann::json root;
    std::string reply;
    if (applyModeRequest(defaultRequest, &root, &reply) == 0 && keepStoredMode()) {
        storeModeRequest(std::move(root));
    }
    return reply;
}

}  // namespace

RXE_API_STATUS initialRXEConfiguration() {
    const RXE_API_STATUS status = baselineRXEConfiguration(true);
    const starting_mode_s start = startingMode();
    logInfo(unit, " Initial Config: ", escaped_s{start.request});
    const std::string reply =
        start.isFromFile ? requestMode(start.request) : requestDefault(start.isWorthKeeping);
    logInfo(unit, " Response: ", escaped_s{reply});
    if (!isSuccess(reply)) {
        logCountedWarning(unit, " Error with mode_config.json file. Using Default configuration (",
                          escaped_s{reply}, ")");
        requestDefault(start.isWorthKeeping);
    }
    return status;
}
