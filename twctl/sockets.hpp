// SPDX-License-Identifier: MIT
// Owners of what ZeroMQ and the kernel hand out, and where the daemon's endpoints are. One
// thread uses all of it; ZeroMQ has threads of its own below.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// What unique_ptr needs to close a context, which waits for its sockets, and a socket.
struct context_closer_s {
    void operator()(void* context) const;
};
struct socket_closer_s {
    void operator()(void* socket) const;
};
using context_ptr = std::unique_ptr<void, context_closer_s>;
using socket_ptr = std::unique_ptr<void, socket_closer_s>;

// A context and a socket of ZeroMQ's type `type` with ZMQ_LINGER 0: what is not sent yet is
// dropped at the end. The socket is the second member so that it closes first; the end of the
// context waits for that.
struct connection_s {
    context_ptr context;
    socket_ptr socket;
};
connection_s openConnection(int type);

// The endpoint that a person names: a text that begins with "/" or "." is the path of an ipc
// file, any other one is ZeroMQ's notation.
std::string endpointOf(const std::string& name);

// The file of an "ipc://" endpoint; nothing for any other transport.
std::optional<std::string> ipcFile(std::string_view endpoint);

// The file of an ipc endpoint that this process has bound. The daemon's group, appsadms, may
// connect to it, where this user may allow that. ZeroMQ leaves the file behind. This removes it, unless
// another process has put its own there since; device and inode tell.
class bound_file_c {
  public:
    explicit bound_file_c(const std::string& endpoint);
    ~bound_file_c();
    bound_file_c(const bound_file_c&) = delete;
    bound_file_c& operator=(const bound_file_c&) = delete;

  private:
    // Of the file as it was after the bind.
    std::string path;  // empty: nothing to remove
    dev_t device = 0;
    ino_t inode = 0;
};

// Owner of a descriptor.
struct descriptor_s {
    int fd = -1;
    ~descriptor_s();
};

// A descriptor that becomes readable with SIGINT and SIGTERM, so that both reach a poll without a
// race. They are blocked for good. To be called before ZeroMQ starts its threads, which inherit the
// mask.
int openSignals();

// Whether a process listens on the file of this "ipc://" endpoint. A file that a killed
// process left behind does not count; other transports are never asked.
bool hasLiveListener(const std::string& endpoint);

// The process id of that listener; 0 when there is none or the kernel does not tell it, as
// between containers.
pid_t listenerOf(const std::string& endpoint);

// Milliseconds from now until `deadline`, rounded up, never negative. Without a deadline -1,
// with which zmq_poll waits without end.
using deadline_t = std::optional<std::chrono::steady_clock::time_point>;
long millisecondsLeft(const deadline_t& deadline);

// The moment `seconds` from now, on the steady clock.
deadline_t deadlineIn(double seconds);

// Sends one request to a reply socket and waits for its answer, which is stored without its
// terminating NUL. What is wrong with the endpoint is told on standard error. `goOn`, when given, is
// called every 100 ms while it waits, which ends as silence when that returns false.
enum class exchange_e { answered, silence, badEndpoint };
exchange_e exchangeText(const std::string& endpoint, const std::string& text, double timeoutSeconds,
                        std::string* answer, const std::function<bool()>& goOn = {});

// The words with single blanks between them.
std::string joinWords(const std::vector<std::string>& words);

// Writes one line to standard output and, with `flush`, all that is buffered. Returns 0 or
// the errno of the write; EPIPE says that the reader of the pipe has gone.
int writeLine(std::string_view line, bool flush);
