// SPDX-License-Identifier: MIT
// The radio thread: a tick twice a second, and the commands that the main thread forwards. It does
// not handle packets.
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <unistd.h>
#include <zmq.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "logger.hpp"
#include "peer_limit.hpp"
#include "radio.hpp"
#include "radio_state.hpp"
#include "rm_client.hpp"
#include "util/descriptor.hpp"
#include "zmq_intfc.hpp"

namespace {

constexpr long tickNanoseconds = 500'000'000;
constexpr int initMessages = 10;
constexpr useconds_t initPauseMicroseconds = 10'000;
constexpr int maxEvents = 3;

// The thread and its attributes. Main thread.
pthread_t radio_thread;
pthread_attr_t radio_attr;

// Filled while the thread starts. Main thread.
reader_names_s names;

bool armTimer(int timer) {
    itimerspec tick{};
    tick.it_value.tv_nsec = tickNanoseconds;
    tick.it_interval.tv_nsec = tickNanoseconds;
    return timerfd_settime(timer, 0, &tick, nullptr) == 0;
}

void watch(int epoll, int fd, std::uint32_t mask, const char* failure) {
    epoll_event event{};
    event.events = mask;
    event.data.fd = fd;
    if (epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event) != 0) {
        logCountedError("radio", failure, std::strerror(errno));
    }
}

int requestDescriptor() {
    int fd = -1;
    std::size_t size = sizeof fd;
    zmq_getsockopt(sockets::radio_from_main, ZMQ_FD, &fd, &size);
    return fd;
}

bool isRequestWaiting() {
    int events = 0;
    std::size_t size = sizeof events;
    return zmq_getsockopt(sockets::radio_from_main, ZMQ_EVENTS, &events, &size) == 0 &&
           (events & ZMQ_POLLIN) != 0;
}

// One tick, also when several half seconds have passed since the last one.
void onTimer(int timer) {
    std::uint64_t expiries = 0;
    if (read(timer, &expiries, sizeof expiries) != static_cast<ssize_t>(sizeof expiries)) {
        logCountedError("radio", " problem with read");
        return;
    }
    do_background_activity_radio_thread();
    takeSubscriptions();
    tellRefusedPeers();
}

// Serves one request. Without a request (EAGAIN) it does not send a reply.
void serveRequest() {
    std::string request;
    std::string response;
    if (zmq_recv_string(sockets::radio_from_main, &request) == 0) {
        ProcessInternalRequest(&request, &response);
    } else {
        const int error = errno;
        logCountedError("radio", " err: ", std::strerror(error), "(", error, ")");
        if (error == EAGAIN) {
            return;
        }
        response = "Failure: Request not properly formed";
    }
    zmq_send(sockets::radio_to_main, response.data(), response.size(), ZMQ_DONTWAIT);
}

// The socket's descriptor is edge-triggered and only signals a change, so all waiting requests are
// served.
void onRequests() {
    while (isRequestWaiting()) {
        serveRequest();
    }
}

// Wakes this thread when a subscriber comes or goes. A request may have made tag_data anew, with another
// descriptor; one that is watched already stays so.
void watchListeners(int epoll) {
    if (const int fd = listenersDescriptor(); fd >= 0) {
        epoll_event event{};
        event.events = EPOLLIN | EPOLLET;
        event.data.fd = fd;
        epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event);
    }
}

// Waits for events. The thread can be cancelled only here, where it holds no lock and no work is
// half done.
int waitForEvents(int epoll, std::array<epoll_event, maxEvents>* events) {
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
    const int count = epoll_wait(epoll, events->data(), maxEvents, -1);
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    return count;
}

[[noreturn]] void serve(int epoll, int timer) {
    std::array<epoll_event, maxEvents> events{};
    for (;;) {
        watchListeners(epoll);
        takeListeners();
        const int count = waitForEvents(epoll, &events);
        for (int i = 0; i < count; ++i) {
            if (events[static_cast<std::size_t>(i)].data.fd == timer) {
                onTimer(timer);
            } else {
                onRequests();
            }
        }
    }
}

}  // namespace

const reader_names_s& readerNames() {
    return names;
}

void* radio_thread_fcn(void*) {
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    const descriptor epoll(epoll_create1(0));
    const descriptor timer(timerfd_create(CLOCK_REALTIME, TFD_NONBLOCK));
    if (timer.get() < 0) {
        std::printf("failed to create background timer: %s", std::strerror(errno));
        return nullptr;
    }
    if (epoll.get() < 0) {
        logCountedError("radio", " failed to create epoll instance");
        return nullptr;
    }
    if (!armTimer(timer.get())) {
        logCountedError("radio", " failed to set background reset timer: ", std::strerror(errno));
        return nullptr;
    }
    watch(epoll.get(), timer.get(), EPOLLIN, " error adding background_timer_event: ");
    watch(epoll.get(), requestDescriptor(), EPOLLIN | EPOLLOUT | EPOLLET, " error adding responder_event: ");
    // The main thread ignores "init"; the messages only establish the connection.
    for (int i = 0; i < initMessages; ++i) {
        sendShared(&sockets::radio_to_main_async, "init", 4, 0);
        usleep(initPauseMicroseconds);
    }
    serve(epoll.get(), timer.get());
}

int startRadioThread() {
    pthread_attr_init(&radio_attr);
    pthread_attr_setdetachstate(&radio_attr, PTHREAD_CREATE_JOINABLE);
    if (pthread_create(&radio_thread, &radio_attr, radio_thread_fcn, nullptr) != 0) {
        return -1;
    }
    pthread_setname_np(radio_thread, "radio");
    getReaderDetails(&names.rdr_mac, &names.rdr_hostname);
    return 0;
}

int stopRadioThread() {
    RXE_stop();
    pthread_cancel(radio_thread);
    pthread_attr_destroy(&radio_attr);
    return pthread_join(radio_thread, nullptr);
}
