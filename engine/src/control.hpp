// SPDX-License-Identifier: MIT
// The control socket: ZeroMQ requests that change the world while it runs or ask about it. It has
// a thread of its own, which posts events and touches nothing else of the engine.
//
//   request   gpi 1 high          or   {"event": "gpi", "port": 1, "level": "high"}
//   reply     ok                  or   one line that says what is wrong
//   request   tag 3034            or   {"event": "tag", "epc": "3034"}
//   reply     one line of JSON    or   one line that says what is wrong
//   request   failing             or   {"event": "failing"}
//
// A request has one frame with one event, 64 KiB at most; a longer one ends its connection.
// A request that is refused changes nothing.
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
    // An eventfd, -1 while the socket is closed; a write to it ends the thread.
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

// Takes an event that came in and returns the reply: "ok", the answer to a question, or one line
// that says why the event is refused. Called on the control thread.
using take_event_f = std::function<std::string(event_s event)>;

// Opens the socket at an "ipc://" endpoint and starts the thread; "none" does nothing. A
// socket that another process listens on is left alone. On a failure `*error` gets one line
// and the socket stays closed; on success `*error` keeps its content.
void openControl(const std::string& endpoint, take_event_f take, control_s* control, std::string* error);
// Ends the thread, waits for it, and removes the socket's file. Any thread but the control
// thread; does nothing while the socket is closed.
void closeControl(control_s* control);

}  // namespace rxe
