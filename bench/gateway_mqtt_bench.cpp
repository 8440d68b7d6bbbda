// SPDX-License-Identifier: MIT
// twgate with a real mosquitto, which has its own defaults but for the length of its queues:
// - 10,000 reports a second from a socket to a subscriber at QoS 1: what is lost, how long a report takes
//   from the daemon's side of the socket to the subscriber, and what twgate takes of a core;
// - catching up from the spool, against libmosquitto alone with the same messages, in turn;
// - twgate with 1,000,000 events pending, since the server is away: memory, disk, time of a start.
//
//   gateway_mqtt_bench [SECONDS]    of the first part; the default is 60
//
// Files go to TMPDIR. Exit status 1 when an aim is missed.
#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "gateway/program.hpp"
#include "gateway/server.hpp"
#include "gateway_load.hpp"
#include "verdict.hpp"

namespace {

using namespace std::chrono_literals;
using steady_t = std::chrono::steady_clock;

constexpr std::uint64_t rate = 10'000;  // reports a second
constexpr std::uint64_t catchUp = 100'000;
constexpr int rounds = 3;
constexpr std::uint64_t pending = 1'000'000;
constexpr std::uint64_t fillRate = 100'000;  // reports a second
constexpr int window = 200;                  // messages in flight, of the sink and of the bare client
constexpr const char* topic = "tarnwick/dock/tags";
constexpr double mebi = 1024.0 * 1024.0;

// mosquitto on a free port of the loopback interface.
struct server_s {
    server_s() {
        writeTextFile(directory.path / "conf",
                      "user root\nallow_anonymous true\nmax_queued_messages 0\n"
                      "log_type error\nlog_type information\nlistener " +
                          std::to_string(port) + " 127.0.0.1\n");
        process = std::make_unique<process_s>("/usr/sbin/mosquitto",
                                              process_options_s{{"-c", directory.path / "conf"}, {}, {}});
        if (!process->waitForOutput("running")) {
            throw std::runtime_error("mosquitto: " + process->output());
        }
    }
    std::string url() const { return "mqtt://127.0.0.1:" + std::to_string(port); }

    temp_dir_s directory;
    const int port = freePort();
    std::unique_ptr<process_s> process;
};

// A client of libmosquitto whose callbacks, on the library's thread, get the object behind it.
struct client_s {
    client_s(int port, void* owner) : handle(mosquitto_new(nullptr, true, owner)), serverPort(port) {
        mosquitto_int_option(handle, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
        mosquitto_int_option(handle, MOSQ_OPT_SEND_MAXIMUM, window);
        mosquitto_int_option(handle, MOSQ_OPT_TCP_NODELAY, 1);
    }
    ~client_s() {
        mosquitto_disconnect(handle);
        mosquitto_loop_stop(handle, false);
        mosquitto_destroy(handle);
    }
    client_s(const client_s&) = delete;
    client_s& operator=(const client_s&) = delete;

    void connect() const {
        if (mosquitto_connect(handle, "127.0.0.1", serverPort, 60) != MOSQ_ERR_SUCCESS ||
            mosquitto_loop_start(handle) != MOSQ_ERR_SUCCESS) {
            throw std::runtime_error("mosquitto is not there");
        }
    }

    mosquitto* handle;
    const int serverPort;
};

std::int64_t nowNanoseconds() {
    return steady_t::now().time_since_epoch().count();
}

// When each report went into the socket, and how long it took to the subscriber's callback.
struct way_s {
    explicit way_s(std::uint64_t count) : sentAt(count), took(count) {}

    std::vector<std::atomic<std::int64_t>> sentAt;  // ns
    std::vector<std::atomic<std::int64_t>> took;    // ns; 0: has not come
    std::atomic<std::uint64_t> came{0}, repeats{0};
    std::atomic<bool> isSubscribed{false};
};

void takeMessage(mosquitto*, void* owner, const mosquitto_message* message) {
    way_s& way = *static_cast<way_s*>(owner);
    constexpr std::string_view key = "\"eventNum\":";
    const std::string_view body(static_cast<const char*>(message->payload),
                                static_cast<std::size_t>(message->payloadlen));
    const std::size_t at = body.find(key);
    const std::size_t number =
        at == body.npos ? way.took.size() : std::strtoull(body.data() + at + key.size(), nullptr, 10);
    if (number < way.took.size()) {
        const std::int64_t took = std::max<std::int64_t>(1, nowNanoseconds() - way.sentAt[number]);
        std::int64_t nothing = 0;
        way.took[number].compare_exchange_strong(nothing, took) ? ++way.came : ++way.repeats;
    }
}

// Seconds of the processor that a process has had.
double processorTime(pid_t pid) {
    std::string stat = readTextFile("/proc/" + std::to_string(pid) + "/stat");
    std::istringstream fields(stat.substr(stat.rfind(')') + 2));
    constexpr int before = 11;  // fields from the state to utime
    std::string skipped;
    double user = 0, system = 0;
    for (int i = 0; i < before; ++i) {
        fields >> skipped;
    }
    fields >> user >> system;
    return (user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

// Seconds that all processors together were not idle.
double busyTime() {
    std::istringstream fields(readTextFile("/proc/stat"));
    std::string word;
    double user = 0, nice = 0, system = 0, idle = 0, waiting = 0, interrupts = 0, soft = 0, stolen = 0;
    fields >> word >> user >> nice >> system >> idle >> waiting >> interrupts >> soft >> stolen;
    return (user + nice + system + interrupts + soft + stolen) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

// A line of /proc/PID/status, such as VmRSS, in MiB.
double memoryOf(pid_t pid, const std::string& line) {
    const std::string status = readTextFile("/proc/" + std::to_string(pid) + "/status");
    return std::strtod(status.c_str() + status.find(line + ":") + line.size() + 1, nullptr) / 1024.0;
}

std::string siteSink(const std::string& url) {
    return R"([{"name": "site", "type": "mqtt", "url": ")" + url + "\"}]";
}

// So that `perSecond` reports go in a second, as many as fall into a millisecond together.
void waitForTurn(steady_t::time_point begin, std::uint64_t perSecond, std::uint64_t number) {
    const std::uint64_t together = perSecond / 1'000;
    if (number % together == 0) {
        std::this_thread::sleep_until(begin + std::chrono::milliseconds(number / together));
    }
}

bool deliverSteadily(std::uint64_t seconds) {
    const std::uint64_t count = rate * seconds;
    const server_s server;
    way_s way(count);
    const client_s subscriber(server.port, &way);
    mosquitto_message_callback_set(subscriber.handle, takeMessage);
    mosquitto_subscribe_callback_set(subscriber.handle, [](mosquitto*, void* owner, int, int, const int*) {
        static_cast<way_s*>(owner)->isSubscribed = true;
    });
    subscriber.connect();
    mosquitto_subscribe(subscriber.handle, nullptr, topic, 1);
    gateway_s gateway(siteSink(server.url()));
    gateway.start();
    const publisher_s tags(gateway.endpoint("data"));
    tags.waitForSubscriber();
    eventually([&] { return way.isSubscribed.load(); });

    const auto partsUsed = [&] {
        return processorTime(gateway.process->pid) + processorTime(server.process->pid) +
               processorTime(getpid());
    };
    const double before = processorTime(gateway.process->pid);
    const double othersBefore = busyTime() - partsUsed();
    const auto begin = steady_t::now();
    for (std::uint64_t number = 0; number < count; ++number) {
        waitForTurn(begin, rate, number);
        const std::string body = reportOf(number);
        way.sentAt[number] = nowNanoseconds();
        tags.send({body});
    }
    const double lasted = std::chrono::duration<double>(steady_t::now() - begin).count();
    const double used = processorTime(gateway.process->pid) - before;
    const double others = busyTime() - partsUsed() - othersBefore;
    eventually([&] { return way.came == count; });

    std::vector<double> milliseconds;
    for (const auto& took : way.took) {
        if (took != 0) {
            milliseconds.push_back(static_cast<double>(took) / 1e6);
        }
    }
    std::ranges::sort(milliseconds);
    const auto at = [&](double part) {
        const auto last = static_cast<double>(milliseconds.size() - 1);
        return milliseconds.empty() ? 1e9 : milliseconds[static_cast<std::size_t>(part * last)];
    };
    std::printf("%s reports in %.1f s: p50 %.1f ms, p99 %.1f ms, most %.1f ms, %s came twice\n",
                std::to_string(count).c_str(), lasted, at(0.5), at(0.99), at(1.0),
                std::to_string(way.repeats.load()).c_str());
    std::printf(
        "memory %.1f MiB; other programs had %.0f %% of the processors, and above 20 %% the times say "
        "little\n",
        memoryOf(gateway.process->pid, "VmHWM"),
        100 * others / lasted / static_cast<double>(sysconf(_SC_NPROCESSORS_ONLN)));
    bool met = atLeast("reports/s from the socket", static_cast<double>(count) / lasted, 0.99 * rate);
    met &= atMost("reports that never came", static_cast<double>(count - way.came), 0);
    met &= atMost("p99 from frame to subscriber, ms", at(0.99), 100);
    met &= atMost("twgate, % of a core", 100 * used / lasted, 60);
    return met;
}

// libmosquitto alone: seconds for messages as the sink makes them.
struct bare_s {
    std::mutex mutex;
    std::condition_variable changed;
    std::uint64_t acknowledged = 0;
};

constexpr std::uint64_t mostQueued = 2'000;  // in the library, so that it never waits for this thread

double publishBare(const server_s& server, const std::vector<std::string>& bodies) {
    bare_s bare;
    const client_s client(server.port, &bare);
    mosquitto_publish_callback_set(client.handle, [](mosquitto*, void* owner, int) {
        bare_s& state = *static_cast<bare_s*>(owner);
        const std::lock_guard guard(state.mutex);
        ++state.acknowledged;
        state.changed.notify_one();
    });
    client.connect();
    entry_s entry{
        .reader = "dock", .key = "30340a0b0c0d0e0f10111213", .boot = 1, .number = 0, .body = bodies[0]};
    std::vector<attribute_s> attributes = attributesOf(entry);
    const auto id = std::ranges::find(attributes, "id", &attribute_s::name);
    return secondsFor([&] {
        for (std::uint64_t i = 0; i < bodies.size(); ++i) {
            id->value = "1/" + std::to_string(i);
            mosquitto_property* properties = nullptr;
            mosquitto_property_add_string(&properties, MQTT_PROP_CONTENT_TYPE, eventContentType.data());
            for (const attribute_s& attribute : attributes) {
                mosquitto_property_add_string_pair(&properties, MQTT_PROP_USER_PROPERTY,
                                                   attribute.name.data(), attribute.value.c_str());
            }
            mosquitto_publish_v5(client.handle, nullptr, topic, static_cast<int>(bodies[i].size()),
                                 bodies[i].data(), 1, false, properties);
            mosquitto_property_free_all(&properties);
            std::unique_lock lock(bare.mutex);
            bare.changed.wait(lock, [&] { return i + 1 - bare.acknowledged < mostQueued; });
        }
        std::unique_lock lock(bare.mutex);
        bare.changed.wait(lock, [&] { return bare.acknowledged == bodies.size(); });
    });
}

bool catchUpAgainstBare() {
    const server_s server;
    const temp_dir_s directory;
    const std::vector<std::string> bodies = reportsUpTo(catchUp);
    const sink_config_s sink{.name = "site",
                             .type = "mqtt",
                             .streams = streamBit(stream_e::tags),
                             .reader = "dock",
                             .settings = {{"url", server.url()}}};
    spool_c spool;
    spool_config_s config;
    config.directory = directory.path / "spool";
    if (std::string error; !spool.open(config, &error)) {
        throw std::runtime_error(error);
    }
    spool.start();
    spool.setSinks({sink});
    std::vector<double> own, bare;
    for (int round = 0; round < rounds; ++round) {
        fillSpool(&spool, bodies);
        own.push_back(emptySpool(&spool, sink));
        bare.push_back(publishBare(server, bodies));
    }
    const double ownRate = catchUp / middleOf(own), bareRate = catchUp / middleOf(bare);
    const auto left = static_cast<double>(pendingIn(&spool));
    spool.stop();
    std::printf("out of the spool to MQTT %.0f/s, libmosquitto alone %.0f/s\n", ownRate, bareRate);
    bool met = atMost("reports that are left in the spool", left, 0);
    met &= atLeast("MQTT against libmosquitto alone", ownRate / bareRate, 1.0 / 3);
    return met;
}

bool waitWithFullSpool() {
    gateway_s gateway(siteSink("mqtt://127.0.0.1:1"));
    gateway.start();
    double payload = 0;
    {
        const publisher_s tags(gateway.endpoint("data"));
        tags.waitForSubscriber();
        const auto begin = steady_t::now();
        for (std::uint64_t number = 0; number < pending; ++number) {
            waitForTurn(begin, fillRate, number);
            const std::string body = reportOf(number);
            payload += static_cast<double>(body.size());
            tags.send({body});
        }
        eventually([&] { return gateway.source().at("heard") == pending; });
    }
    const auto missing = pending - gateway.sink("site").at("pending").get<std::uint64_t>();
    if (missing > 0) {
        std::printf("%s", gateway.askStatus().second.c_str());
    }
    const double memory = memoryOf(gateway.process->pid, "VmRSS");
    double disk = 0;
    for (const auto& file : std::filesystem::directory_iterator(gateway.directory.path / "spool")) {
        disk += static_cast<double>(file.file_size());
    }
    gateway.process->signal(SIGKILL);
    gateway.process->waitForExit();
    const double start = secondsFor([&] { gateway.start(); });
    const double memoryAfter = memoryOf(gateway.process->pid, "VmRSS");
    std::printf("%.1f MiB of reports, %.1f MiB on disk, memory %.1f MiB, after a kill and a start %.1f MiB\n",
                payload / mebi, disk / mebi, memory, memoryAfter);
    bool met = atMost("reports that are not pending", static_cast<double>(missing), 0);
    met &= atMost("memory with all of them pending, MiB", std::max(memory, memoryAfter), 40);
    met &= atMost("disk against the payload", disk / payload, 1.5);
    met &= atMost("start with a full spool, s", start, 2);
    return met;
}

}  // namespace

int main(int argc, char** argv) {
    const std::uint64_t seconds = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 60;
    if (argc > 2 || seconds == 0) {
        std::fprintf(stderr, "gateway_mqtt_bench [SECONDS]\n");
        return 2;
    }
    mosquitto_lib_init();
    bool met = deliverSteadily(seconds);
    met &= catchUpAgainstBare();
    met &= waitWithFullSpool();
    return met ? 0 : 1;
}
