// SPDX-License-Identifier: MIT
// The daemon's side of a socket, played by the test at an endpoint of its own.
#pragma once

#include <zmq.h>

#include <string>
#include <string_view>

#include "support/process.hpp"
#include "support/temp_dir.hpp"

inline const std::string twctlProgram = TARNWICK_BIN_DIR "/twctl";

struct peer_s {
    temp_dir_s directory;
    std::string endpoint = "ipc://" + (directory.path / "peer").string();
    void* context = zmq_ctx_new();
    void* socket = nullptr;

    explicit peer_s(int type) : socket(zmq_socket(context, type)) {
        const int linger = 0;
        const int patience = static_cast<int>(defaultPatience.count());
        zmq_setsockopt(socket, ZMQ_LINGER, &linger, sizeof linger);
        zmq_setsockopt(socket, ZMQ_RCVTIMEO, &patience, sizeof patience);
    }
    ~peer_s() {
        zmq_close(socket);
        zmq_ctx_term(context);
    }
    peer_s(const peer_s&) = delete;
    peer_s& operator=(const peer_s&) = delete;

    // One frame, or a text that no client sends when none came in time.
    std::string receive() const {
        char buffer[4096];
        const int size = zmq_recv(socket, buffer, sizeof buffer, 0);
        return size < 0 ? "nothing came" : std::string(buffer, static_cast<std::size_t>(size));
    }
    void send(std::string_view frame, int flags = 0) const {
        zmq_send(socket, frame.data(), frame.size(), flags);
    }
};
