// SPDX-License-Identifier: MIT
// The main thread's one wait: for requests, news of the radio side, the database timer, the
// console, signals and the time of the next heartbeat.
#include <poll.h>
#include <signal.h>
#include <sys/timerfd.h>
#include <unistd.h>
#include <zmq.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <iostream>
#include <utility>

#include "command_words.hpp"
#include "logger.hpp"
#include "requests.hpp"
#include "requests/news.hpp"
#include "requests/report.hpp"
#include "zmq_intfc.hpp"

namespace requests {

// Written by processRequests, read by the wait loop and the reset of the tag
// database. Main thread.
int database_timer = 0;

namespace {

// 1 once the process has been asked to end. Written by s_signal_handler, which
// may run on any thread, read at the top of the wait loop.
std::atomic<int> s_interrupted{0};
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler writes it");

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using std::chrono::system_clock;

// When the next heartbeat is due; at the first idle wait after start. Main thread.
system_clock::time_point heartbeat_timeout{};

// The beginning of the console's next line. Written and read by takeConsoleLine. Main thread.
std::string unfinishedLine;

constexpr std::int32_t consoleSource = 0;
constexpr std::int32_t responderSource = 1;

// Pause after a failed wait, so that a lasting failure does not take the processor.
constexpr useconds_t pollFailurePause = 1'000'000;  // microseconds

// A signal that comes after its mark was read and before the wait begins does not interrupt the
// wait. The mark is then seen after this time at the latest.
constexpr milliseconds longestWait{1'000};

// The places of the poll set, in the order in which they are served.
enum poll_item_e : std::size_t { responderItem, newsItem, timerItem, consoleItem, pollItemCount };

void installSignalHandler() {
    struct sigaction action = {};
    action.sa_handler = s_signal_handler;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

// Takes one request from the reply socket, if there is one. The socket is also ready for a
// message without a proper envelope, which the library discards; a receive that waits would
// then stop the loop. Any other failure leaves *request as it was, to be dispatched as it is.
bool takeRequest(std::string* request) {
    zmq_msg_t message;
    zmq_msg_init(&message);
    const int size = zmq_msg_recv(&message, sockets::responder, ZMQ_DONTWAIT);
    const bool taken = size >= 0 || errno != EAGAIN;
    if (size >= 0) {
        request->assign(static_cast<const char*>(zmq_msg_data(&message)), zmq_msg_size(&message));
    }
    zmq_msg_close(&message);
    return taken;
}

// A request is one frame. Further frames are received and dropped: before that the socket takes
// no reply, and so no request of another client.
void discardFurtherFrames() {
    std::string discarded;
    while (hasMoreFrames(sockets::responder) && zmq_recv_string(sockets::responder, &discarded) == 0) {
    }
}

// Takes one line without its newline from the console, which must be ready. False while the
// line is unfinished; what has come is kept, so that signals and other requests do not wait for
// the rest. Reads byte by byte: a second line in a buffer of this process would not wake the
// next wait. At the end of the input the last line counts as finished; after it each call takes
// an empty line.
bool takeConsoleLine(std::string* line) {
    pollfd console{STDIN_FILENO, POLLIN, 0};
    char next = 0;
    do {
        if (const ssize_t count = read(STDIN_FILENO, &next, 1); count < 0 && errno == EINTR) {
            return false;
        } else if (count != 1 || next == '\n') {
            *line = std::exchange(unfinishedLine, {});
            return true;
        }
        unfinishedLine.push_back(next);
    } while (s_interrupted.load(std::memory_order_relaxed) == 0 && poll(&console, 1, 0) == 1);
    return false;
}

// When an idle wait that begins now ends with a heartbeat. The time of day is read only here: a
// clock that is set during the wait does not change its length.
steady_clock::time_point endOfIdleWait() {
    const auto left = std::chrono::duration_cast<milliseconds>(heartbeat_timeout - system_clock::now());
    return steady_clock::now() + std::max(left, milliseconds(0));
}

// Publishes a heartbeat, which ZeroMQ drops without a listener, and sets the time of the next.
void sendHeartbeat() {
    std::string heartbeat;
    getHeartbeat(&heartbeat);
    sendEvent(heartbeat);
    heartbeat_timeout = system_clock::now() + heartbeat_period;
}

}  // namespace

void s_signal_handler(int /*signal*/) {
    s_interrupted.store(1, std::memory_order_relaxed);
}

int GetNextRequest(MSG_BUF* msg, std::string* request, bool cli) {
    std::array<zmq_pollitem_t, pollItemCount> items{};
    items[responderItem] = {sockets::responder, 0, ZMQ_POLLIN, 0};
    items[newsItem] = {sockets::main_from_radio_async, 0, ZMQ_POLLIN, 0};
    items[timerItem] = {nullptr, database_timer, ZMQ_POLLIN, 0};
    items[consoleItem] = {nullptr, STDIN_FILENO, ZMQ_POLLIN, 0};
    const int polled = cli ? pollItemCount : consoleItem;

    steady_clock::time_point idleEnd = endOfIdleWait();
    for (bool received = false; !received;) {
        if (s_interrupted.load(std::memory_order_relaxed) != 0) {
            *request = vocabulary::exit.word;
            msg->source = consoleSource;
            return 0;
        }
        const auto left = std::chrono::ceil<milliseconds>(idleEnd - steady_clock::now());
        const milliseconds wait = std::clamp(left, milliseconds(0), longestWait);
        const int ready = zmq_poll(items.data(), polled, static_cast<long>(wait.count()));
        if (ready == 0 && steady_clock::now() < idleEnd) {
            continue;  // one slice of the wait
        }
        if (ready < 0) {
            logCountedError("requests", " zmq polling error failed: ", std::strerror(errno));
            usleep(pollFailurePause);
        } else if (ready == 0) {
            sendHeartbeat();  // only when nothing is waiting: news and requests come first
        }
        idleEnd = endOfIdleWait();
        if (ready <= 0) {
            continue;
        }
        if ((items[responderItem].revents & ZMQ_POLLIN) != 0 && takeRequest(request)) {
            discardFurtherFrames();
            msg->source = responderSource;
            received = true;
        }
        if (items[newsItem].revents & ZMQ_POLLIN) {
            handleRadioNews();
        }
        if (items[timerItem].revents & ZMQ_POLLIN) {
            handleDatabaseTimer();
        }
        // A console that was closed may show as an error instead of as input.
        if (cli && items[consoleItem].revents != 0 && takeConsoleLine(request)) {
            msg->source = consoleSource;
            received = true;
        }
    }
    return 0;
}

int SendReply(MSG_BUF msg, std::string* reply) {
    if (msg.source == responderSource) {
        zmq_send(sockets::responder, reply->c_str(), reply->size() + 1, 0);
    } else if (msg.source == consoleSource) {
        std::cout << *reply << std::endl;
    }
    return 0;
}

int processRequests(bool cli) {
    installSignalHandler();
    database_timer = timerfd_create(CLOCK_REALTIME, TFD_NONBLOCK);
    if (database_timer < 0) {
        logCountedError("requests", " failed to create database reset timer: ", std::strerror(errno));
        return 0;
    }

    MSG_BUF msg{responderSource};
    for (int rc = 0; rc != -1;) {
        // New for each request: a string keeps the memory of its longest text.
        std::string request;
        std::string reply;
        GetNextRequest(&msg, &request, cli);
        logInfo("requests", " Request: ", escaped_s{request});
        rc = ProcessRequest(&request, &reply);
        logInfo("requests", " Response: ", escaped_s{reply});
        SendReply(msg, &reply);
    }
    close(database_timer);
    database_timer = -1;
    return 0;
}

}  // namespace requests
