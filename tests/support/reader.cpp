// SPDX-License-Identifier: MIT
#include "support/reader.hpp"

#include <zmq.h>

#include <atomic>

namespace {

// Of all sockets of the test; it lives as long as the process.
void* context() {
    static void* theContext = zmq_ctx_new();
    return theContext;
}

void check(int rc, const std::string& what) {
    if (rc == -1) {
        throw std::runtime_error(what + ": " + zmq_strerror(zmq_errno()));
    }
}

}  // namespace

socket_s::socket_s(int type) : handle(zmq_socket(context(), type)) {
    const int linger = 0;
    check(handle == nullptr ? -1 : 0, "no socket");
    zmq_setsockopt(handle, ZMQ_LINGER, &linger, sizeof linger);
}

socket_s::~socket_s() {
    zmq_close(handle);
}

void socket_s::send(const frames_t& frames) const {
    for (std::size_t i = 0; i < frames.size(); ++i) {
        const int flags = i + 1 < frames.size() ? ZMQ_SNDMORE : 0;
        check(zmq_send(handle, frames[i].data(), frames[i].size(), flags), "no request");
    }
}

std::optional<frames_t> socket_s::receive(std::chrono::milliseconds patience) const {
    zmq_pollitem_t item{handle, 0, ZMQ_POLLIN, 0};
    if (zmq_poll(&item, 1, patience.count()) <= 0) {
        return std::nullopt;
    }
    frames_t frames;
    for (int more = 1; more != 0;) {
        zmq_msg_t message;
        zmq_msg_init(&message);
        check(zmq_msg_recv(&message, handle, 0), "no message");
        frames.emplace_back(static_cast<const char*>(zmq_msg_data(&message)), zmq_msg_size(&message));
        more = zmq_msg_more(&message);
        zmq_msg_close(&message);
    }
    return frames;
}

std::string askFrames(const frames_t& request, std::chrono::milliseconds patience) {
    const socket_s client(ZMQ_REQ);
    check(zmq_connect(client.handle, replyEndpoint), replyEndpoint);
    client.send(request);
    std::optional<frames_t> reply = client.receive(patience);
    if (!reply || reply->size() != 1 || !reply->front().ends_with('\0')) {
        throw std::runtime_error("no proper reply to: " + request.front().substr(0, 100));
    }
    reply->front().pop_back();
    return reply->front();
}

std::string ask(std::string_view request, std::chrono::milliseconds patience) {
    return askFrames({std::string(request)}, patience);
}

consumer_s::consumer_s(const char* endpoint) : socket_s(ZMQ_SUB) {
    // The library lets go of a name some time after its socket was closed, so each
    // consumer has one of its own.
    static std::atomic<int> consumers{0};
    const std::string events = "inproc://monitor-" + std::to_string(++consumers);
    zmq_setsockopt(handle, ZMQ_SUBSCRIBE, "", 0);
    check(zmq_socket_monitor(handle, events.c_str(), ZMQ_EVENT_HANDSHAKE_SUCCEEDED), endpoint);
    monitor = std::make_unique<socket_s>(ZMQ_PAIR);
    check(zmq_connect(monitor->handle, events.c_str()), endpoint);
    check(zmq_bind(handle, endpoint), endpoint);
}

consumer_s::~consumer_s() {
    zmq_socket_monitor(handle, nullptr, 0);
}

void consumer_s::waitForPublisher() const {
    if (!monitor->receive()) {
        throw std::runtime_error("no publisher came");
    }
    // The subscription leaves while this socket is being waited on, not before.
    zmq_pollitem_t item{handle, 0, ZMQ_POLLIN, 0};
    zmq_poll(&item, 1, 100);
}

outside_subscriber_s::outside_subscriber_s(std::string_view prefix) : socket_s(ZMQ_SUB) {
    const int noLimit = 0;  // thousands of reports may come at once
    zmq_setsockopt(handle, ZMQ_RCVHWM, &noLimit, sizeof noLimit);
    zmq_setsockopt(handle, ZMQ_SUBSCRIBE, prefix.data(), prefix.size());
    check(zmq_connect(handle, tcpDataEndpoint), tcpDataEndpoint);
}

reader_s::reader_s(const reader_options_s& options) {
    // Whatever answers must be the daemon that is started here.
    std::filesystem::remove(replyFile);
    if (options.prepare) {
        options.prepare(directory.path);
    }
    if (options.server) {
        const process_options_s serverOptions{options.serverArguments, {}, directory.path};
        server = std::make_unique<process_s>(TARNWICK_BIN_DIR "/rm_server", serverOptions);
        if (!server->waitForOutput("listening on")) {
            throw std::runtime_error("rm_server does not listen: " + server->output());
        }
    }
    process_options_s daemonOptions{options.arguments, {}, directory.path};
    if (!options.scenario.empty()) {
        writeTextFile(directory.path / "scenario.json", options.scenario);
        daemonOptions.environment.emplace_back("RXE_SCENARIO", directory.path / "scenario.json");
    }
    daemon = std::make_unique<process_s>(TARNWICK_BIN_DIR "/tarnwick", daemonOptions);
    if (options.awaitReady) {
        try {
            ask("logging");
        } catch (const std::exception&) {
            throw std::runtime_error(
                "tarnwick does not answer (scripts/setup makes its user): " + daemon->output() + log());
        }
    }
}

int reader_s::exit() {
    ask("exit");
    return daemon->waitForExit().value_or(-1);
}

std::string reader_s::log() const {
    return readTextFile(directory.path / "tarnwick.log");
}
