// SPDX-License-Identifier: MIT
#include "engine.hpp"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "exit_status.hpp"
#include "sockets.hpp"

namespace {

void explainSilence(const engine_event_s& event) {
    const bool nobody = ipcFile(event.endpoint) && !hasLiveListener(event.endpoint);
    std::fprintf(stderr, "twctl: no answer within %g s on %s%s\n", event.timeoutSeconds,
                 event.endpoint.c_str(),
                 nobody ? ": nothing listens there, is the daemon running with the software engine?" : "");
}

}  // namespace

int runEngineEvent(const engine_event_s& event) {
    std::string answer;
    switch (exchangeText(event.endpoint, joinWords(event.words), event.timeoutSeconds, &answer)) {
        case exchange_e::badEndpoint:
            return exitTrouble;
        case exchange_e::silence:
            explainSilence(event);
            return exitNoAnswer;
        case exchange_e::answered:
            break;
    }
    if (const int error = writeLine(answer, true); error != 0 && error != EPIPE) {
        std::fprintf(stderr, "twctl: standard output: %s\n", std::strerror(error));
        return exitTrouble;
    }
    return answer == "ok" ? exitSuccess : exitFailure;
}
