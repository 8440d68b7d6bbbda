// SPDX-License-Identifier: MIT
// The cost that the simulator adds to a report: processor time of its thread for each report at a
// requested 100,000 reports a second, against reports of the same tags whose packets are delivered
// directly, as report_path_bench does. There is not a subscriber, so both contain only the daemon's own
// work. Both run in turn; the verdict is the median of the ratios without noise. The cost of noise, a
// logarithm and a sine, is printed as well.
//
// Exit status 1 when an aim is missed.
#include <stdlib.h>
#include <time.h>
#include <zmq.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <thread>

#include "apply/apply.hpp"
#include "measure.hpp"
#include "mode/defaults.hpp"
#include "radio.hpp"
#include "simulator.hpp"
#include "zmq_intfc.hpp"

namespace {

constexpr int tagsPerSecond = 100'000;
constexpr std::uint64_t slice = tagsPerSecond / 4;  // reports in one go of the simulator
constexpr int slices = 3;                           // of one round
constexpr int rounds = 7;
constexpr unsigned tagCount = 200;
constexpr double aim = 1.10;

std::string tagId(unsigned tag) {
    char text[32];
    std::snprintf(text, sizeof text, "3074257BF7194E4000%06X", tag);
    return text;
}

void writeFiles() {
    std::ofstream("aar.json") << R"({"aar_info": [{"x":0,"y":0,"z":3,"orientation":0}]})";
    std::ofstream tags("tag.json");
    tags << R"({"tag_info": [)";
    for (unsigned tag = 0; tag <= tagCount; ++tag) {  // the simulator leaves out the last
        tags << (tag == 0 ? "" : ",") << R"({"tag_id":")" << tagId(tag) << R"(","x":)" << tag % 20
             << R"(,"y":)" << tag / 20 << R"(,"z":1})";
    }
    tags << "]}";
}

using packet_t = std::vector<std::uint8_t>;

// Packets like the simulator's: its tags and bearings in random order, so that branches are as hard to
// predict as there. Drawn before the measurement.
struct draw_s {
    unsigned tag;
    std::array<std::uint8_t, 4> bearing;  // at the end of the packet, before the confidences
};
struct reports_s {
    std::vector<packet_t> packets;
    std::vector<draw_s> draws;
};

reports_s makeReports() {
    reports_s reports;
    for (unsigned tag = 0; tag < tagCount; ++tag) {
        packet_t packet(sizeof(RXE_packet_s) + maxSimulatedPayload);
        RXE_packet_s* head = headOf(&packet);
        buildTagPacket(tagId(tag), 0, 0, head);
        packet.resize(sizeof *head + head->length);
        reports.packets.push_back(packet);
    }
    std::mt19937 random(1);
    for (std::uint64_t i = 0; i < slices * slice; ++i) {
        const unsigned azimuth = random() % 3600;
        const unsigned elevation = random() % 900;
        const auto byte = [](unsigned value) { return static_cast<std::uint8_t>(value); };
        reports.draws.push_back({static_cast<unsigned>(random() % tagCount),
                                 {byte(azimuth >> 8), byte(azimuth), byte(elevation >> 8), byte(elevation)}});
    }
    return reports;
}

double secondsOn(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

// The processor clock of the simulator's thread, made from its id by the kernel's encoding: thread
// clock, scheduler time.
clockid_t simulatorClock() {
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::getline(std::ifstream(task.path() / "comm"), name);
        if (name == "simulator") {
            return ~std::stoi(task.path().filename()) * 8 | 6;
        }
    }
    std::fprintf(stderr, "the simulator does not run\n");
    std::exit(2);
}

// Waits until the simulator has sent `count` packets and pauses.
void awaitPackets(std::uint64_t count) {
    while (radio::packetRxCount < count) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    if (radio::packetRxCount != count) {
        std::fprintf(stderr, "a slice takes longer than its time: the figures would be void\n");
        std::exit(2);
    }
}

// Seconds of the processor for one report of the simulator, with noise of `degrees`.
double ofSimulator(float degrees) {
    const std::uint64_t before = radio::packetRxCount;
    startSimulationThread(0, tagsPerSecond, degrees, degrees);
    awaitPackets(before + slice);
    const clockid_t clock = simulatorClock();
    const double start = secondsOn(clock);
    awaitPackets(before + (1 + slices) * slice);
    const double seconds = secondsOn(clock) - start;
    stopSimulationThread();
    return seconds / (slices * slice);
}

// The same for packets that are delivered directly, also by a thread of their own.
double ofReports(reports_s* reports) {
    double seconds = 0;
    std::thread engine([&] {
        const double start = secondsOn(CLOCK_THREAD_CPUTIME_ID);
        for (const draw_s& draw : reports->draws) {
            packet_t& packet = reports->packets[draw.tag];
            std::ranges::copy(draw.bearing, packet.end() - 6);
            getPacket(headOf(&packet));
        }
        seconds = secondsOn(CLOCK_THREAD_CPUTIME_ID) - start;
    });
    engine.join();
    return seconds / static_cast<double>(reports->draws.size());
}

void* publisher(const std::string& endpoint) {
    void* socket = zmq_socket(sockets::context, ZMQ_PUB);
    if (zmq_bind(socket, endpoint.c_str()) != 0) {
        std::perror(endpoint.c_str());
        std::exit(2);
    }
    return socket;
}

}  // namespace

int main() {
    char directory[] = "/tmp/simulator_bench_XXXXXX";
    if (mkdtemp(directory) == nullptr) {
        std::perror("mkdtemp");
        return 2;
    }
    std::filesystem::current_path(directory);
    writeFiles();
    reports_s reports = makeReports();
    sockets::context = zmq_ctx_new();
    sockets::tag_data.handle = publisher("inproc://reports");
    sockets::gpio_led.handle = publisher("inproc://lines");
    initMode();
    setDefaultMode(&mode_configuration);
    setDefaultInventoryMode(&mode_configuration);
    publishReportPlan(mode_configuration, toldAccesses);
    std::freopen("output", "w", stdout);  // the simulator's own
    std::vector<double> ratios;
    std::vector<double> noisyRatios;
    std::vector<double> nanoseconds;
    ofReports(&reports);  // to the steady state
    for (int round = 0; round < rounds; ++round) {
        const double alone = ofReports(&reports);
        const double simulated = ofSimulator(0);
        ratios.push_back(simulated / alone);
        noisyRatios.push_back(ofSimulator(2) / alone);
        nanoseconds.push_back(simulated * 1e9);
    }
    zmq_close(sockets::tag_data.handle);
    zmq_close(sockets::gpio_led.handle);
    zmq_ctx_destroy(sockets::context);
    std::filesystem::current_path("/");
    std::filesystem::remove_all(directory);
    const double ratio = median(ratios);
    std::fprintf(stderr, "json: ratio %.3f, aim %.2f %s  (with noise %.3f)  %.0f ns a report\n", ratio, aim,
                 ratio <= aim ? "met" : "MISSED", median(noisyRatios), median(nanoseconds));
    return ratio <= aim ? 0 : 1;
}
