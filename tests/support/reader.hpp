// SPDX-License-Identifier: MIT
// A whole reader on this machine: the daemon with the software radio engine and
// the stand-in Reader Management server, in a directory of its own; and the
// programs around it: a client of the reply socket and subscribers.
#pragma once

#include <memory>

#include "support/process.hpp"
#include "support/temp_dir.hpp"

using frames_t = std::vector<std::string>;

inline constexpr const char* replyEndpoint = "ipc:///tmp/tarnwick_rep";
inline constexpr const char* replyFile = "/tmp/tarnwick_rep";
inline constexpr const char* dataEndpoint = "ipc:///tmp/data";
inline constexpr const char* gpioLedEndpoint = "ipc:///tmp/gpio_led_controller";
inline constexpr const char* tcpDataEndpoint = "tcp://127.0.0.1:5160";

// One ZeroMQ socket of the test, closed with the object.
struct socket_s {
    explicit socket_s(int type);
    virtual ~socket_s();
    socket_s(const socket_s&) = delete;
    socket_s& operator=(const socket_s&) = delete;

    void send(const frames_t& frames) const;
    // One message with all its frames, or nothing when none came within `patience`.
    std::optional<frames_t> receive(std::chrono::milliseconds patience = defaultPatience) const;

    void* handle;
};

// One request of a client that has just connected, and its reply without the
// terminating NUL. Throws when a reply does not come, or does not end with a NUL.
std::string ask(std::string_view request, std::chrono::milliseconds patience = defaultPatience);
std::string askFrames(const frames_t& request, std::chrono::milliseconds patience = defaultPatience);

// Binds an endpoint, as the consumers on the reader do: the daemon connects to it.
struct consumer_s : socket_s {
    explicit consumer_s(const char* endpoint);
    ~consumer_s();
    // Waits until a publisher has connected; messages that it sends from now on arrive.
    void waitForPublisher() const;
    std::unique_ptr<socket_s> monitor;
};

// Connects to the daemon's own port, as subscribers from outside do. It gets the
// messages that begin with `prefix`.
struct outside_subscriber_s : socket_s {
    explicit outside_subscriber_s(std::string_view prefix = {});
};

struct reader_options_s {
    std::vector<std::string> arguments = {};        // of the daemon
    std::vector<std::string> serverArguments = {};  // of the server, which takes the profile PN5100 by itself
    bool server = true;
    std::string scenario = {};  // JSON text for the engine; empty for its own
    // Makes other files in the daemon's directory before it starts.
    std::function<void(const std::filesystem::path& directory)> prepare = nullptr;
    bool awaitReady = true;
};

struct reader_s {
    explicit reader_s(const reader_options_s& options = {});

    // Ends the daemon with an `exit` request. Returns its exit status.
    int exit();

    std::string log() const;  // complete only after the daemon has ended

    temp_dir_s directory;
    std::unique_ptr<process_s> server;
    std::unique_ptr<process_s> daemon;
};
