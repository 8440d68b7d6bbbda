// SPDX-License-Identifier: MIT
// The inputs of the software radio engine: its two files, its control socket, the
// payloads that it decodes, and the records that the host gives it.
#include "targets.hpp"

#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <ctime>
#include <memory>
#include <mutex>

#include "codec.hpp"
#include "replay.hpp"
#include "rxe.h"
#include "scenario.hpp"

namespace {

bool isLine(const std::string& text) {
    return !text.empty() && text.find('\n') == std::string::npos;
}

void scenario(std::string_view input) {
    setenv("RXE_SCENARIO", fileOf(input), 1);
    rxe::scenario_s read;
    std::string error;
    require(loadScenario(&read, &error) || isLine(error), "what is wrong is one line");
}

void controlEvent(std::string_view input) {
    rxe::event_s event;
    readEvent(input, &event);
}

// The raw type in two bytes, low byte first, and a payload. The record is in a block of exactly its
// size, so that a sanitizer sees a write behind it.
template <class Record>
void decodeAs(std::uint16_t type, std::span<const std::uint8_t> payload) {
    const auto record = std::make_unique<Record>();
    rxe::decodePayload(type, payload, record.get());
}
void payload(std::string_view input) {
    constexpr struct {
        std::uint16_t type;
        void (*decode)(std::uint16_t, std::span<const std::uint8_t>);
    } types[] = {
        {RXE_PACKET_TAG_INFO_CUSTOM, decodeAs<TAG_INFO_s>},
        {RXE_PACKET_TAG_INFO_COMPLETE, decodeAs<TAG_INFO_s>},
        {RXE_PACKET_ACCESS_INFO, decodeAs<ACCESS_INFO_s>},
        {RXE_PACKET_PARALLEL_RSSI_DEBUG, decodeAs<PARALLEL_RSSI_s>},
        {RXE_PACKET_START_INFO3, decodeAs<START_INFO_s>},
        {RXE_PACKET_DB_WARNING, decodeAs<DB_WARNING_s>},
    };
    if (!input.empty()) {
        const auto& row = types[static_cast<std::uint8_t>(input.front()) % std::size(types)];
        row.decode(row.type, {reinterpret_cast<const std::uint8_t*>(input.data()) + 1, input.size() - 1});
    }
}

// ---- runs

// How far the clock of the process is ahead of the real one, nanoseconds: each wait of the radio ends at
// once, and the clock moves on to the end of the wait. Written by the radio thread.
std::atomic<std::int64_t> ahead{0};
pthread_t host;

// The run under way. Written by the radio thread; `over` wakes the host.
constexpr unsigned enoughPackets = 40;
constexpr unsigned enoughWaits = 8;
std::mutex mutex;
std::condition_variable over;
std::atomic<unsigned> delivered{0};
std::atomic<unsigned> waited{0};
std::atomic<unsigned> ended{0};

bool isOver() {
    return delivered >= enoughPackets || waited >= enoughWaits || ended > 0;
}

void tellHost() {
    if (isOver()) {
        const std::lock_guard lock(mutex);
        over.notify_one();
    }
}

int count(RXE_packet_s* packet) {
    ++delivered;
    ended += packet->type == RXE_PACKET_END_OF_RUN ? 1 : 0;
    tellHost();
    return 0;
}

// A new radio thread for each input would take a third of the time under the address sanitizer, so one
// thread does the work for all inputs.
struct worker_s {
    std::mutex mutex;
    std::condition_variable changed;
    void* (*work)(void*) = nullptr;  // null: none
    void* argument = nullptr;
    pthread_t thread{};
};
worker_s& worker = *new worker_s;
bool radioStarts = false;  // the thread that is made now is the radio's; the host's

void* workOn(void*) {
    std::unique_lock lock(worker.mutex);
    for (;;) {
        worker.changed.wait(lock, [] { return worker.work != nullptr; });
        lock.unlock();
        worker.work(worker.argument);
        lock.lock();
        worker.work = nullptr;
        worker.changed.notify_all();
    }
}

bool connect(char model) {
    constexpr const char* models[] = {"any", "PN5100", "PN8200", "QDX4400"};
    const std::string text = R"({"control": "none", "clock": "fast", "model": ")" +
                             std::string(models[model & 3]) + R"(", "tags": {"count": 12}})";
    setenv("RXE_SCENARIO", fileOf(text, 1), 1);
    host = pthread_self();
    char device[] = "/dev/ttyS1";
    radioStarts = true;
    const bool connected = RXE_connect(device, 460800) == RXE_OK;
    radioStarts = false;
    return connected && RXE_setCallback(count) == RXE_OK;
}

// A run until it ends, waits for the host, or has sent enough packets. A plan may send nothing and never
// wait, so a limit of time ends it as well.
bool run() {
    constexpr std::chrono::microseconds patience{600};
    delivered = waited = ended = 0;
    if (RXE_start() != RXE_OK) {
        return false;
    }
    std::unique_lock lock(mutex);
    over.wait_for(lock, patience, isOver);
    lock.unlock();
    require(RXE_stop() == RXE_OK, "a run can be stopped");
    return true;
}

// A packet log: it is read and, when it has a packet, up to four runs are played back.
void packetLog(std::string_view input) {
    setenv("RXE_REPLAY_SPEED", "fast", 1);
    setenv("RXE_REPLAY", fileOf(input), 1);
    rxe::replay_s replay;
    std::string error;
    require(loadReplay(&replay, &error) || isLine(error), "what is wrong is one line");
    for (const rxe::replay_packet_s& packet : replay.packets) {
        require(packet.offset + packet.length <= replay.bytes.size(), "a packet lies within its file");
    }
    if (!replay.packets.empty()) {
        require(connect('0'), "the engine connects with a log that can be read");
        for (std::size_t i = 0; i < 4; ++i) {
            run();
        }
        RXE_disconnect();
    }
    unsetenv("RXE_REPLAY");
}

// Limits each run to 20 ms of the engine's clock. A limit by real time would make the runs of one input
// differ.
void limitRun() {
    constexpr std::uint32_t longest = 20;  // ms
    for (const std::uint16_t id : {RXE_PARAM_RADIO_STOP, RXE_PARAM_RADIO_STOP2}) {
        PER_RADIO_STOP2_s stop{};  // the front of it is the other's record
        if (RXE_getParam(id, &stop) == RXE_OK && (stop.duration == 0 || stop.duration > longest)) {
            stop.duration = longest;
            require(RXE_setParam2(id, &stop, true, false) == RXE_OK, "any duration is taken");
        }
    }
}

// The reader's model, then records, without the zeros at their end:
//
//   | id, low byte first: 2 | bytes: 1 | record |
//
// The records that the radio accepts are read back, and then it runs with them.
void parameters(std::string_view input) {
    require(connect(input.empty() ? '0' : input.front()), "the engine connects");
    input.remove_prefix(input.empty() ? 0 : 1);
    while (input.size() >= 3) {
        const auto at = [&input](std::size_t i) { return static_cast<std::uint8_t>(input[i]); };
        const auto id = static_cast<std::uint16_t>(at(0) | at(1) << 8);
        const std::size_t length = std::min<std::size_t>(at(2), input.size() - 3);
        // The largest record; the library takes as much of it as belongs to the id.
        alignas(8) std::array<std::uint8_t, sizeof(ACCESS_OP_s)> record{};
        std::memcpy(record.data(), input.data() + 3, length);
        if (RXE_setParam2(id, record.data(), true, at(2) % 2 != 0) == RXE_OK) {
            RXE_getParam(id, record.data());
        }
        input.remove_prefix(3 + length);
    }
    limitRun();
    require(!run() || ended == 1, "a run says once that it has ended");
    RXE_disconnect();
}

constexpr target_s table[] = {
    {"scenario", scenario, 4096}, {"control_event", controlEvent, 256}, {"packet_log", packetLog, 1024},
    {"payload", payload, 1024},   {"parameters", parameters, 1024},
};

}  // namespace

const std::span<const target_s> targets = table;

// The engine's library calls these in place of the system's.
std::chrono::steady_clock::time_point std::chrono::steady_clock::now() noexcept {
    timespec real{};
    clock_gettime(CLOCK_MONOTONIC, &real);
    return time_point(seconds(real.tv_sec) + nanoseconds(real.tv_nsec) + nanoseconds(ahead.load()));
}
// The sanitizer's own, where it is part of the executable.
extern "C" int __interceptor_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                                            void* (*work)(void*), void* argument) __attribute__((weak));
extern "C" int __interceptor_pthread_join(pthread_t thread, void** result) __attribute__((weak));
extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*work)(void*),
                              void* argument) {
    static auto* const systems =
        __interceptor_pthread_create != nullptr
            ? __interceptor_pthread_create
            : reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
    if (!radioStarts) {
        return systems(thread, attributes, work, argument);
    }
    if (worker.thread == pthread_t{} && systems(&worker.thread, nullptr, workOn, nullptr) != 0) {
        return EAGAIN;
    }
    const std::lock_guard lock(worker.mutex);
    worker.work = work;
    worker.argument = argument;
    worker.changed.notify_all();
    *thread = worker.thread;
    return 0;
}
extern "C" int pthread_join(pthread_t thread, void** result) {
    static auto* const systems =
        __interceptor_pthread_join != nullptr
            ? __interceptor_pthread_join
            : reinterpret_cast<decltype(&pthread_join)>(dlsym(RTLD_NEXT, "pthread_join"));
    if (pthread_equal(thread, worker.thread) == 0) {
        return systems(thread, result);
    }
    std::unique_lock lock(worker.mutex);
    worker.changed.wait(lock, [] { return worker.work == nullptr; });
    return 0;
}
extern "C" int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* lock, clockid_t clock,
                                      const timespec* end) {
    using namespace std::chrono;
    static auto* const systems =
        reinterpret_cast<decltype(&pthread_cond_clockwait)>(dlsym(RTLD_NEXT, "pthread_cond_clockwait"));
    const nanoseconds due = seconds(end->tv_sec) + nanoseconds(end->tv_nsec);
    if (pthread_equal(pthread_self(), host) != 0) {
        const std::int64_t real = (due - nanoseconds(ahead.load())).count();
        const timespec when{static_cast<std::time_t>(real / 1'000'000'000),
                            static_cast<long>(real % 1'000'000'000)};
        return systems(condition, lock, clock, &when);
    }
    const nanoseconds rest = due - steady_clock::now().time_since_epoch();
    ahead += std::max<std::int64_t>(rest.count(), 0);
    pthread_mutex_unlock(lock);
    ++waited;
    tellHost();
    pthread_mutex_lock(lock);
    return ETIMEDOUT;
}
