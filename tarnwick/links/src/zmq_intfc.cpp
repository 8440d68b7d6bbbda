// SPDX-License-Identifier: MIT
#include "zmq_intfc.hpp"

#include "endpoints.hpp"
#include "listener_count.hpp"
#include "logger.hpp"
#include "peer_limit.hpp"
#include "request_stream.hpp"
#include "subscription_stream.hpp"
#include "util.hpp"
#include "util/descriptor.hpp"
#include "versions.hpp"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <zmq.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <memory>
#include <utility>

// A socket that cannot be made ends the process in every build.
#undef NDEBUG
#include <cassert>

// The handles. Made and closed by this unit; the table in the header names the
// thread that uses each. Null before they are made and after they are closed.
namespace sockets {

void* context = nullptr;

void* responder = nullptr;
void* events = nullptr;
void* main_from_radio_async = nullptr;
void* main_to_radio = nullptr;
void* main_from_radio = nullptr;

void* radio_from_main = nullptr;
void* radio_to_main = nullptr;

data_socket_s tag_data;
shared_socket_s gpio_led;
shared_socket_s radio_to_main_async;

std::uint64_t eventsSent = 0;
std::uint64_t eventsRefused = 0;

}  // namespace sockets

using namespace sockets;

namespace {

// The owner and the group of the reply socket's file.
constexpr const char* replyUser = "trfidadm";
constexpr const char* replyGroup = "appsadms";

// Messages that tag_data keeps for each slow subscriber; when they are full it drops new ones.
constexpr int tagDataHighWaterMark = 2048;

// The file that this process made for the reply socket. It is held open, so that its inode number
// cannot be reused. Main thread.
std::unique_ptr<descriptor> ownReplyFile;

// Who is connected to the present tag_data. Made anew with it; radio thread.
listener_count dataListeners;

// When tag_data last closed its port. Radio thread.
std::chrono::steady_clock::time_point portLeft;

// A row for each socket: how it is made and attached.
struct socket_s {
    const char* name;
    void** handle;
    shared_socket_s* shared;  // null for a socket that one thread uses
    int type;
    int (*attach)(void* socket, const char* endpoint);  // 0, or not 0 and errno
    const char* endpoint;
    const char* failureText;  // the error text of a failed bind or connect follows
};

// Logs a warning when another process listens on the reply socket's file. EAGAIN: it listens, and
// its queue of callers is full.
void tellPresentListener(const sockaddr_un& address) {
    const descriptor probe(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int rc = connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
    if (rc != 0 && errno != EAGAIN) {
        return;
    }
    ucred peer{};
    socklen_t size = sizeof peer;
    getsockopt(probe.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size);
    logCountedWarning("zmq_intfc", " ", replySocketFile,
                      " is taken over from a process that still listens (pid ", peer.pid,
                      "); new clients come to this one");
}

// Makes the reply socket's file, in place of an existing one, and its listening socket, which the
// library then owns. The library could make both, but at its end it would also remove the file when
// another process has replaced it.
int bindReplySocket(void* responderHandle, const char* endpoint) {
    constexpr int waitingCallers = 100;  // as the library has it
    zmq_setsockopt(responderHandle, ZMQ_MAXMSGSIZE, &maxRequestBytes, sizeof maxRequestBytes);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, replySocketFile);
    tellPresentListener(address);
    unlink(replySocketFile);
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (listener < 0) {
        return -1;
    }
    if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(listener, waitingCallers) != 0) {
        const int cause = errno;
        close(listener);
        errno = cause;
        return -1;
    }
    ownReplyFile = std::make_unique<descriptor>(open(replySocketFile, O_PATH | O_NOFOLLOW | O_CLOEXEC));
    zmq_setsockopt(responderHandle, ZMQ_USE_FD, &listener, sizeof listener);
    return zmq_bind(responderHandle, endpoint);
}

// Removes the reply socket's file, unless another daemon has replaced it.
void removeReplyFile() {
    struct stat own {};
    struct stat present {};
    if (ownReplyFile != nullptr && fstat(ownReplyFile->get(), &own) == 0 &&
        lstat(replySocketFile, &present) == 0 && own.st_dev == present.st_dev &&
        own.st_ino == present.st_ino) {
        unlink(replySocketFile);
    }
    ownReplyFile.reset();
}

// A subscriber whose machine has disappeared loses its place after two minutes: 60 s of silence and
// four questions without an answer. Without keep-alive it would keep its place.
constexpr std::array<std::pair<int, int>, 4> keepAlive{{
    {ZMQ_TCP_KEEPALIVE, 1},
    {ZMQ_TCP_KEEPALIVE_IDLE, 60},   // seconds
    {ZMQ_TCP_KEEPALIVE_INTVL, 15},  // seconds
    {ZMQ_TCP_KEEPALIVE_CNT, 4},
}};

// For a publisher that connects to one peer and whose sends do not wait: when the queue for the peer is
// full, the library refuses a message and does not drop it silently. The peer sees no difference.
int connectToOnePeer(void* socket, const char* endpoint) {
    const int on = 1;
    zmq_setsockopt(socket, ZMQ_XPUB_NODROP, &on, sizeof on);
    return zmq_connect(socket, endpoint);
}

// The library closes a port on a thread of its own, some time after zmq_close; until then the port
// is in use.
int bindDataPort(void* socket, const char* endpoint) {
    zmq_setsockopt(socket, ZMQ_MAXMSGSIZE, &maxSubscriberFrameBytes, sizeof maxSubscriberFrameBytes);
    for (const auto& [option, value] : keepAlive) {
        zmq_setsockopt(socket, option, &value, sizeof value);
    }
    constexpr std::chrono::seconds patience{1};
    constexpr useconds_t pause = 5'000;  // microseconds
    const auto deadline = portLeft + patience;
    int rc = zmq_bind(socket, endpoint);
    while (rc != 0 && errno == EADDRINUSE && std::chrono::steady_clock::now() < deadline) {
        usleep(pause);
        rc = zmq_bind(socket, endpoint);
    }
    return rc;
}

// clang-format off
constexpr socket_s responderSocket{
    "responder", &responder, nullptr, ZMQ_REP, bindReplySocket, "ipc:///tmp/tarnwick_rep",
    " responder bind failed: "};

// The other sockets of the main thread, in the order in which they are made and
// closed. The inproc endpoints are bound here, since a connect needs the endpoint.
constexpr std::array mainSockets{
    socket_s{"events", &events, nullptr, ZMQ_PUB, connectToOnePeer, "ipc:///tmp/events",
             " events connect failed: "},
    socket_s{"main_from_radio_async", &main_from_radio_async, nullptr, ZMQ_PAIR, zmq_bind,
             "inproc://radio_2_main_async", " main_from_radio_async bind failed: "},
    socket_s{"main_to_radio", &main_to_radio, nullptr, ZMQ_PAIR, zmq_bind,
             "inproc://main_2_radio", " main_to_radio bind failed: "},
    socket_s{"main_from_radio", &main_from_radio, nullptr, ZMQ_PAIR, zmq_bind,
             "inproc://radio_2_main", " main_from_radio bind failed: "},
};

// The sockets of the radio side without tag_data, in the order in which they are
// made and closed. Quirk: the texts of the inproc ones say "bind" although these sockets
// connect; users search the log for them.
constexpr std::array radioSockets{
    socket_s{"radio_to_main_async", &radio_to_main_async.handle, &radio_to_main_async, ZMQ_PAIR,
             zmq_connect, "inproc://radio_2_main_async", " radio_to_main_async bind failed: "},
    socket_s{"radio_from_main", &radio_from_main, nullptr, ZMQ_PAIR,
             zmq_connect, "inproc://main_2_radio", " radio_from_main bind failed: "},
    socket_s{"radio_to_main", &radio_to_main, nullptr, ZMQ_PAIR,
             zmq_connect, "inproc://radio_2_main", " radio_to_main bind failed: "},
    socket_s{"gpio_led", &gpio_led.handle, &gpio_led, ZMQ_PUB,
             connectToOnePeer, "ipc:///tmp/gpio_led_controller", " gpio_led connect failed: "},
};

// tag_data for the local data consumer, and for outside subscribers.
constexpr socket_s tagDataConnected{
    "tag_data", &tag_data.handle, &tag_data, ZMQ_PUB, connectToOnePeer, "ipc:///tmp/data",
    " tag_data connect failed: "};
constexpr socket_s tagDataBound{
    "tag_data", &tag_data.handle, &tag_data, ZMQ_PUB, bindDataPort, "tcp://*:5160",
    " tag_data bind failed: "};
// clang-format on

struct highWaterMark_s {
    int option;
    const char* name;
};
constexpr std::array highWaterMarks{
    highWaterMark_s{ZMQ_SNDHWM, "ZMQ_SNDHWM"},
    highWaterMark_s{ZMQ_RCVHWM, "ZMQ_RCVHWM"},
};

// Replaces the socket's handle and returns the old one.
void* exchangeHandle(const socket_s& row, void* handle) {
    const auto exchange = [&] { handle = std::exchange(*row.handle, handle); };
    if (row.shared == nullptr) {
        exchange();
    } else {
        row.shared->turn.doInTurn(exchange);
    }
    return handle;
}

// Makes a socket of the row's type. When the library cannot make one, this ends the process, with the
// handle's name as the failed assertion.
void* newSocket(const socket_s& row) {
    void* socket = zmq_socket(context, row.type);
    if (socket == nullptr) {
        __assert_fail(row.name, __FILE__, __LINE__, __extension__ __PRETTY_FUNCTION__);
    }
    // Messages that are still queued must not delay the end of the process.
    const int linger = 0;
    zmq_setsockopt(socket, ZMQ_LINGER, &linger, sizeof linger);
    return socket;
}

int attachSocket(const socket_s& row, void* socket) {
    if (row.attach(socket, row.endpoint) != 0) {
        logCountedError("zmq_intfc", row.failureText, std::strerror(errno));
        return -1;
    }
    return 0;
}

// A socket that could not be attached is stored as well: it stays open, is not read, and
// closeSocket closes it later.
int openSocket(const socket_s& row) {
    void* socket = newSocket(row);
    const int rc = attachSocket(row, socket);
    exchangeHandle(row, socket);
    return rc;
}

int closeSocket(const socket_s& row) {
    void* socket = exchangeHandle(row, nullptr);
    if (zmq_close(socket) != 0) {
        logCountedError("zmq_intfc", " ", row.name, " close failed: ", std::strerror(errno));
        exchangeHandle(row, socket);
        return -1;
    }
    return 0;
}

int setHighWaterMarks(void* socket) {
    for (const highWaterMark_s& mark : highWaterMarks) {
        if (zmq_setsockopt(socket, mark.option, &tagDataHighWaterMark, sizeof tagDataHighWaterMark) != 0) {
            logCountedError("zmq_intfc", " Failure: tag_data set socket option: ", mark.name, " to ",
                            tagDataHighWaterMark, " failed: ", std::strerror(errno));
            return -1;
        }
    }
    return 0;
}

// Sends one frame on a shared socket when it is this thread's turn.
int sendFrame(void* handle, const void* data, std::size_t size, int flags) {
    return handle == nullptr ? -1 : zmq_send(handle, data, size, flags | ZMQ_DONTWAIT);
}

send_result_e sendReport(bool outside, const void* data, std::size_t size, int flags) {
    if (tag_data.handle == nullptr || tag_data.outside != outside) {
        return send_result_e::noSocket;
    }
    return sendFrame(tag_data.handle, data, size, flags) >= 0 ? send_result_e::sent : send_result_e::refused;
}

void sendLeftReport(const left_send_s& left) {
    const send_result_e result = sendReport(left.outside, left.text.data(), left.text.size(), left.flags);
    if (result != send_result_e::sent && left.owner != nullptr) {
        left.owner->failed(left.origin, result);
    }
}

// Sends both frames in one turn, so that a frame of another thread cannot come between them. When the
// queue takes the first frame it has room for the second: it counts whole messages.
void sendBothFrames(std::string_view topic, const void* payload, std::size_t size) {
    void* handle = radio_to_main_async.handle;
    const bool sent = sendFrame(handle, topic.data(), topic.size(), ZMQ_SNDMORE) >= 0;
    countMessage(&radio_to_main_async, sent);
    if (sent) {
        sendFrame(handle, payload, size, 0);
    }
}

// Makes the socket on which the library tells who connects to tag_data and who leaves. Without it
// nobody is ever heard of: reports leave as before, and count as unheard.
void* monitorOf(void* socket) {
    static unsigned number = 0;  // the library frees an endpoint some time after its socket was closed
    const std::string endpoint = "inproc://tag_data_monitor_" + std::to_string(++number);
    constexpr int events =
        ZMQ_EVENT_ACCEPTED | ZMQ_EVENT_CONNECTED | ZMQ_EVENT_HANDSHAKE_SUCCEEDED | ZMQ_EVENT_DISCONNECTED;
    if (zmq_socket_monitor(socket, endpoint.c_str(), events) != 0) {
        return nullptr;
    }
    void* monitor = zmq_socket(context, ZMQ_PAIR);
    // The library's own thread waits while the queue of events is full, so it has no limit.
    const int noLimit = 0;
    zmq_setsockopt(monitor, ZMQ_RCVHWM, &noLimit, sizeof noLimit);
    zmq_connect(monitor, endpoint.c_str());
    return monitor;
}

// Takes the library's next event on tag_data. False when none waits.
//
//   frame 1   | event: 16 bits | descriptor: 32 bits |      frame 2   | endpoint |
bool takeEvent(listener_count* listeners) {
    std::array<char, 6> frame{};
    if (zmq_recv(tag_data.monitor, frame.data(), frame.size(), ZMQ_DONTWAIT) < 0) {
        return false;
    }
    std::array<char, 1> endpoint{};
    zmq_recv(tag_data.monitor, endpoint.data(), endpoint.size(), ZMQ_DONTWAIT);
    std::uint16_t event = 0;
    std::int32_t descriptor = 0;
    std::memcpy(&event, frame.data(), sizeof event);
    std::memcpy(&descriptor, frame.data() + sizeof event, sizeof descriptor);
    if (event == ZMQ_EVENT_HANDSHAKE_SUCCEEDED) {
        listeners->succeeded(listener_count::clock_t::now());
    } else if (event == ZMQ_EVENT_DISCONNECTED) {
        listeners->disconnected(descriptor);
    } else {
        listeners->connected(descriptor, listener_count::clock_t::now());
    }
    return true;
}

}  // namespace

int initZMQ() {
    int major = 0;
    int minor = 0;
    int patch = 0;
    zmq_version(&major, &minor, &patch);
    set_zmq_version_string(major, minor, patch);
    logInfo("zmq_intfc", " ", get_zmq_version_string());

    context = zmq_ctx_new();
    assert(context);
    return 0;
}

int createZMQSocketsForMain() {
    if (openSocket(responderSocket) != 0) {
        return -1;
    }
    if (changeFileOwnerAndGroup(replyUser, replyGroup, replySocketFile) != 0) {
        logCountedError("zmq_intfc", "Changing permissions on reply socket failed.");
        return -1;
    }
    for (const socket_s& row : mainSockets) {
        if (openSocket(row) != 0) {
            return -1;
        }
    }
    return 0;
}

int createZMQSocketForData(bool bind) {
    const socket_s& row = bind ? tagDataBound : tagDataConnected;
    void* socket = newSocket(row);
    tag_data.monitor = monitorOf(socket);
    dataListeners = {};
    tag_data.listeners.store(0, std::memory_order_relaxed);
    tag_data.isHeard.store(false, std::memory_order_relaxed);
    const int rc = setHighWaterMarks(socket) == 0 ? attachSocket(row, socket) : -1;
    tag_data.turn.doInTurn([&] {
        tag_data.handle = socket;
        tag_data.outside = bind;
    });
    return rc;
}

int createZMQSocketsForRadio() {
    if (createZMQSocketForData(false) != 0) {
        return -1;
    }
    for (const socket_s& row : radioSockets) {
        if (openSocket(row) != 0) {
            return -1;
        }
    }
    return 0;
}

int closeZMQSocketForData() {
    if (tag_data.monitor != nullptr) {
        zmq_socket_monitor(tag_data.handle, nullptr, 0);
        zmq_close(std::exchange(tag_data.monitor, nullptr));
    }
    const int rc = closeSocket(tagDataConnected);
    if (rc == 0 && tag_data.outside) {
        portLeft = std::chrono::steady_clock::now();
    }
    return rc;
}

int closeZMQSocketsForRadio() {
    for (const socket_s& row : radioSockets) {
        if (closeSocket(row) != 0) {
            return -1;
        }
    }
    return closeZMQSocketForData();
}

int closeZMQSocketsForMain() {
    logDebug("zmq_intfc", " closing ZMQ sockets...");
    if (closeSocket(responderSocket) != 0) {
        return -1;
    }
    removeReplyFile();
    for (const socket_s& row : mainSockets) {
        if (closeSocket(row) != 0) {
            return -1;
        }
    }
    logDebug("zmq_intfc", " succeeded");
    return 0;
}

int closeZMQ() {
    const int rc = zmq_ctx_destroy(context);
    if (rc != 0) {
        logCountedError("zmq_intfc", " failed to destroy zmq context: ", std::strerror(errno));
        return rc;
    }
    context = nullptr;
    return 0;
}

int sendShared(shared_socket_s* socket, const void* data, std::size_t size, int flags) {
    int rc = 0;
    socket->turn.doInTurn([&] { rc = sendFrame(socket->handle, data, size, flags); });
    return rc;
}

void sendEvent(std::string_view event) {
    const bool sent = zmq_send(events, event.data(), event.size(), ZMQ_DONTWAIT) >= 0;
    ++(sent ? eventsSent : eventsRefused);
}

send_result_e sendTagData(bool outside, const void* data, std::size_t size, int flags,
                          const frame_owner_s* owner) {
    send_result_e result = send_result_e::sent;
    tag_data.turn.doOrLeave([&] { result = sendReport(outside, data, size, flags); },
                            [&](left_send_s& left) {
                                left.text.assign(static_cast<const char*>(data), size);
                                left.flags = flags;
                                left.outside = outside;
                                left.owner = owner;
                                left.origin = owner == nullptr ? 0 : owner->origin();
                                left.send = sendLeftReport;
                            });
    return result;
}

void takeSubscriptions() {
    tag_data.turn.doInTurn([] {
        int state = 0;
        std::size_t size = sizeof state;
        if (tag_data.handle != nullptr && zmq_getsockopt(tag_data.handle, ZMQ_EVENTS, &state, &size) == 0) {
            subscriptionsTaken();
        }
    });
}

int listenersDescriptor() {
    int fd = -1;
    std::size_t size = sizeof fd;
    return tag_data.monitor != nullptr && zmq_getsockopt(tag_data.monitor, ZMQ_FD, &fd, &size) == 0 ? fd : -1;
}

// A peer of ZMTP 1.0 or 2.0 (before 2013) does not complete a handshake in the library's terms, and is
// not counted.
void takeListeners() {
    if (tag_data.monitor == nullptr) {
        return;
    }
    while (takeEvent(&dataListeners)) {
    }
    const int listeners = dataListeners.count();
    tag_data.listeners.store(listeners, std::memory_order_relaxed);
    if (listeners > 0 || tag_data.outside) {
        tag_data.isHeard.store(listeners > 0, std::memory_order_relaxed);
    }
}

void sendNews(std::string_view topic, const void* payload, std::size_t size) {
    radio_to_main_async.turn.doOrLeave([&] { sendBothFrames(topic, payload, size); },
                                       [&](left_send_s& left) {
                                           left.text.assign(topic);
                                           left.payload.assign(static_cast<const char*>(payload), size);
                                           left.send = [](const left_send_s& it) {
                                               sendBothFrames(it.text, it.payload.data(), it.payload.size());
                                           };
                                       });
}

int zmq_recv_string(void* receiver, std::string* out) {
    assert(receiver);
    zmq_msg_t message;
    int rc = zmq_msg_init(&message);
    assert(rc == 0);
    rc = zmq_msg_recv(&message, receiver, 0);
    if (rc == -1) {
        const int cause = errno;
        zmq_msg_close(&message);
        errno = cause;
        return -1;
    }
    out->assign(static_cast<const char*>(zmq_msg_data(&message)), zmq_msg_size(&message));
    zmq_msg_close(&message);
    return 0;
}
