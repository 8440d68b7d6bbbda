// SPDX-License-Identifier: MIT
// The cost of a tag report from the engine's packet until ZeroMQ has its bytes, its TAG_READ line
// included, as a ratio to bare zmq_send calls of the same bytes on similar sockets. Both run in turn,
// burst by burst, in one process; the verdict is the median of the ratios of neighbouring bursts.
//
//   report_path_bench                        the table, exit status 1 when an aim is missed;
//                                            then the instructions of a report, counted
//                                            under valgrind
//   report_path_bench reports <name> <n>     only n reports in that form (json, string or
//                                            binary), or of that mode (memory, accesses or
//                                            keys)
#include <unistd.h>
#include <zmq.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "additional_config.hpp"
#include "apply/apply.hpp"
#include "measure.hpp"
#include "mode/defaults.hpp"
#include "radio.hpp"
#include "rxe.h"
#include "simulator.hpp"
#include "zmq_intfc.hpp"

namespace {

constexpr int burst = 512;  // reports
// Messages that a socket holds, as on the daemon's tag_data. A publisher is told that messages were read
// only after half as many, so a burst must be smaller than half.
constexpr int highWaterMark = 2048;
constexpr int rounds = 200;

// A line such as "TAG_READ,2026-03-01T08:05:09.007+0100".
constexpr std::size_t lineBytes = 37;

struct form_s {
    std::string_view name;
    data_analytics_e type;
    bool hasLine;        // a TAG_READ line goes with the report
    double aimAlone;     // largest good ratio without a subscriber
    double aimFollowed;  // and with one
    long long aimInstructions;
};
constexpr std::array forms{
    form_s{"json", DATA_ANALYTICS_OFF, true, 3.0, 2.0, 3000},
    form_s{"string", DATA_ANALYTICS_STRING, true, 3.0, 2.0, 3000},
    form_s{"binary", DATA_ANALYTICS_BINARY, false, 3.0, 1.6, 2600},
};

// Modes whose reports wait for more packets; only their instructions are counted.
struct waiting_mode_s {
    std::string_view name;
    long long aimInstructions;
    std::vector<std::uint8_t> accesses;  // RXE_ACCESS_*, ids from 1
    bool asMetadata;
    bool withKeys;  // the additional-keys database holds back all but the first
};
const std::array waitingModes{
    waiting_mode_s{"memory", 6000, {RXE_ACCESS_READ}, true, false},
    waiting_mode_s{"accesses", 6000, {RXE_ACCESS_READ, RXE_ACCESS_WRITE, RXE_ACCESS_LOCK}, false, false},
    waiting_mode_s{"keys", 4000, {RXE_ACCESS_READ}, true, true},
};

// A packet with 96-bit EPC, PC, CRC and bearing in the engine's own encoding.
std::vector<std::uint8_t> tagPacket() {
    std::vector<std::uint8_t> packet(sizeof(RXE_packet_s) + maxSimulatedPayload);
    buildTagPacket("3074257BF7194E4000001A85", 1234, 456, headOf(&packet));
    return packet;
}

// The daemon's two channels and two sockets like them, each with its reader.
struct lane_s {
    std::string endpoint;
    void* publisher = nullptr;
    void* subscriber = nullptr;
    std::atomic<std::uint64_t> arrived{0};  // written by the reader thread
    std::uint64_t sent = 0;
};
enum lane_e { reportLane, lineLane, bareReportLane, bareLineLane, laneCount };
std::array<lane_s, laneCount> lanes;

void openLanes(const std::string& directory) {
    for (std::size_t i = 0; i < lanes.size(); ++i) {
        lanes[i].endpoint = "ipc://" + directory + "/lane" + std::to_string(i);
        lanes[i].publisher = zmq_socket(sockets::context, ZMQ_PUB);
        const int linger = 0;
        zmq_setsockopt(lanes[i].publisher, ZMQ_LINGER, &linger, sizeof linger);
        zmq_setsockopt(lanes[i].publisher, ZMQ_SNDHWM, &highWaterMark, sizeof highWaterMark);
        if (zmq_bind(lanes[i].publisher, lanes[i].endpoint.c_str()) != 0) {
            std::perror(lanes[i].endpoint.c_str());
            std::exit(2);
        }
    }
    sockets::tag_data.handle = lanes[reportLane].publisher;
    sockets::gpio_led.handle = lanes[lineLane].publisher;
}

// Receives everything until `stop`.
void readLanes(const std::atomic<bool>* stop) {
    std::array<zmq_pollitem_t, laneCount> items{};
    for (std::size_t i = 0; i < items.size(); ++i) {
        items[i] = {lanes[i].subscriber, 0, ZMQ_POLLIN, 0};
    }
    std::array<char, 4096> buffer;
    while (!stop->load()) {
        zmq_poll(items.data(), laneCount, 20);
        for (std::size_t i = 0; i < items.size(); ++i) {
            while (zmq_recv(lanes[i].subscriber, buffer.data(), buffer.size(), ZMQ_DONTWAIT) >= 0) {
                lanes[i].arrived.fetch_add(1);
            }
        }
    }
}

// The pause between bursts: until the reader has caught up, and a little longer. A publisher checks what
// was read about once a millisecond; faster bursts would find its queue full although no reader is
// behind.
void awaitArrivals() {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    for (lane_s& lane : lanes) {
        while (lane.arrived.load() < lane.sent) {
            if (std::chrono::steady_clock::now() > deadline) {
                std::fprintf(stderr, "%s: %llu of %llu messages came: the figures would be void\n",
                             lane.endpoint.c_str(), static_cast<unsigned long long>(lane.arrived),
                             static_cast<unsigned long long>(lane.sent));
                std::exit(2);
            }
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
}

// Connects a reader to each lane and waits until its subscription works.
void followLanes() {
    for (lane_s& lane : lanes) {
        lane.subscriber = zmq_socket(sockets::context, ZMQ_SUB);
        zmq_setsockopt(lane.subscriber, ZMQ_SUBSCRIBE, "", 0);
        zmq_setsockopt(lane.subscriber, ZMQ_RCVHWM, &highWaterMark, sizeof highWaterMark);
        zmq_connect(lane.subscriber, lane.endpoint.c_str());
        zmq_pollitem_t item{lane.subscriber, 0, ZMQ_POLLIN, 0};
        do {
            zmq_send(lane.publisher, "x", 1, ZMQ_DONTWAIT);
        } while (zmq_poll(&item, 1, 10) == 0);
        char buffer[8];
        while (zmq_poll(&item, 1, 50) == 1) {
            zmq_recv(lane.subscriber, buffer, sizeof buffer, 0);
        }
    }
}

struct sizes_s {
    std::size_t report = 0;
    std::size_t line = 0;
};

// The outcome of an access, six words of the TID when it is a read.
std::vector<std::uint8_t> accessPacket(std::uint8_t id, std::uint8_t type) {
    constexpr std::array<std::uint8_t, 12> tid{0xE2, 0x80, 0x11, 0x60, 0x20, 0, 0, 0, 0, 0, 0, 1};
    const std::uint8_t bytes = type == RXE_ACCESS_READ ? tid.size() : 0;
    std::vector<std::uint8_t> packet(sizeof(RXE_packet_s) + 4);
    RXE_packet_s* head = headOf(&packet);
    head->type = RXE_PACKET_ACCESS_INFO;
    head->length = static_cast<std::uint16_t>(4 + bytes);
    packet[sizeof(RXE_packet_s)] = id;
    packet[sizeof(RXE_packet_s) + 3] = bytes;
    packet.insert(packet.end(), tid.begin(), tid.begin() + bytes);
    return packet;
}

// Sends n reports of a mode, each a tag packet and the outcomes of its accesses.
void sendWaitingReports(const waiting_mode_s& mode, std::vector<std::uint8_t>* tag, int count) {
    std::vector<std::vector<std::uint8_t>> packets{*tag};
    for (std::size_t i = 0; i < mode.accesses.size(); ++i) {
        const auto id = static_cast<std::uint8_t>(i + 1);
        packets.push_back(accessPacket(id, mode.accesses[i]));
        toldAccesses.enabledAccessOps[id] = {1, mode.accesses[i], {}, {{2, 0, 0}}, 0, {}, 0, 0, 0};
        toldAccesses.enabledAccessOpsPerOlio[0] |= std::uint64_t{1} << i;
    }
    toldAccesses.accessParamsEnabledCount = static_cast<std::uint32_t>(mode.accesses.size());
    if (mode.asMetadata) {
        mode_configuration.readMemory[2] = {{0, 0}};
        mode_configuration.reportPC = mode_configuration.reportCRC = true;
    } else {
        mode_configuration.uniqueAccesses.resize(mode.accesses.size());
    }
    if (mode.withKeys) {
        setAddlKeysFilterConfig(true, 3600, maxAddlKeysDBSize);
    }
    publishReportPlan(mode_configuration, toldAccesses);
    for (int i = 0; i < count; ++i) {
        for (std::vector<std::uint8_t>& packet : packets) {
            getPacket(headOf(&packet));
        }
    }
}

void sendReports(std::vector<std::uint8_t>* packet, int count) {
    for (int i = 0; i < count; ++i) {
        getPacket(headOf(packet));
    }
}

void sendBare(const sizes_s& sizes, bool lines, int count) {
    static const std::array<char, 4096> bytes{};
    for (int i = 0; i < count; ++i) {
        zmq_send(lanes[bareReportLane].publisher, bytes.data(), sizes.report, ZMQ_DONTWAIT);
        if (lines) {
            zmq_send(lanes[bareLineLane].publisher, bytes.data(), sizes.line, ZMQ_DONTWAIT);
        }
    }
}

// The time of one burst into a pair of lanes; with readers, they have caught up
// before the next burst starts.
double timeBurst(lane_e reports, bool lines, bool followed, auto&& work) {
    const double seconds = secondsOf(work);
    if (followed) {
        lanes[reports].sent += burst;
        lanes[reports + 1].sent += lines ? burst : 0;
        awaitArrivals();
    }
    return seconds;
}

// Prints one line of the table. True when the aim is met. The verdict is against
// two sends, the report and a line, for every form; a binary report, which has no
// line, is shown against one send too.
bool measure(const form_s& form, const sizes_s& sizes, bool followed, std::vector<std::uint8_t>* packet) {
    radio::data_analytics_type = form.type;
    sockets::tag_data.outside = form.type != DATA_ANALYTICS_OFF;
    const auto report = [&] { sendReports(packet, burst); };
    timeBurst(reportLane, form.hasLine, followed, report);  // to the steady state
    std::vector<double> ratios;
    std::vector<double> ratiosToOne;
    std::vector<double> reportSeconds;
    std::uint64_t allocated = 0;
    for (int round = 0; round < rounds; ++round) {
        const std::uint64_t before = allocations;
        reportSeconds.push_back(timeBurst(reportLane, form.hasLine, followed, report));
        allocated += allocations - before;
        ratios.push_back(reportSeconds.back() /
                         timeBurst(bareReportLane, true, followed, [&] { sendBare(sizes, true, burst); }));
        ratiosToOne.push_back(reportSeconds.back() / timeBurst(bareReportLane, false, followed,
                                                               [&] { sendBare(sizes, false, burst); }));
    }
    const double ratio = median(ratios);
    const double aim = followed ? form.aimFollowed : form.aimAlone;
    std::printf(
        "%-6s %-13s  ratio %5.2f  aim %4.1f %s  (to one send %5.2f)  %5.0f ns  %.2f allocations  %zu bytes\n",
        std::string(form.name).c_str(), followed ? "subscriber" : "no subscriber", ratio, aim,
        ratio <= aim ? "met   " : "MISSED", median(ratiosToOne), median(reportSeconds) / burst * 1e9,
        static_cast<double>(allocated) / (rounds * burst), sizes.report);
    return ratio <= aim;
}

// The messages of one report, as the readers receive them.
sizes_s sizesOf(const form_s& form, std::vector<std::uint8_t>* packet) {
    radio::data_analytics_type = form.type;
    sockets::tag_data.outside = form.type != DATA_ANALYTICS_OFF;
    sendReports(packet, 1);
    std::array<char, 4096> buffer;
    sizes_s sizes{.report = 0, .line = lineBytes};
    sizes.report = static_cast<std::size_t>(
        std::max(0, zmq_recv(lanes[reportLane].subscriber, buffer.data(), buffer.size(), 0)));
    if (form.hasLine) {
        zmq_recv(lanes[lineLane].subscriber, buffer.data(), buffer.size(), 0);
    }
    return sizes;
}

bool runTable(std::vector<std::uint8_t>* packet) {
    bool allMet = true;
    std::array<sizes_s, forms.size()> sizes;
    followLanes();
    for (std::size_t i = 0; i < forms.size(); ++i) {
        sizes[i] = sizesOf(forms[i], packet);
    }
    std::atomic<bool> stop{false};
    std::thread reader(readLanes, &stop);
    for (std::size_t i = 0; i < forms.size(); ++i) {
        allMet = measure(forms[i], sizes[i], true, packet) && allMet;
    }
    stop = true;
    reader.join();
    for (lane_s& lane : lanes) {
        zmq_close(lane.subscriber);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(200));  // until the publishers notice it
    for (std::size_t i = 0; i < forms.size(); ++i) {
        allMet = measure(forms[i], sizes[i], false, packet) && allMet;
    }
    return allMet;
}

// The instructions of a report, with those of ZeroMQ in the calling thread, counted by callgrind in a
// process of its own without a subscriber. True when the aim is met.
bool printInstructions(std::string_view name, long long aim) {
    constexpr long long count = 2000;
    const std::string program = std::filesystem::read_symlink("/proc/self/exe").string();
    const std::string command =
        "valgrind --tool=callgrind --callgrind-out-file=/dev/null '--toggle-collect=getPacket*' " + program +
        " reports " + std::string(name) + " " + std::to_string(count) + " 2>&1";
    FILE* output = popen(command.c_str(), "r");
    long long instructions = 0;
    std::array<char, 256> line;
    while (output != nullptr && std::fgets(line.data(), line.size(), output) != nullptr) {
        if (const char* found = std::strstr(line.data(), "Collected :")) {
            instructions = std::atoll(found + std::strlen("Collected :"));
        }
    }
    if (output == nullptr || pclose(output) != 0 || instructions == 0) {
        std::printf("%-8s instructions not counted: valgrind failed\n", name.data());
        return false;
    }
    const bool met = instructions <= count * aim;
    std::printf("%-8s %lld instructions  aim %lld %s\n", name.data(), instructions / count, aim,
                met ? "met" : "MISSED");
    return met;
}

}  // namespace

int main(int argc, char** argv) {
    char directory[] = "/tmp/report_path_bench_XXXXXX";
    if (mkdtemp(directory) == nullptr) {
        std::perror("mkdtemp");
        return 2;
    }
    sockets::context = zmq_ctx_new();
    openLanes(directory);
    initMode();
    setDefaultMode(&mode_configuration);
    setDefaultInventoryMode(&mode_configuration);
    publishReportPlan(mode_configuration, toldAccesses);
    std::vector<std::uint8_t> packet = tagPacket();
    int status = 0;
    if (argc == 4 && std::string_view(argv[1]) == "reports") {
        const auto* form = std::ranges::find(forms, std::string_view(argv[2]), &form_s::name);
        const auto* mode = std::ranges::find(waitingModes, std::string_view(argv[2]), &waiting_mode_s::name);
        if (form != forms.end()) {
            radio::data_analytics_type = form->type;
            sockets::tag_data.outside = form->type != DATA_ANALYTICS_OFF;
            sendReports(&packet, std::atoi(argv[3]));
        } else if (mode != waitingModes.end()) {
            sendWaitingReports(*mode, &packet, std::atoi(argv[3]));
        } else {
            std::fprintf(stderr, "no such form: %s\n", argv[2]);
            status = 2;
        }
    } else {
        bool met = runTable(&packet);
        for (const form_s& form : forms) {
            met = printInstructions(form.name, form.aimInstructions) && met;
        }
        for (const waiting_mode_s& mode : waitingModes) {
            met = printInstructions(mode.name, mode.aimInstructions) && met;
        }
        status = met ? 0 : 1;
    }
    for (lane_s& lane : lanes) {
        zmq_close(lane.publisher);
    }
    zmq_ctx_destroy(sockets::context);
    std::filesystem::remove_all(directory);
    return status;
}
