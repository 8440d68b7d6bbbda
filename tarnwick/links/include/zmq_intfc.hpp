// SPDX-License-Identifier: MIT
// The process's one ZeroMQ context and its ten sockets, and beside tag_data a monitor of it.
//
//   handle                  type  endpoint                         used by
//   responder               REP   ipc:///tmp/tarnwick_rep (bind)   main thread
//   events                  PUB   ipc:///tmp/events                main thread
//   main_from_radio_async   PAIR  inproc://radio_2_main_async      main thread (bind)
//   main_to_radio           PAIR  inproc://main_2_radio            main thread (bind)
//   main_from_radio         PAIR  inproc://radio_2_main            main thread (bind)
//   tag_data                PUB   ipc:///tmp/data, or              engine thread; re-created
//                                 tcp://*:5160 (bind)              by the radio thread
//   radio_to_main_async     PAIR  inproc://radio_2_main_async      engine and radio threads
//   radio_from_main         PAIR  inproc://main_2_radio            radio thread
//   radio_to_main           PAIR  inproc://radio_2_main            radio thread
//   gpio_led                PUB   ipc:///tmp/gpio_led_controller   engine and main threads
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "turn.hpp"

// What became of a frame on tag_data. The library drops frames silently where a subscriber on port 5160
// is too slow; for the one local consumer it refuses them, so that they can be counted.
enum class send_result_e : std::uint8_t {
    // Taken by the socket, or left behind for the thread whose turn it is.
    sent,
    // Not taken: the queue for the other side is full.
    refused,
    // The socket is not there, or is for the other form of the reports.
    noSocket,
};

// The result of a frame that was left behind (turn.hpp) is known only later, on the thread that sends it
// then: until it fails it counts as sent.
//
// Who sent a frame on tag_data, for one that is left behind and cannot be sent then. `origin` runs
// when the frame is left, on the engine thread, and `failed` later with its result, in a turn at
// tag_data on any thread.
struct frame_owner_s {
    std::uint32_t (*origin)();
    void (*failed)(std::uint32_t origin, send_result_e result);
};

// A message on a shared socket that the engine thread has left behind (turn.hpp): `send` sends it,
// on the thread whose turn it is.
struct left_send_s {
    void (*send)(const left_send_s& left) = nullptr;
    // One frame, or the topic of news.
    std::string text;
    // The second frame of news.
    std::string payload;
    // 0 or ZMQ_SNDMORE.
    int flags = 0;
    // Of a frame on tag_data: as in sendTagData.
    bool outside = false;
    const frame_owner_s* owner = nullptr;
    std::uint32_t origin = 0;
};
inline void sendLeft(left_send_s& left) {
    left.send(left);
}

// A socket that more than one thread uses, in turn. A turn is short: one non-blocking send, the
// exchange of the handle, or the time in which a publisher reads the messages of its subscribers,
// which a send does as well. A message that the engine thread cannot send at once, the other
// thread sends at the end of its turn; when 256 messages are waiting, the engine thread waits.
struct shared_socket_s {
    turn_s<left_send_s, 256, sendLeft> turn;
    // Null while the socket does not exist; messages are then dropped. Read and written in a turn.
    void* handle = nullptr;
    // Messages since the start, but for tag_data. Written in a turn, read by any thread.
    std::atomic<std::uint64_t> sent{0};
    std::atomic<std::uint64_t> refused{0};
};

// tag_data, the only socket that is closed and opened again while reports leave.
struct data_socket_s : shared_socket_s {
    // Bound for outside subscribers (forms STRING and BINARY), or connected (OFF).
    bool outside = false;
    // Where the library tells who comes and goes; null before the socket is made. Made and closed
    // with it; read by the radio thread.
    void* monitor = nullptr;
    // Subscribers that are connected. Written by the radio thread, read by any.
    std::atomic<int> listeners{0};
    // Whether a report that leaves now reaches someone: a subscriber is connected, or the local
    // consumer was and the library keeps reports for it (tagDataHighWaterMark). Otherwise the library
    // drops it. Written by the radio thread, read by any.
    std::atomic<bool> isHeard{false};
};

// The handles. Null before a socket is made and after it is closed. The table above names the
// threads that use them; the main thread makes and closes all of them, the radio thread tag_data too.
namespace sockets {

extern void* context;

extern void* responder;
extern void* events;
extern void* main_from_radio_async;
extern void* main_to_radio;
extern void* main_from_radio;

extern void* radio_from_main;
extern void* radio_to_main;

extern data_socket_s tag_data;
extern shared_socket_s gpio_led;
extern shared_socket_s radio_to_main_async;

// Messages on `events`. Written by the main thread.
extern std::uint64_t eventsSent;
extern std::uint64_t eventsRefused;

}  // namespace sockets

// Sends one frame without blocking. `flags` is 0 or ZMQ_SNDMORE. Returns what
// zmq_send returns, or -1 when the socket is not there. Any thread but the engine thread.
int sendShared(shared_socket_s* socket, const void* data, std::size_t size, int flags);

// Counts a message of gpio_led or radio_to_main_async. In a turn at the socket.
inline void countMessage(shared_socket_s* socket, bool sent) {
    const auto count = [](std::atomic<std::uint64_t>& counter) {
        counter.store(counter.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    };
    sent ? count(socket->sent) : count(socket->refused);
}

// Sends an alarm or a heartbeat on `events`. Main thread.
void sendEvent(std::string_view event);

// Sends one frame of the forms STRING and BINARY (`outside`) or of the form OFF on tag_data.
// A frame that the present socket is not for is dropped: the form may have changed since the frame
// was made. `owner`, if there is one, must outlive the process's sockets. Any thread.
send_result_e sendTagData(bool outside, const void* data, std::size_t size, int flags,
                          const frame_owner_s* owner = nullptr);

// Lets tag_data read the messages of its subscribers, which otherwise wait for the next
// report. Radio thread, at each tick.
void takeSubscriptions();

// The descriptor that is readable when a subscriber of tag_data has come or gone, or -1; another
// one after each createZMQSocketForData. Radio thread.
int listenersDescriptor();
// Counts those that have come or gone since the last call. Radio thread.
void takeListeners();

// News for the main thread: a message of two frames, topic then payload, on
// radio_to_main_async. Never waits: when the main thread is too far behind, the
// message is dropped. Any thread.
void sendNews(std::string_view topic, const void* payload, std::size_t size);

// Creates the context and logs the library's version. Main thread. Returns 0.
int initZMQ();

// Make the sockets of the main thread, then those of the radio side, since an inproc endpoint must
// be bound before the other side connects. Return 0, or -1 after the first failure, which is logged
// and counted; sockets that were made until then stay open. Main thread, at start-up.
int createZMQSocketsForMain();
int createZMQSocketsForRadio();

// Makes tag_data: bound to tcp://*:5160 for outside subscribers, or connected
// to the local data consumer. 0 or -1. Waits for the port, up to a second, where this
// process has just closed it. Main thread at start-up, then radio thread.
int createZMQSocketForData(bool bind);
int closeZMQSocketForData();

// Close the sockets in a fixed order; the first failure ends the function with -1 and
// leaves the rest open. The reply socket's file is removed only if it is still the one
// that this process made. Main thread.
int closeZMQSocketsForRadio();
int closeZMQSocketsForMain();

// Destroys the context; blocks until every socket is closed. Main thread.
int closeZMQ();

// Receives one frame, blocking, and replaces *out with its bytes. 0, or -1 with
// *out untouched. The thread that owns the socket.
int zmq_recv_string(void* receiver, std::string* out);
