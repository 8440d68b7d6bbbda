// SPDX-License-Identifier: MIT
#include "control.hpp"

#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <zmq.h>

#include <cerrno>
#include <cstring>
#include <string_view>
#include <system_error>

#include "scenario.hpp"

namespace rxe {
namespace {

constexpr std::string_view endpointScheme = "ipc://";
constexpr std::int64_t maxMessage = 65536;  // bytes; a longer one ends its connection

// Whether a process listens on the socket's file. zmq_bind would replace the file without asking,
// and cut another engine off. EAGAIN: a process listens, and its queue of callers is full.
bool isInUse(const std::string& file) {
    sockaddr_un address{};
    if (file.size() >= sizeof address.sun_path) {
        return false;
    }
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, file.data(), file.size());
    const int probe = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (probe < 0) {
        return false;
    }
    const bool alive =
        ::connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 || errno == EAGAIN;
    ::close(probe);
    return alive;
}

// Reads all frames of the next message; false when none waits. A message of several frames gives
// an empty text, which is refused.
bool receiveOne(void* socket, std::string* text) {
    int frames = 0;
    for (int more = 1; more != 0; ++frames) {
        zmq_msg_t message;
        zmq_msg_init(&message);
        if (zmq_msg_recv(&message, socket, ZMQ_DONTWAIT) < 0) {
            zmq_msg_close(&message);
            return false;
        }
        text->assign(static_cast<const char*>(zmq_msg_data(&message)), zmq_msg_size(&message));
        more = zmq_msg_more(&message);
        zmq_msg_close(&message);
    }
    if (frames != 1) {
        text->clear();
    }
    return true;
}

// Answers all requests that wait. A request is refused by one line and changes nothing.
void answer(control_s* control, const take_event_f& take) {
    std::string text;
    while (receiveOne(control->socket, &text)) {
        event_s event;
        const refusal_s refusal = readEvent(text, &event);
        const std::string reply = refusal ? lineOf(refusal) : take(std::move(event));
        zmq_send(control->socket, reply.data(), reply.size(), ZMQ_DONTWAIT);
    }
}

// The control thread: sleeps until a request or the end comes.
void serve(control_s* control, const take_event_f& take) {
    zmq_pollitem_t items[] = {{control->socket, 0, ZMQ_POLLIN, 0},
                              {nullptr, control->stopDescriptor, ZMQ_POLLIN, 0}};
    for (;;) {
        if (zmq_poll(items, 2, -1) < 0 && zmq_errno() != EINTR) {
            return;
        }
        if ((items[1].revents & ZMQ_POLLIN) != 0) {
            return;
        }
        answer(control, take);
    }
}

// Closes what was opened, in part or whole, and removes the socket's file if it is still ours.
void release(control_s* control) {
    if (control->socket != nullptr) {
        zmq_close(control->socket);
    }
    if (control->context != nullptr) {
        zmq_ctx_term(control->context);
    }
    if (control->stopDescriptor >= 0) {
        ::close(control->stopDescriptor);
    }
    struct stat status {};
    if (!control->file.empty() && ::stat(control->file.c_str(), &status) == 0 &&
        status.st_dev == control->device && status.st_ino == control->inode) {
        ::unlink(control->file.c_str());
    }
    *control = {};
}

// False with ZeroMQ's error number when one of the steps fails.
bool bindSocket(const std::string& endpoint, control_s* control) {
    const int linger = 0;
    control->stopDescriptor = ::eventfd(0, EFD_CLOEXEC);
    control->context = zmq_ctx_new();
    control->socket = control->context == nullptr ? nullptr : zmq_socket(control->context, ZMQ_REP);
    if (control->stopDescriptor < 0 || control->socket == nullptr) {
        return false;
    }
    zmq_setsockopt(control->socket, ZMQ_LINGER, &linger, sizeof linger);
    zmq_setsockopt(control->socket, ZMQ_MAXMSGSIZE, &maxMessage, sizeof maxMessage);
    return zmq_bind(control->socket, endpoint.c_str()) == 0;
}

// Notes which file the socket is, for release.
void keepFile(const std::string& file, control_s* control) {
    struct stat status {};
    if (::stat(file.c_str(), &status) == 0) {
        control->file = file;
        control->device = status.st_dev;
        control->inode = status.st_ino;
    }
}

}  // namespace

void openControl(const std::string& endpoint, take_event_f take, control_s* control, std::string* error) {
    if (endpoint == "none") {
        return;
    }
    const std::string file = endpoint.substr(endpointScheme.size());
    const std::string without = "; there is no control socket";
    if (isInUse(file)) {
        *error = endpoint + ": another process listens there" + without;
        return;
    }
    if (!bindSocket(endpoint, control)) {
        *error = endpoint + ": " + zmq_strerror(zmq_errno()) + without;
        release(control);
        return;
    }
    keepFile(file, control);
    try {
        control->thread = std::thread(serve, control, std::move(take));
    } catch (const std::system_error&) {
        *error = endpoint + ": no thread for it" + without;
        release(control);
    }
}

void closeControl(control_s* control) {
    if (!control->thread.joinable()) {
        return;
    }
    const std::uint64_t one = 1;
    if (::write(control->stopDescriptor, &one, sizeof one) == sizeof one) {
        control->thread.join();
        release(control);
    }
}

}  // namespace rxe
