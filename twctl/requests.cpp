// SPDX-License-Identifier: MIT
// A connection lives for one request: the program ends behind it.
#include "requests.hpp"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>

#include "command_words.hpp"
#include "exit_status.hpp"
#include "sockets.hpp"

namespace {

// After the time-out, on standard error.
void explainSilence(const daemon_s& daemon, const std::string& endpoint) {
    const std::string hint =
        whySilent(endpoint, "is the daemon running?", "run as root or trfidadm, or join group appsadms");
    std::fprintf(stderr, "twctl: no reply within %g s on %s%s\n", daemon.timeoutSeconds, endpoint.c_str(),
                 hint.c_str());
}

}  // namespace

std::string whySilent(const std::string& endpoint, const std::string& running, const std::string& remedy) {
    const std::optional<std::string> file = ipcFile(endpoint);
    if (!file) {
        return "";
    }
    if (access(file->c_str(), W_OK) == 0) {
        return hasLiveListener(endpoint) ? "" : ": a daemon that has ended left the file behind";
    }
    return errno == EACCES ? ": permission denied; " + remedy : ": nothing listens there; " + running;
}

int askDaemon(const daemon_s& daemon, const std::string& text, std::string* reply) {
    const std::string endpoint = endpointOf(daemon.endpoint);
    switch (exchangeText(endpoint, text, daemon.timeoutSeconds, reply)) {
        case exchange_e::badEndpoint:
            return exitTrouble;
        case exchange_e::silence:
            explainSilence(daemon, endpoint);
            return exitNoAnswer;
        case exchange_e::answered:
            break;
    }
    return exitSuccess;
}

int awaitDaemon(const daemon_s& daemon, double seconds) {
    const std::string endpoint = endpointOf(daemon.endpoint);
    const deadline_t deadline = deadlineIn(seconds);
    for (long left = millisecondsLeft(deadline); left > 0; left = millisecondsLeft(deadline)) {
        std::string reply;
        const double patience = std::min(daemon.timeoutSeconds, static_cast<double>(left) / 1000);
        const exchange_e result =
            exchangeText(endpoint, std::string(vocabulary::test.word), patience, &reply);
        if (result != exchange_e::silence) {
            return result == exchange_e::answered ? exitSuccess : exitTrouble;
        }
    }
    explainSilence({daemon.endpoint, seconds}, endpoint);
    return exitNoAnswer;
}

bool isFailure(std::string_view reply) {
    return reply.starts_with("Failure");
}

// Behind the colon a text has a blank, and a list has a newline and one behind each line.
std::string bodyOf(std::string_view reply) {
    constexpr std::string_view lead = "Success:";
    if (!reply.starts_with(lead)) {
        return std::string(reply);
    }
    std::string_view body = reply.substr(lead.size());
    if (body.starts_with(' ') || body.starts_with('\n')) {
        body.remove_prefix(1);
    }
    while (body.ends_with('\n')) {
        body.remove_suffix(1);
    }
    return body.empty() ? "Success" : std::string(body);
}

int printText(std::string_view text) {
    if (const int error = writeLine(text, true); error != 0 && error != EPIPE) {
        std::fprintf(stderr, "twctl: standard output: %s\n", std::strerror(error));
        return exitTrouble;
    }
    return exitSuccess;
}

int runRequest(const daemon_s& daemon, const std::vector<std::string>& words) {
    std::string reply;
    if (const int status = askDaemon(daemon, joinWords(words), &reply); status != exitSuccess) {
        return status;
    }
    if (const int status = printText(reply); status != exitSuccess) {
        return status;
    }
    return isFailure(reply) ? exitFailure : exitSuccess;
}

int printReply(std::string_view reply) {
    if (isFailure(reply)) {
        std::fprintf(stderr, "%.*s\n", static_cast<int>(reply.size()), reply.data());
        return exitFailure;
    }
    return printText(bodyOf(reply));
}

int printObject(std::string_view reply) {
    const auto object = nlohmann::ordered_json::parse(bodyOf(reply), nullptr, false);
    return isFailure(reply) || object.is_discarded() ? printReply(reply) : printText(object.dump(4));
}
