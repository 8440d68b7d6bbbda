// SPDX-License-Identifier: MIT
// ZeroMQ does not tell who holds the file of an ipc endpoint; a plain connection to it does.
#include "sockets.hpp"

#include <grp.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <zmq.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

void context_closer_s::operator()(void* context) const {
    zmq_ctx_term(context);
}

void socket_closer_s::operator()(void* socket) const {
    zmq_close(socket);
}

connection_s openConnection(int type) {
    connection_s connection;
    connection.context.reset(zmq_ctx_new());
    connection.socket.reset(zmq_socket(connection.context.get(), type));
    const int linger = 0;
    zmq_setsockopt(connection.socket.get(), ZMQ_LINGER, &linger, sizeof linger);
    return connection;
}

std::string endpointOf(const std::string& name) {
    const bool isPath = name.starts_with('/') || name.starts_with('.');
    return isPath ? "ipc://" + name : name;
}

std::optional<std::string> ipcFile(std::string_view endpoint) {
    constexpr std::string_view scheme = "ipc://";
    if (!endpoint.starts_with(scheme)) {
        return std::nullopt;
    }
    return std::string(endpoint.substr(scheme.size()));
}

namespace {

// Lets the daemon connect to the file, which it does as a member of this group when it does not run as
// root. Nothing happens where the group does not exist or this user may not give the file to it.
void shareWithDaemon(const std::string& file, mode_t mode) {
    constexpr const char* daemonGroup = "appsadms";
    const struct group* const entry = getgrnam(daemonGroup);
    if (entry != nullptr && lchown(file.c_str(), static_cast<uid_t>(-1), entry->gr_gid) == 0) {
        chmod(file.c_str(), (mode & 07777) | S_IRWXG);
    }
}

}  // namespace

bound_file_c::bound_file_c(const std::string& endpoint) {
    struct stat status {};
    const std::optional<std::string> file = ipcFile(endpoint);
    if (file && stat(file->c_str(), &status) == 0) {
        shareWithDaemon(*file, status.st_mode);
        path = *file;
        device = status.st_dev;
        inode = status.st_ino;
    }
}

bound_file_c::~bound_file_c() {
    struct stat status {};
    if (!path.empty() && stat(path.c_str(), &status) == 0 && status.st_dev == device &&
        status.st_ino == inode) {
        unlink(path.c_str());
    }
}

descriptor_s::~descriptor_s() {
    if (fd >= 0) {
        close(fd);
    }
}

int openSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    return signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
}

namespace {

// A plain connection that asks whether a process listens. ZeroMQ takes an ipc file over without
// asking, so a second listener would silently cut off the first.
class probe_c {
  public:
    explicit probe_c(const std::string& endpoint) {
        const std::optional<std::string> file = ipcFile(endpoint);
        sockaddr_un address{};
        if (!file || file->size() >= sizeof address.sun_path) {
            return;
        }
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, file->data(), file->size());
        descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        if (descriptor >= 0) {
            connected = connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
            busy = !connected && errno == EAGAIN;
        }
    }
    ~probe_c() {
        if (descriptor >= 0) {
            close(descriptor);
        }
    }
    probe_c(const probe_c&) = delete;
    probe_c& operator=(const probe_c&) = delete;

    int descriptor = -1;
    bool connected = false;
    bool busy = false;  // a process listens, and its queue of connections is full
};

}  // namespace

bool hasLiveListener(const std::string& endpoint) {
    const probe_c probe(endpoint);
    return probe.connected || probe.busy;
}

pid_t listenerOf(const std::string& endpoint) {
    const probe_c probe(endpoint);
    ucred peer{};
    socklen_t size = sizeof peer;
    const bool known =
        probe.connected && getsockopt(probe.descriptor, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0;
    return known ? peer.pid : 0;
}

long millisecondsLeft(const deadline_t& deadline) {
    if (!deadline) {
        return -1;
    }
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(*deadline - std::chrono::steady_clock::now());
    return std::clamp<long>(left.count(), 0, INT_MAX);
}

deadline_t deadlineIn(double seconds) {
    return std::chrono::steady_clock::now() + std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                                                  std::chrono::duration<double>(seconds));
}

exchange_e exchangeText(const std::string& endpoint, const std::string& text, double timeoutSeconds,
                        std::string* answer, const std::function<bool()>& goOn) {
    const connection_s connection = openConnection(ZMQ_REQ);
    void* socket = connection.socket.get();
    if (zmq_connect(socket, endpoint.c_str()) != 0) {
        std::fprintf(stderr, "twctl: %s: %s\n", endpoint.c_str(), zmq_strerror(errno));
        return exchange_e::badEndpoint;
    }
    // Without a listener the text waits in the socket, and the poll below runs out.
    const deadline_t deadline = deadlineIn(timeoutSeconds);
    zmq_send(socket, text.data(), text.size(), ZMQ_DONTWAIT);

    zmq_pollitem_t item{socket, 0, ZMQ_POLLIN, 0};
    constexpr long slice = 100;  // ms
    const auto wait = [&](long most) {
        return zmq_poll(&item, 1, std::min(millisecondsLeft(deadline), most));
    };
    int ready = wait(goOn ? slice : LONG_MAX);
    while (ready == 0 && goOn && millisecondsLeft(deadline) > 0 && goOn()) {
        ready = wait(slice);
    }
    if (ready <= 0) {
        return exchange_e::silence;
    }
    zmq_msg_t message;
    zmq_msg_init(&message);
    zmq_msg_recv(&message, socket, 0);
    std::string_view received(static_cast<const char*>(zmq_msg_data(&message)), zmq_msg_size(&message));
    if (received.ends_with('\0')) {  // the daemon sends it, and it is not part of the text
        received.remove_suffix(1);
    }
    *answer = received;
    zmq_msg_close(&message);
    return exchange_e::answered;
}

std::string joinWords(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : " ") + word;
    }
    return text;
}

int writeLine(std::string_view line, bool flush) {
    errno = 0;
    const bool written = std::fwrite(line.data(), 1, line.size(), stdout) == line.size() &&
                         std::fputc('\n', stdout) != EOF && (!flush || std::fflush(stdout) == 0);
    return written ? 0 : (errno != 0 ? errno : EIO);
}
