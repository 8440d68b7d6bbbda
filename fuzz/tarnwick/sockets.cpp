// SPDX-License-Identifier: MIT
// Data from peers of the two open sockets: frames to the reply socket, subscriptions to port 5160.
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <zmq.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "../targets.hpp"
#include "endpoints.hpp"
#include "peer_limit.hpp"
#include "reader.hpp"
#include "requests.hpp"
#include "subscription_stream.hpp"
#include "zmq_intfc.hpp"

namespace {

using message_t = std::vector<std::string>;  // frames

void* stranger = nullptr;  // a client that sends anything
void* client = nullptr;    // a correct client

void openReplySocket() {
    if (sockets::responder == nullptr) {
        constexpr const char* endpoint = "inproc://requests";
        sockets::responder = zmq_socket(sockets::context, ZMQ_REP);
        constexpr int noLimit = 0;  // of messages, since the same thread writes and reads
        zmq_setsockopt(sockets::responder, ZMQ_RCVHWM, &noLimit, sizeof noLimit);
        zmq_bind(sockets::responder, endpoint);
        for (void** peer : {&stranger, &client}) {
            *peer = zmq_socket(sockets::context, ZMQ_DEALER);
            zmq_setsockopt(*peer, ZMQ_SNDHWM, &noLimit, sizeof noLimit);
            zmq_connect(*peer, endpoint);
        }
    }
}

void sendMessage(void* socket, const message_t& message) {
    for (std::size_t i = 0; i < message.size(); ++i) {
        zmq_send(socket, message[i].data(), message[i].size(), i + 1 < message.size() ? ZMQ_SNDMORE : 0);
    }
}

std::optional<message_t> takeMessage(void* socket) {
    message_t message;
    zmq_msg_t frame;
    zmq_msg_init(&frame);
    for (bool more = true; more && zmq_msg_recv(&frame, socket, ZMQ_DONTWAIT) >= 0;) {
        message.emplace_back(static_cast<const char*>(zmq_msg_data(&frame)), zmq_msg_size(&frame));
        more = zmq_msg_more(&frame) != 0;
    }
    zmq_msg_close(&frame);
    return message.empty() ? std::nullopt : std::optional(message);
}

// The reply of a daemon that repeats each request: the envelope, which ends with an empty frame, and the
// frame behind it. Nothing for a message without an envelope.
std::optional<message_t> replyTo(const message_t& message) {
    const auto end = std::ranges::find(message, std::string());
    if (end == message.end() || end + 1 == message.end()) {
        return std::nullopt;
    }
    message_t reply(message.begin(), end + 2);
    reply.back() += '\0';
    return reply;
}

}  // namespace

// Messages to the reply socket, one on each line, with bars between their frames. Each message with an
// envelope gets one reply; no message prevents the next client from getting its own.
void envelopes(std::string_view input) {
    std::string_view any = "0";
    newReader(&any);
    openReplySocket();
    std::vector<message_t> awaited;
    while (!input.empty()) {
        std::string_view line = takeUntil('\n', &input);
        message_t message{std::string(takeUntil('|', &line))};
        while (!line.empty()) {
            message.emplace_back(takeUntil('|', &line));
        }
        sendMessage(stranger, message);
        if (const auto reply = replyTo(message)) {
            awaited.push_back(*reply);
        }
    }
    sendMessage(client, {"", "are you there?"});
    sendMessage(stranger, {"", "the last"});  // so that all before it are taken
    awaited.push_back({"", std::string("the last", 9)});
    for (std::size_t i = 0; i <= awaited.size(); ++i) {
        requests::MSG_BUF source{};
        std::string request;
        requests::GetNextRequest(&source, &request, false);
        requests::SendReply(source, &request);
    }
    const std::string answer("are you there?", 15);
    require(takeMessage(client) == message_t{"", answer}, "a client gets its reply, whatever others send");
    for (const message_t& reply : awaited) {
        require(takeMessage(stranger) == reply, "a request gets its reply, and each its own");
    }
    require(!takeMessage(stranger) && !takeMessage(client), "a request gets one reply");
}

// The bytes of a subscriber, at once and in two pieces; the first byte gives the place of the cut.
void subscriptionStream(std::string_view input) {
    const std::size_t cut = input.empty() ? 0 : static_cast<std::uint8_t>(input.front());
    input.remove_prefix(input.empty() ? 0 : 1);
    subscription_stream whole;
    subscription_stream pieces;
    const auto all = whole.take(input);
    const auto first = pieces.take(input.substr(0, cut));
    const auto second = first && cut < input.size() ? pieces.take(input.substr(cut)) : first;
    require(all.has_value() == second.has_value(), "the pieces do not change who must go");
    require(!all || whole.weight() == pieces.weight(), "the pieces do not change what subscriptions weigh");
    require(!all || all->longest <= maxSubscriptionBytes, "a topic is short");
    require(whole.weight() <= input.size(), "a subscription weighs no more than its bytes");
}

// ---- the two endpoints

extern "C" {
int __real_connect(int, const sockaddr*, socklen_t);
int __real_getsockname(int, sockaddr*, socklen_t*);
ssize_t __real_recv(int, void*, std::size_t, int);
ssize_t __real_send(int, const void*, std::size_t, int);
}

namespace {

// The endpoint that the listener below stands for. Read by __wrap_getsockname.
bool isDataDoor = false;

// A listener on a name that the system chooses instead of a file. One thread plays the daemon and all
// its peers.
struct door_s {
    sockaddr_un address{};
    socklen_t size = sizeof(sa_family_t);
    int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);

    door_s() {
        address.sun_family = AF_UNIX;
        auto* const generic = reinterpret_cast<sockaddr*>(&address);
        require(bind(listener, generic, size) == 0 && listen(listener, 8) == 0, "a listener can be made");
        size = sizeof address;
        __real_getsockname(listener, generic, &size);
    }
};

struct peer_s {
    int near;  // the daemon's end
    int far;
    bool isSubscriber;
    bool isEnded = false;
    std::size_t weight = 0;  // of its subscriptions
};

// The weight that a subscriber may have in any case, and that of all together.
constexpr std::size_t ownWeight = 16;
constexpr std::size_t weightOfAll = 16'384;

// The daemon reads the bytes that have come. False when it disconnects the peer.
bool readAll(int near) {
    char buffer[8192];
    while (__real_recv(near, buffer, sizeof buffer, MSG_DONTWAIT) > 0) {
    }
    return errno == EAGAIN;
}

void tell(const peer_s& peer, std::string_view bytes) {
    __real_send(peer.far, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
}

peer_s come(const door_s& door, bool isSubscriber) {
    constexpr std::string_view greeting{"\1\0", 2};  // of ZMTP 1.0: an identity without bytes
    isDataDoor = isSubscriber;
    const int far = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    require(__real_connect(far, reinterpret_cast<const sockaddr*>(&door.address), door.size) == 0,
            "a peer can come to the door");
    const peer_s peer{accept4(door.listener, nullptr, nullptr, SOCK_CLOEXEC), far, isSubscriber};
    require(peer.near >= 0, "a peer is admitted while there are descriptors");
    if (isSubscriber) {
        tell(peer, greeting);
        require(readAll(peer.near), "a subscriber may greet");
    }
    return peer;
}

// Subscribes to `count` topics that no other peer has.
void subscribe(peer_s* peer, unsigned count, std::size_t padding) {
    static unsigned topics = 0;
    std::string bytes;
    for (unsigned i = 0; i < count; ++i) {
        const std::string topic = std::to_string(++topics + 10) + std::string(padding, 'x');
        bytes += static_cast<char>(topic.size() + 2);
        bytes += std::string_view("\0\1", 2);
        bytes += topic;
        peer->weight += topic.size() - 1;
    }
    tell(*peer, bytes);
    peer->isEnded = !readAll(peer->near);
    require(!peer->isEnded || peer->weight > ownWeight, "a peer with few subscriptions stays");
}

void go(const peer_s& peer) {
    close(peer.near);
    close(peer.far);
}

// The publisher looks often enough to forget the subscribers that have gone.
void forgetAll() {
    int pair[2];
    require(socketpair(AF_UNIX, SOCK_STREAM, 0, pair) == 0, "a pair of sockets can be made");
    for (int i = 0; i < 2; ++i) {
        for (int look = 0; look < 5; ++look) {
            subscriptionsTaken();
        }
        __real_send(pair[0], "x", 1, 0);
        readAll(pair[1]);
    }
    close(pair[0]);
    close(pair[1]);
}

}  // namespace

// Peers that come, subscribe and go. Two bytes for each step, its kind and the peer:
//
//   0: a client comes   1: a subscriber comes   2: one goes   3: the publisher looks
//   else: a subscriber subscribes to as many topics
void peers(std::string_view input) {
    static const door_s door;
    constexpr std::size_t mostPeers = 200;  // two descriptors each
    std::vector<peer_s> all;
    for (; input.size() >= 2; input.remove_prefix(2)) {
        const auto step = static_cast<std::uint8_t>(input[0]);
        const auto whom = static_cast<std::uint8_t>(input[1]);
        if (step <= 1 && all.size() < mostPeers) {
            all.push_back(come(door, step == 1));
        } else if (step == 3) {
            subscriptionsTaken();
        } else if (!all.empty()) {
            const auto peer = all.begin() + static_cast<std::ptrdiff_t>(whom % all.size());
            if (step == 2) {
                go(*peer);
                all.erase(peer);
            } else if (step > 3 && peer->isSubscriber && !peer->isEnded) {
                subscribe(&*peer, step, whom % 50);
            }
        }
        std::size_t weight = 0;
        for (const peer_s& peer : all) {
            weight += peer.isEnded ? 0 : peer.weight;
        }
        require(weight <= weightOfAll + all.size() * ownWeight, "all subscriptions together are bounded");
    }
    std::ranges::for_each(all, go);
    forgetAll();
}

// The linker puts this in place of the system's for the daemon's own code.
extern "C" int __wrap_getsockname(int, sockaddr* address, socklen_t* size) {
    if (isDataDoor) {
        sockaddr_in data{};
        data.sin_family = AF_INET;
        data.sin_port = htons(dataPort);
        std::memcpy(address, &data, sizeof data);
        return 0;
    }
    sockaddr_un reply{};
    reply.sun_family = AF_UNIX;
    std::strcpy(reply.sun_path, replySocketFile);
    std::memcpy(address, &reply, std::min<std::size_t>(*size, sizeof reply));
    return 0;
}
