// SPDX-License-Identifier: MIT
#include "server.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <optional>
#include <utility>
#include <vector>

#include "exchange.hpp"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// Enough for every client of one reader; more wait in the kernel's queue.
constexpr std::size_t maxConnections = 64;

// How long an answered client may take to close its end.
constexpr milliseconds lingerTime{1000};

// How long a connection without an answer (fault silent) stays open; the daemon gives up sooner.
constexpr milliseconds silentTime{60000};

// Owns a file descriptor.
class fd_s {
  public:
    explicit fd_s(int fd = -1) : fd_(fd) {}
    fd_s(fd_s&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    fd_s& operator=(fd_s&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    fd_s(const fd_s&) = delete;
    fd_s& operator=(const fd_s&) = delete;
    ~fd_s() {
        if (fd_ >= 0) {
            close(fd_);
        }
    }
    int get() const { return fd_; }

  private:
    int fd_;
};

enum class phase_e {
    reading,   // the request is arriving
    draining,  // answered, or left without an answer: only waits for the client to close
    done,
};

struct connection_s {
    fd_s fd;
    phase_e phase;
    // The end of the phase, at which the connection is closed.
    steady_clock::time_point deadline;
    // Empty from the answer on.
    std::string received;
};

// Reports errno on standard error; nothing for the caller to return.
std::optional<fd_s> failed(const char* what) {
    std::fprintf(stderr, "rm_server: %s: %s\n", what, std::strerror(errno));
    return std::nullopt;
}

// The listening socket; `*port` gets the port that the kernel has chosen for 0.
std::optional<fd_s> openListener(std::uint16_t* port) {
    fd_s fd(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const int on = 1;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(*port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (fd.get() < 0 || setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) != 0) {
        return failed("cannot create the socket");
    }
    if (bind(fd.get(), generic, length) != 0 || listen(fd.get(), SOMAXCONN) != 0) {
        return failed(("cannot listen on 127.0.0.1:" + std::to_string(*port)).c_str());
    }
    if (getsockname(fd.get(), generic, &length) != 0) {
        return failed("cannot tell the port");
    }
    *port = ntohs(address.sin_port);
    return fd;
}

// SIGTERM and SIGINT as a descriptor, so that poll waits for them as well.
std::optional<fd_s> openSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    if (sigprocmask(SIG_BLOCK, &signals, nullptr) != 0) {
        return failed("cannot block signals");
    }
    fd_s fd(signalfd(-1, &signals, SFD_CLOEXEC));
    return fd.get() < 0 ? failed("cannot watch signals") : std::optional(std::move(fd));
}

// Accepts all clients that wait, as long as there is room for them.
void acceptClients(const server_s& server, int listener, std::vector<connection_s>* connections) {
    while (connections->size() < maxConnections) {
        fd_s fd(accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (fd.get() < 0) {
            return;
        }
        connections->push_back({std::move(fd), phase_e::reading, steady_clock::now() + server.timeout, {}});
    }
}

// Answers the request, or leaves it without an answer, and waits for the client to close.
void answer(server_s* server, connection_s* connection) {
    const auto answer = answerRequest(connection->received, server->profile, &server->plan);
    if (server->verbose) {
        std::printf("rm_server: %s\n", answer.legend.c_str());
        std::fflush(stdout);
    }
    connection->received.clear();
    connection->phase = phase_e::draining;
    connection->deadline = steady_clock::now() + (answer.close ? lingerTime : silentTime);
    if (!answer.bytes.empty()) {
        // One call, because the client makes a single read. An answer is far smaller than an empty
        // socket's buffer, so it is sent whole.
        const auto sent = send(connection->fd.get(), answer.bytes.data(), answer.bytes.size(), MSG_NOSIGNAL);
        if (sent != static_cast<ssize_t>(answer.bytes.size())) {
            connection->phase = phase_e::done;
        }
    }
    if (answer.close) {
        // Not closed yet: a close with unread bytes would reset the connection, and the client could
        // lose the answer.
        shutdown(connection->fd.get(), SHUT_WR);
    }
}

// Takes the bytes that have arrived. When the client has closed its end, a request that is not
// whole gets its error; without a byte there is no answer.
void readClient(server_s* server, connection_s* connection) {
    std::array<char, 4096> bytes;
    const auto count = recv(connection->fd.get(), bytes.data(), bytes.size(), 0);
    if (count < 0) {
        if (errno != EAGAIN && errno != EINTR) {
            connection->phase = phase_e::done;
        }
        return;
    }
    if (connection->phase == phase_e::draining) {
        if (count == 0) {
            connection->phase = phase_e::done;
        }
        return;
    }
    connection->received.append(bytes.data(), static_cast<std::size_t>(count));
    if (count == 0 && connection->received.empty()) {
        connection->phase = phase_e::done;
    } else if (count == 0 || isComplete(connection->received)) {
        answer(server, connection);
    }
}

// Milliseconds until the first deadline; -1, without end, when there are no clients.
int pollTimeout(const std::vector<connection_s>& connections) {
    if (connections.empty()) {
        return -1;
    }
    const auto first = std::ranges::min_element(connections, {}, &connection_s::deadline)->deadline;
    const auto left = std::chrono::ceil<milliseconds>(first - steady_clock::now()).count();
    return static_cast<int>(std::clamp<std::int64_t>(left, 0, silentTime.count()));
}

// Reads what has arrived, and closes connections that are done or over their time.
void serveClients(server_s* server, const std::vector<pollfd>& polled,
                  std::vector<connection_s>* connections) {
    const auto now = steady_clock::now();
    for (std::size_t i = 0; i < connections->size(); ++i) {
        auto& connection = (*connections)[i];
        if (polled[i].revents != 0) {
            readClient(server, &connection);
        }
        // Also for a client that never stops sending.
        if (now >= connection.deadline) {
            connection.phase = phase_e::done;
        }
    }
    std::erase_if(*connections, [](const auto& connection) { return connection.phase == phase_e::done; });
}

// Clients come first in the poll set, in the order of `connections`, so that both have the same
// indices; the descriptor of the signals and the listener follow.
int serve(server_s* server, int listener, int signals) {
    std::vector<connection_s> connections;
    std::vector<pollfd> polled;
    for (;;) {
        polled.clear();
        for (const auto& connection : connections) {
            polled.push_back({connection.fd.get(), POLLIN, 0});
        }
        polled.push_back({signals, POLLIN, 0});
        if (connections.size() < maxConnections) {
            polled.push_back({listener, POLLIN, 0});
        }
        if (poll(polled.data(), polled.size(), pollTimeout(connections)) < 0) {
            if (errno == EINTR) {
                continue;
            }
            failed("poll");
            return 1;
        }
        // The listener is polled only while there is room for a client.
        const auto clients = connections.size();
        if (polled[clients].revents != 0) {
            return 0;
        }
        serveClients(server, polled, &connections);
        if (polled.size() > clients + 1 && polled[clients + 1].revents != 0) {
            acceptClients(*server, listener, &connections);
        }
    }
}

}  // namespace

int runServer(server_s* server) {
    // Signals first: one that comes right after the ready line must end the process with status 0.
    const auto signals = openSignals();
    const auto listener = openListener(&server->port);
    if (!signals.has_value() || !listener.has_value()) {
        return 1;
    }
    std::printf("rm_server: listening on 127.0.0.1:%d (%s)\n", server->port, server->profile.model.c_str());
    std::fflush(stdout);
    return serve(server, listener->get(), signals->get());
}
