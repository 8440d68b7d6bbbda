// SPDX-License-Identifier: MIT
// The inputs of the stand-in management server: a request, its profile, and clients that
// connect, send in pieces, wait and go.
#include "targets.hpp"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <deque>
#include <iterator>
#include <map>
#include <string>

#include "rm_server/exchange.hpp"
#include "rm_server/reply.hpp"
#include "rm_server/server.hpp"

namespace {

// A request: the answer to any request is one that the client can read.
void request(std::string_view input) {
    profile_s profile;
    findBuiltInProfile("PN5100", &profile);
    fault_plan_s plan;
    const bool complete = isComplete(input);
    const answer_s answer = answerRequest(input, profile, &plan);
    require(!complete || !answer.bytes.empty(), "a whole request is answered");
    require(answer.bytes.size() <= maxReplyLength, "an answer fits a client's read");
    const std::size_t end = answer.bytes.find("reply>");
    require(answer.bytes.empty() || (end != std::string::npos && end + 6 == answer.bytes.size()),
            "an answer ends with its first \"reply>\"");
}

// A profile that was read is rendered, and the same is read from that.
void profile(std::string_view input) {
    profile_s first;
    std::string error;
    if (!parseProfile(input, &first, &error)) {
        require(!error.empty() && error.find('\n') == std::string::npos, "a refusal is one line");
        return;
    }
    const std::string text = renderProfile(first);
    profile_s second;
    require(parseProfile(text, &second, &error) && renderProfile(second) == text, "a profile is read back");
}

// ---- clients; the functions at the end of this file are their side of the system calls

struct client_s {
    std::deque<std::string_view> sent;  // pieces that the server has not read
    bool hasEnded = false;              // behind them comes the end of file
    bool isBroken = false;              // or an error
    int answers = 0;
    int shutdowns = 0;
};

// The script of the clients, and the clients that it has made so far.
std::string_view script;
std::map<int, client_s> clients;  // by descriptor, while the server has it open
int waiting = 0;                  // for the server to accept them
int nextDescriptor = 0;
std::chrono::nanoseconds now{0};
constexpr int listenerDescriptor = 1'000'000;
constexpr int signalDescriptor = 1'000'001;
constexpr int firstClient = 1'000'010;

client_s* clientAt(std::size_t number) {
    if (clients.empty()) {
        return nullptr;
    }
    return &std::next(clients.begin(), static_cast<std::ptrdiff_t>(number % clients.size()))->second;
}

// One step of the script: a byte for the kind, one for the client or the amount, and a piece of a
// request up to the next NUL.
//
//   0: a client comes   1: time passes   2: a client ends   3: a client breaks off   else: it sends
void takeStep() {
    const auto what = static_cast<std::uint8_t>(script[0]);
    const auto who = static_cast<std::uint8_t>(script.size() < 2 ? 0 : script[1]);
    script.remove_prefix(std::min<std::size_t>(2, script.size()));
    const auto piece = what % 8 > 3 ? takeUntil('\0', &script) : std::string_view();
    client_s* const client = clientAt(who);
    if (what % 8 == 0) {
        waiting += 1 + who / 8;
    } else if (what % 8 == 1) {
        now += std::chrono::milliseconds(20 * who);
    } else if (client != nullptr && what % 8 == 2) {
        client->hasEnded = true;
    } else if (client != nullptr && what % 8 == 3) {
        client->isBroken = true;
    } else if (client != nullptr && !piece.empty() && !client->hasEnded) {
        client->sent.push_back(piece);
    }
}

bool isReadable(int descriptor) {
    if (descriptor == listenerDescriptor) {
        return waiting > 0;
    }
    const auto client = clients.find(descriptor);
    return client != clients.end() &&
           (!client->second.sent.empty() || client->second.hasEnded || client->second.isBroken);
}

// The fault, then the script.
void connections(std::string_view input) {
    server_s server{
        .port = 0, .timeout = std::chrono::seconds(2), .verbose = false, .profile = {}, .plan = {}};
    findBuiltInProfile("PN5100", &server.profile);
    const auto fault = static_cast<std::uint8_t>(input.empty() ? 0 : input.front());
    server.plan.kind = static_cast<fault_e>(fault % 12);
    server.plan.after = fault / 16;
    script = input.substr(input.empty() ? 0 : 1);
    clients.clear();
    waiting = 0;
    nextDescriptor = firstClient;
    now = {};
    require(runServer(&server) == 0, "the server ends well, whatever its clients do");
    require(clients.empty(), "the server closes each connection");
}

constexpr target_s table[] = {
    {"rm_request", request, 4096}, {"rm_profile", profile, 1024}, {"connections", connections, 1024}};

}  // namespace

const std::span<const target_s> targets = table;

// The linker puts these in place of the system's. The clock is that of the script.
std::chrono::steady_clock::time_point wrappedNow() noexcept
    __asm__("__wrap__ZNSt6chrono3_V212steady_clock3nowEv");
std::chrono::steady_clock::time_point wrappedNow() noexcept {
    return std::chrono::steady_clock::time_point(now);
}
extern "C" {
int __real_close(int);

int __wrap_socket(int, int, int) {
    return listenerDescriptor;
}
int __wrap_setsockopt(int, int, int, const void*, socklen_t) {
    return 0;
}
int __wrap_bind(int, const sockaddr*, socklen_t) {
    return 0;
}
int __wrap_listen(int, int) {
    return 0;
}
int __wrap_getsockname(int, sockaddr*, socklen_t*) {
    return 0;
}
int __wrap_signalfd(int, const sigset_t*, int) {
    return signalDescriptor;
}
int __wrap_sigprocmask(int, const sigset_t*, sigset_t*) {
    return 0;
}
int __wrap_close(int fd) {
    if (fd < listenerDescriptor) {
        return __real_close(fd);
    }
    clients.erase(fd);
    return 0;
}
int __wrap_accept4(int, sockaddr*, socklen_t*, int) {
    if (waiting == 0) {
        errno = EAGAIN;
        return -1;
    }
    --waiting;
    clients[nextDescriptor] = {};
    require(clients.size() <= 64, "the number of connections is bounded");
    return nextDescriptor++;
}
ssize_t __wrap_recv(int fd, void* buffer, std::size_t size, int) {
    client_s& client = clients.at(fd);
    if (client.sent.empty()) {
        errno = client.isBroken ? ECONNRESET : EAGAIN;
        return client.hasEnded && !client.isBroken ? 0 : -1;
    }
    std::string_view& piece = client.sent.front();
    const std::size_t taken = piece.copy(static_cast<char*>(buffer), size);
    piece.remove_prefix(taken);
    if (piece.empty()) {
        client.sent.pop_front();
    }
    return static_cast<ssize_t>(taken);
}
ssize_t __wrap_send(int fd, const void*, std::size_t size, int) {
    client_s& client = clients.at(fd);
    require(++client.answers == 1, "a client gets one answer");
    require(size > 0 && size <= 2 * maxReplyLength, "an answer is short");
    return client.isBroken ? -1 : static_cast<ssize_t>(size);
}
int __wrap_shutdown(int fd, int) {
    require(++clients.at(fd).shutdowns == 1, "a client is told once that nothing follows");
    return 0;
}
// Runs the script until a client has sent something or time has passed; at its end comes a signal.
int __wrap_poll(pollfd* items, nfds_t count, int) {
    const std::span polled(items, count);
    for (;;) {
        int ready = 0;
        for (pollfd& item : polled) {
            item.revents = isReadable(item.fd) ? POLLIN : 0;
            ready += item.revents != 0 ? 1 : 0;
        }
        if (ready != 0) {
            return ready;
        }
        if (script.empty()) {
            std::ranges::find(polled, signalDescriptor, &pollfd::fd)->revents = POLLIN;
            return 1;
        }
        const auto before = now;
        takeStep();
        if (now != before) {
            return 0;
        }
    }
}
}
