// SPDX-License-Identifier: MIT
// This file stands between the ZeroMQ library and the system: the program's accept4, accept,
// connect and recv come first in the loader's order, so the library calls these. For descriptors other than
// those of the daemon's endpoints they only make the system call. They do not call the C library's functions:
// a sanitizer's own recv would take what the library passes from thread to thread for a race. The one I/O
// thread of the daemon's context serves all endpoints; it alone makes, reads and closes their connections.
#include "peer_limit.hpp"

#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <map>
#include <numeric>
#include <unordered_map>
#include <vector>

#include "endpoints.hpp"
#include "logger.hpp"
#include "request_stream.hpp"
#include "subscription_stream.hpp"

namespace {

constexpr auto relaxed = std::memory_order_relaxed;

// The most descriptors that are used for peers when the system allows more: enough for 1,024
// subscribers, the most of the command "subscribers", and as many again that watch or reconnect.
constexpr rlim_t mostDescriptors = 2048;

// Limits for all subscribers together, and what each may have in any case. Subscriptions count by
// weight (subscription_stream.hpp): the library takes 50 bytes to 2 KiB of memory for each, and walks
// through all of them when a subscriber goes.
constexpr std::size_t maxWeight = 16'384;
constexpr std::size_t ownWeight = 16;
// Messages that the publisher has not read yet count by their memory in bytes: the library keeps each
// in a record of its own, and for a long one the whole buffer in which it came.
constexpr std::size_t maxUntaken = 8 << 20;
constexpr std::size_t ownUntaken = 16'384;
constexpr std::size_t messageMemory = 64;
constexpr std::size_t longMessage = 33;  // bytes; a longer one stays in its buffer
constexpr std::size_t bufferMemory = 8'192;

// After so many looks (subscriptionsTaken) the publisher has removed a subscriber that went.
constexpr unsigned looksToForget = 4;

// The marks of the picture in the header.
struct marks_s {
    int subscribers;
    int clients;
    std::size_t clientPlaces;
};

// Looks of the publisher so far. Written by the radio thread, read by the I/O thread.
std::atomic<unsigned> looks{0};

// Refusals that were not logged yet. Written by the I/O thread, taken by the radio thread.
enum refusal_e : std::size_t {
    subscriberRefused,
    clientRefused,
    clientEnded,
    requestTooLong,
    subscriptionTooLong,
    subscriberEnded,
    refusalCount
};
std::array<std::atomic<unsigned>, refusalCount> refusals{};
constexpr std::array<const char*, refusalCount> refusalTexts{
    " connections to tcp port 5160 refused: all places are taken",
    " clients of the reply socket refused: all descriptors are taken",
    " clients of the reply socket disconnected: all places are taken, and a new one came",
    " clients of the reply socket disconnected: a request was too long",
    " subscribers disconnected: a subscription was too long",
    " subscribers disconnected: all together send or subscribe too much",
};

void count(refusal_e refusal) {
    refusals[refusal].fetch_add(1, relaxed);
}

// A connection, identified by its inode as well: the library closes descriptors unnoticed, and the
// system gives the same number to another connection.
struct connection_s {
    int fd;
    dev_t device;
    ino_t inode;
};

connection_s connectionOf(int fd) {
    struct stat status {};
    fstat(fd, &status);
    return {fd, status.st_dev, status.st_ino};
}

bool isOpen(const connection_s& connection) {
    const connection_s present = connectionOf(connection.fd);
    return present.device == connection.device && present.inode == connection.inode;
}

struct client_s {
    connection_s connection;
    pid_t process;
    request_stream stream;
};

struct subscriber_s {
    connection_s connection;
    subscription_stream stream;
    std::size_t untaken = 0;  // memory of its messages since the publisher's last look
    bool ended = false;       // the library will close it
};

// The peers of this thread's doors; empty in all threads but the I/O thread.
struct peers_s {
    std::vector<client_s> clients;  // by age, oldest first
    std::unordered_map<int, subscriber_s> subscribers;
    std::size_t weight = 0;  // of all subscriptions
    std::size_t untaken = 0;
    std::array<std::size_t, looksToForget> forgotten{};  // weight of those that went, by look
    unsigned look = 0;                                   // the publisher's last look that is seen
};
thread_local peers_s* peers = nullptr;

peers_s& peersOfThisThread() {
    thread_local peers_s own;
    peers = &own;
    return own;
}

const marks_s& marks() {
    static const marks_s theMarks = [] {
        rlimit limit{};
        getrlimit(RLIMIT_NOFILE, &limit);
        const int all = static_cast<int>(std::min(limit.rlim_cur, mostDescriptors));
        const int own = all / 32;
        const int overlap = all / 32;  // closed already, but not yet by the library
        const int clients = all / 8;
        return marks_s{all - own - overlap - clients, all - own, static_cast<std::size_t>(clients)};
    }();
    return theMarks;
}

// ---- clients of the reply socket -------------------------------------------

// Ends the oldest connection of the process that has the most, so that one process
// cannot push out the others. A ZeroMQ client connects anew by itself.
void endOneClient(std::vector<client_s>* clients) {
    std::map<pid_t, std::size_t> places;
    for (const client_s& client : *clients) {
        ++places[client.process];
    }
    const auto victim =
        std::ranges::max_element(*clients, {}, [&](const client_s& c) { return places[c.process]; });
    shutdown(victim->connection.fd, SHUT_RDWR);
    clients->erase(victim);
    count(clientEnded);
}

// A client of the reply socket. Makes room by closing another one when all places are in use.
bool admitClient(int fd) {
    if (fd >= marks().clients) {
        count(clientRefused);
        return false;
    }
    std::vector<client_s>& clients = peersOfThisThread().clients;
    if (clients.size() >= marks().clientPlaces) {
        std::erase_if(clients, [](const client_s& client) { return !isOpen(client.connection); });
    }
    if (clients.size() >= marks().clientPlaces) {
        endOneClient(&clients);
    }
    ucred peer{};
    socklen_t size = sizeof peer;
    getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size);
    clients.push_back({connectionOf(fd), peer.pid, {}});
    return true;
}

// Counts what a client has sent, if this is the connection of one. False when it must be disconnected.
bool takeFromClient(peers_s* all, int fd, std::string_view bytes) {
    const auto client = std::ranges::find_if(all->clients, [fd](const client_s& one) {
        return one.connection.fd == fd && isOpen(one.connection);
    });
    if (client == all->clients.end() || client->stream.take(bytes)) {
        return true;
    }
    all->clients.erase(client);
    count(requestTooLong);
    return false;
}

// ---- subscribers of tcp port 5160, and local consumers ----------------------

// Removes a subscriber that has gone from the table. Its weight counts until the publisher has removed
// its subscriptions as well.
template <class Entry>
auto forget(peers_s* all, Entry entry) {
    const std::size_t weight = entry->second.stream.weight();
    all->weight -= weight;
    all->forgotten[all->look % looksToForget] += weight;
    return all->subscribers.erase(entry);
}

// From now on what comes on this connection is counted.
void addSubscriber(int fd) {
    peers_s& all = peersOfThisThread();
    if (const auto gone = all.subscribers.find(fd); gone != all.subscribers.end()) {
        forget(&all, gone);
    }
    all.subscribers.emplace(fd, subscriber_s{connectionOf(fd), {}});
}

// A subscriber of tcp port 5160.
bool admitSubscriber(int fd) {
    if (fd >= marks().subscribers) {
        count(subscriberRefused);
        return false;
    }
    addSubscriber(fd);
    return true;
}

// Whether this is the file of a consumer of reports, events or lines. Any user can bind it.
bool isConsumer(const sockaddr* address) {
    constexpr std::array files{"/tmp/data", "/tmp/events", "/tmp/gpio_led_controller"};
    return address->sa_family == AF_UNIX && std::ranges::any_of(files, [&](const char* file) {
               return std::strcmp(reinterpret_cast<const sockaddr_un*>(address)->sun_path, file) == 0;
           });
}

// The publisher has read its subscribers' messages since the last one came: counts begin anew, and
// subscribers that have gone are removed.
void beginLook(peers_s* all, unsigned now) {
    for (unsigned passed = std::min(now - all->look, looksToForget); passed > 0; --passed) {
        all->forgotten[(now - passed + 1) % looksToForget] = 0;
    }
    all->look = now;
    all->untaken = 0;
    for (auto entry = all->subscribers.begin(); entry != all->subscribers.end();) {
        entry->second.untaken = 0;
        entry = isOpen(entry->second.connection) ? std::next(entry) : forget(all, entry);
    }
}

// Counts what a subscriber has sent. False when it must be disconnected.
bool takeFrom(peers_s* all, subscriber_s* subscriber, std::string_view bytes) {
    if (subscriber->ended) {
        return false;
    }
    const std::size_t weightBefore = subscriber->stream.weight();
    const std::optional<subscriber_messages_s> messages = subscriber->stream.take(bytes);
    const std::size_t weight = subscriber->stream.weight();
    all->weight += weight - weightBefore;
    if (!messages) {
        count(subscriptionTooLong);
        subscriber->ended = true;
        return false;
    }
    const std::size_t memory =
        messages->count * messageMemory + (messages->longest > longMessage ? bufferMemory : 0);
    subscriber->untaken += memory;
    all->untaken += memory;
    const std::size_t weightOfAll =
        std::accumulate(all->forgotten.begin(), all->forgotten.end(), all->weight);
    if ((weightOfAll > maxWeight && weight > ownWeight) ||
        (all->untaken > maxUntaken && subscriber->untaken > ownUntaken)) {
        count(subscriberEnded);
        subscriber->ended = true;
    }
    return !subscriber->ended;
}

// ---- the doors -------------------------------------------------------------

// Whether a peer that has connected to this listener may stay. Other listeners of the process have no
// limit.
bool isAdmitted(int listener, int fd) {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    if (getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        return true;
    }
    switch (address.ss_family) {
        case AF_INET:
            return reinterpret_cast<const sockaddr_in&>(address).sin_port != htons(dataPort) ||
                   admitSubscriber(fd);
        case AF_INET6:
            return reinterpret_cast<const sockaddr_in6&>(address).sin6_port != htons(dataPort) ||
                   admitSubscriber(fd);
        case AF_UNIX:
            return std::strcmp(reinterpret_cast<const sockaddr_un&>(address).sun_path, replySocketFile) !=
                       0 ||
                   admitClient(fd);
        default:
            return true;
    }
}

}  // namespace

// Fails with errors after which the library goes on: ENFILE in place of EMFILE, at which it would end
// the process, and ECONNABORTED for a peer that was not admitted.
extern "C" int accept4(int listener, sockaddr* address, socklen_t* size, int flags) {
    const int fd = static_cast<int>(syscall(SYS_accept4, listener, address, size, flags));
    if (fd < 0) {
        errno = errno == EMFILE ? ENFILE : errno;
        return fd;
    }
    if (isAdmitted(listener, fd)) {
        return fd;
    }
    close(fd);
    errno = ECONNABORTED;
    return -1;
}

extern "C" int connect(int fd, const sockaddr* address, socklen_t size) {
    const int rc = static_cast<int>(syscall(SYS_connect, fd, address, size));
    if (rc == 0 && isConsumer(address)) {
        addSubscriber(fd);
    }
    return rc;
}

extern "C" int accept(int listener, sockaddr* address, socklen_t* size) {
    return accept4(listener, address, size, 0);
}

extern "C" ssize_t recv(int fd, void* buffer, size_t size, int flags) {
    const ssize_t received = syscall(SYS_recvfrom, fd, buffer, size, flags, nullptr, nullptr);
    if (received <= 0 || peers == nullptr) {
        return received;
    }
    if (const unsigned now = looks.load(relaxed); now != peers->look) {
        beginLook(peers, now);
    }
    const std::string_view bytes(static_cast<const char*>(buffer), static_cast<std::size_t>(received));
    auto entry = peers->subscribers.find(fd);
    if (entry != peers->subscribers.end() && !isOpen(entry->second.connection)) {
        forget(peers, entry);
        entry = peers->subscribers.end();
    }
    if (entry == peers->subscribers.end() ? takeFromClient(peers, fd, bytes)
                                          : takeFrom(peers, &entry->second, bytes)) {
        return received;
    }
    errno = ECONNRESET;
    return -1;
}

void raiseDescriptorLimit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}

void tellRefusedPeers() {
    using clock = std::chrono::steady_clock;
    constexpr std::chrono::minutes pause{1};
    static clock::time_point nextTime{};
    if (clock::now() < nextTime) {
        return;
    }
    for (std::size_t i = 0; i < refusalCount; ++i) {
        if (const unsigned number = refusals[i].exchange(0, relaxed); number != 0) {
            logCountedWarning("peer_limit", " ", number, refusalTexts[i]);
            nextTime = clock::now() + pause;
        }
    }
}

void subscriptionsTaken() {
    looks.fetch_add(1, relaxed);
}
