// SPDX-License-Identifier: MIT
// Owners of what ZeroMQ and the kernel hand out, and where the daemon's
// endpoints are. One thread uses all of it.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct context_closer_s {
    void operator()(void* context) const;
};
struct socket_closer_s {
    void operator()(void* socket) const;
};
using context_ptr = std::unique_ptr<void, context_closer_s>;
using socket_ptr = std::unique_ptr<void, socket_closer_s>;

// A context and a socket of ZeroMQ's type `type` with ZMQ_LINGER 0. The members
// stand in this order so that the socket closes first; the context's end waits
// for that.
struct connection_s {
    context_ptr context;
    socket_ptr socket;
};
connection_s openConnection(int type);

// The endpoint that a person names: what begins with "/" or "." is the path of an ipc file.
std::string endpointOf(const std::string& name);

// The file of an "ipc://" endpoint; nothing for any other transport.
std::optional<std::string> ipcFile(std::string_view endpoint);

// The file of an ipc endpoint that this process has bound. ZeroMQ leaves it
// behind; its owner removes it, unless another process has put its own there.
class bound_file_c {
  public:
    explicit bound_file_c(const std::string& endpoint);
    ~bound_file_c();
    bound_file_c(const bound_file_c&) = delete;
    bound_file_c& operator=(const bound_file_c&) = delete;

  private:
    std::string path;  // empty: nothing to remove
    dev_t device = 0;
    ino_t inode = 0;
};

// Whether a process listens on the file of this "ipc://" endpoint. A file that
// a killed process left behind does not count, nor does any other transport.
bool hasLiveListener(const std::string& endpoint);

// The id of that process; 0 when there is none, or it is of another machine.
pid_t listenerOf(const std::string& endpoint);

// Milliseconds from now until `deadline`, rounded up, never negative; -1, which
// is ZeroMQ's "for ever", without a deadline.
using deadline_t = std::optional<std::chrono::steady_clock::time_point>;
long millisecondsLeft(const deadline_t& deadline);

// The deadline `seconds` from now.
deadline_t deadlineIn(double seconds);

// One request on a reply socket and its answer, without a terminating NUL. What
// is wrong with the endpoint is told on standard error.
enum class exchange_e { answered, silence, badEndpoint };
exchange_e exchangeText(const std::string& endpoint, const std::string& text, double timeoutSeconds,
                        std::string* answer);

// The words with single blanks between them.
std::string joinWords(const std::vector<std::string>& words);

// Writes one line to standard output and, with `flush`, everything that waits
// there. Returns 0 or the errno of the write; EPIPE says that nobody reads on.
int writeLine(std::string_view line, bool flush);
