// SPDX-License-Identifier: MIT
// The control socket: ZeroMQ requests that change the world while it runs, one
// event each, answered by "ok" or by the one line that says what is wrong. A
// thread of its own, which posts events and touches nothing else of the engine.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <thread>

#include "world.hpp"

namespace rxe {

// Written by the thread that connects and disconnects.
struct control_s {
    std::thread thread;
    // An eventfd; a write to it ends the thread.
    int stopDescriptor = -1;
    // ZeroMQ's. While there is a thread, only that thread uses the socket.
    void* context = nullptr;
    void* socket = nullptr;
    // The socket's file, with the numbers that tell whether it is still ours when the
    // socket closes: another engine may have taken its name.
    std::string file;
    dev_t device = 0;
    ino_t inode = 0;
};

// Takes an event that came in, or says in one line what is wrong with it; called on the control
// thread.
using take_event_f = std::function<std::string(event_s event)>;

// Opens the socket at an "ipc://" endpoint and starts the thread; "none" does
// nothing. A socket that another process listens on is left alone. What goes
// wrong is told in `*error`, and then there is no control socket.
void openControl(const std::string& endpoint, take_event_f take, control_s* control, std::string* error);
// Ends the thread and removes the socket. Not for the control thread.
void closeControl(control_s* control);

}  // namespace rxe
