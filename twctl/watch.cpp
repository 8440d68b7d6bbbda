// SPDX-License-Identifier: MIT
#include "watch.hpp"

#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>
#include <zmq.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "decoding.hpp"
#include "exit_status.hpp"
#include "sockets.hpp"

const std::array<channel_s, 3> channels{{
    {"tags", "ipc:///tmp/data", decodeTagFrame},
    {"events", "ipc:///tmp/events", decodeTextFrame},
    {"gpio", "ipc:///tmp/gpio_led_controller", decodeTextFrame},
}};

namespace {

// Frames taken before the signals and the clock are looked at again.
constexpr int framesInOneGo = 256;

enum progress_e { goOn, enough, silentlyDone, trouble };

struct descriptor_s {
    int fd = -1;
    ~descriptor_s() {
        if (fd >= 0) {
            close(fd);
        }
    }
};

// SIGINT and SIGTERM become readable on a descriptor and reach the poll without
// a race. Blocked before ZeroMQ starts its threads, which inherit the mask.
int openSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    return signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
}

bool attach(const watch_s& watch, void* socket) {
    if (watch.bind && hasLiveListener(watch.endpoint)) {
        std::fprintf(stderr, "twctl: %s: another process listens there, and would lose its frames\n",
                     watch.endpoint.c_str());
        return false;
    }
    std::string prefix;
    if (watch.subscriber) {
        prefix = {static_cast<char>(*watch.subscriber & 0xff), static_cast<char>(*watch.subscriber >> 8)};
    }
    zmq_setsockopt(socket, ZMQ_SUBSCRIBE, prefix.data(), prefix.size());
    const int rc =
        watch.bind ? zmq_bind(socket, watch.endpoint.c_str()) : zmq_connect(socket, watch.endpoint.c_str());
    if (rc != 0) {
        std::fprintf(stderr, "twctl: %s: %s\n", watch.endpoint.c_str(), zmq_strerror(errno));
    }
    return rc == 0;
}

progress_e afterWriting(int error) {
    if (error == 0) {
        return goOn;
    }
    if (error == EPIPE) {
        return silentlyDone;
    }
    std::fprintf(stderr, "twctl: standard output: %s\n", std::strerror(error));
    return trouble;
}

// Shows what has arrived. A batch of reports is one message of several frames
// and may end with an empty one, which is no report.
progress_e showFrames(const watch_s& watch, void* socket, std::uint64_t* shown) {
    progress_e progress = goOn;
    zmq_msg_t message;
    zmq_msg_init(&message);
    for (int i = 0; progress == goOn && i < framesInOneGo; ++i) {
        if (zmq_msg_recv(&message, socket, ZMQ_DONTWAIT) < 0) {
            break;
        }
        const std::string_view frame(static_cast<const char*>(zmq_msg_data(&message)),
                                     zmq_msg_size(&message));
        if (frame.empty()) {
            continue;
        }
        progress = afterWriting(writeLine(watch.channel->decode(frame), false));
        if (progress == goOn && ++*shown == watch.count) {
            progress = enough;
        }
    }
    zmq_msg_close(&message);
    const progress_e flushed = afterWriting(std::fflush(stdout) == 0 ? 0 : errno);
    return flushed == goOn ? progress : flushed;
}

int watchUntilDone(const watch_s& watch, void* socket, int signals) {
    const deadline_t deadline = watch.seconds > 0 ? deadlineIn(watch.seconds) : deadline_t{};
    std::uint64_t shown = 0;
    for (;;) {
        zmq_pollitem_t items[] = {
            {socket, 0, ZMQ_POLLIN, 0},
            {nullptr, signals, ZMQ_POLLIN, 0},
            {nullptr, STDOUT_FILENO, ZMQ_POLLERR, 0},  // its reader has gone
        };
        zmq_poll(items, 3, millisecondsLeft(deadline));
        const progress_e progress = items[0].revents != 0 ? showFrames(watch, socket, &shown) : goOn;
        if (progress == trouble) {
            return exitTrouble;
        }
        if (progress != goOn || items[1].revents != 0 || items[2].revents != 0) {
            return exitSuccess;
        }
        if (millisecondsLeft(deadline) == 0) {
            return watch.count > 0 ? exitNoAnswer : exitSuccess;
        }
    }
}

}  // namespace

int runWatch(const watch_s& watch) {
    const descriptor_s signals{openSignals()};
    const connection_s connection = openConnection(ZMQ_SUB);
    if (!attach(watch, connection.socket.get())) {
        return exitTrouble;
    }
    const bound_file_c file(watch.bind ? watch.endpoint : "");
    return watchUntilDone(watch, connection.socket.get(), signals.fd);
}
