// SPDX-License-Identifier: MIT
// The engine reads the event on a REP socket of its own and answers "ok" or a sentence, a question
// with JSON.
#include "engine.hpp"

#include <cstdio>

#include "exit_status.hpp"
#include "requests.hpp"
#include "sockets.hpp"

namespace {

void explainSilence(const std::string& endpoint, double timeoutSeconds) {
    const std::string hint = whySilent(endpoint, "is the daemon running with the software engine?",
                                       "run as root or as the user of the daemon");
    std::fprintf(stderr, "twctl: no answer within %g s on %s%s\n", timeoutSeconds, endpoint.c_str(),
                 hint.c_str());
}

}  // namespace

int runEngineEvent(const engine_event_s& event) {
    std::string answer;
    const std::string endpoint = endpointOf(event.endpoint);
    switch (exchangeText(endpoint, joinWords(event.words), event.timeoutSeconds, &answer)) {
        case exchange_e::badEndpoint:
            return exitTrouble;
        case exchange_e::silence:
            explainSilence(endpoint, event.timeoutSeconds);
            return exitNoAnswer;
        case exchange_e::answered:
            break;
    }
    if (const int status = printText(answer); status != exitSuccess) {
        return status;
    }
    return answer == "ok" || answer.starts_with('{') ? exitSuccess : exitFailure;
}
