// SPDX-License-Identifier: MIT
#include "requests.hpp"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "exit_status.hpp"
#include "sockets.hpp"

namespace {

void explainSilence(const request_s& request) {
    const std::optional<std::string> file = ipcFile(request.endpoint);
    const char* hint = "";
    if (file && access(file->c_str(), F_OK) != 0) {
        hint = ": nothing listens there, is the daemon running?";
    } else if (file && access(file->c_str(), W_OK) != 0) {
        hint = ": no right to write to it, which root, trfidadm and the group appsadms have";
    }
    std::fprintf(stderr, "twctl: no reply within %g s on %s%s\n", request.timeoutSeconds,
                 request.endpoint.c_str(), hint);
}

}  // namespace

int runRequest(const request_s& request) {
    std::string reply;
    switch (exchangeText(request.endpoint, joinWords(request.words), request.timeoutSeconds, &reply)) {
        case exchange_e::badEndpoint:
            return exitTrouble;
        case exchange_e::silence:
            explainSilence(request);
            return exitNoAnswer;
        case exchange_e::answered:
            break;
    }
    if (const int error = writeLine(reply, true); error != 0 && error != EPIPE) {
        std::fprintf(stderr, "twctl: standard output: %s\n", std::strerror(error));
        return exitTrouble;
    }
    return reply.starts_with("Failure") ? exitFailure : exitSuccess;
}
