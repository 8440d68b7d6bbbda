// SPDX-License-Identifier: MIT
#include "simulator.hpp"

#include <pthread.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>

#include "json_fields.hpp"
#include "radio.hpp"
#include "util.hpp"

using nlohmann::json;

namespace {

// What the thread is to do. Written by the main thread while there is no
// simulator thread, read by that thread.
struct sim_data_s {
    std::int32_t aar;     // index into aar.json
    std::int32_t tps;     // tags per second
    double stdAz, stdEl;  // standard deviations of the noise, degrees
};
sim_data_s sim_data;

// The thread and its attributes, and whether they wait to be joined; the thread
// itself may have ended. Main thread.
pthread_t simulation_thread;
pthread_attr_t simulation_attr;
bool simulationJoinable = false;

// Packets are being sent. Set by the simulator thread once its tables stand,
// cleared by the main thread to end it; read by any.
std::atomic<bool> runSimulation{false};
// The thread has left its loop. Written by the simulator thread, read by the main thread.
std::atomic<bool> simulationStopped{true};
// Ends the thread also before it runs. Written by the main thread, read by the simulator thread.
std::atomic<bool> simulationSuperseded{false};

constexpr auto relaxed = std::memory_order_relaxed;

constexpr double range = 30.0;
constexpr double pi = 3.14159265;
constexpr double anyNumber = std::numeric_limits<double>::max();

constexpr int slicesPerSecond = 4;
constexpr std::chrono::microseconds slice{1'000'000 / slicesPerSecond};
constexpr unsigned packetsPerMessage = 1000;

constexpr int stopChecks = 45;
constexpr useconds_t stopCheckMicroseconds = 25'000;

// A tag as the one reader sees it, which is all that a packet of it takes.
struct target_s {
    bearing_s bearing{outOfRange, outOfRange};
    std::vector<std::uint8_t> packet;  // made once; only its bearing is written again
};

// All that one run works with. Too large for a thread's stack.
struct simulation_s {
    aar_table_t aars{};
    tag_id_table_t tagIds;
    tag_table_t tags{};
    angle_table_t azimuths;
    angle_table_t elevations;
    int tagCount = 0;
    unsigned packetCount = 0;
    std::array<target_s, maxSimulatedTags> targets;

    // No tag is in the range of a reader that the file does not hold.
    simulation_s() {
        for (angle_table_t* angles : {&azimuths, &elevations}) {
            for (auto& ofTag : *angles) {
                ofTag.fill(outOfRange);
            }
        }
    }
};

// One line on standard output, at once: people watch it.
template <class... Parts>
void say(const Parts&... parts) {
    std::ostringstream line;
    (line << ... << parts) << '\n';
    std::fputs(line.str().c_str(), stdout);
    std::fflush(stdout);
}

double standardDeviation(const char* name, const std::vector<std::string>* tokens) {
    std::string text;
    const double value = getParamValue(name, tokens, &text) == 0 ? std::strtod(text.c_str(), nullptr) : 0.0;
    say("setting std_az to: ", value);
    return value;
}

// ---- the files

struct number_field_s {
    const char* key;
    double* out;
};

// Reads the numbers of one element. Returns whether all are there.
template <std::size_t Count>
bool readNumbers(const json& element, const std::array<number_field_s, Count>& fields, std::string* reply) {
    return std::ranges::all_of(fields, [&](const number_field_s& field) {
        return getJsonValue(&element, field.key, field.out, reply, -anyNumber, anyNumber) == 0;
    });
}

bool readElement(const json& element, aar_position_s* aar, std::string* reply) {
    return readNumbers(
        element,
        std::array{number_field_s{"x", &aar->x}, number_field_s{"y", &aar->y}, number_field_s{"z", &aar->z},
                   number_field_s{"orientation", &aar->orientation}},
        reply);
}

struct tag_s {
    std::string id;
    tag_position_s position;
};

bool readElement(const json& element, tag_s* tag, std::string* reply) {
    tag_position_s& at = tag->position;
    return getJsonValue(&element, "tag_id", &tag->id, reply, {}) == 0 &&
           readNumbers(
               element,
               std::array{number_field_s{"x", &at.x}, number_field_s{"y", &at.y}, number_field_s{"z", &at.z}},
               reply);
}

// Reads the array `key` of the file; `store` takes each element with its index.
// Returns the number of elements, or -1 after printing what is wrong.
template <class Element, class Store>
int readFile(const std::string& path, const std::string& kind, const Store& store) {
    std::ifstream file(path);
    std::ostringstream text;
    // Not parsed from the stream itself, whose buffer throws at a directory.
    text << file.rdbuf();
    json document;
    std::string reply;
    if (!file.is_open() || !parseJsonText(text.str(), &document, &reply)) {
        say("loading ", kind, " json file failed, Invalid config file");
        return -1;
    }
    const std::string key = kind + "_info";
    json elements;
    if (getJsonValueArray(&document, key, &elements, &reply) != 0) {
        say(reply);
        return -1;
    }
    std::size_t count = 0;
    for (const json& item : elements) {
        if (!item.is_object()) {
            say("Failure: ", key, " must be an array containing only objects");
            return -1;
        }
        Element element{};
        if (!readElement(item, &element, &reply)) {
            say(reply);
            return -1;
        }
        store(count, element);
        ++count;
    }
    return static_cast<int>(count);
}

// ---- geometry

// Fills the cells of one table; `angle` gives the angle of a tag as seen by a reader.
template <class Angle>
void fillAngles(const aar_table_t& aars, const tag_table_t& tags, angle_table_t* angles, int aarCount,
                int tagCount, const Angle& angle) {
    const std::size_t aarEnd = std::min(static_cast<std::size_t>(std::max(aarCount, 0)), maxAars);
    const std::size_t tagEnd = std::min(static_cast<std::size_t>(std::max(tagCount, 0)), maxSimulatedTags);
    for (std::size_t tag = 0; tag < tagEnd; ++tag) {
        for (std::size_t aar = 0; aar < aarEnd; ++aar) {
            const double dx = tags[tag].x - aars[aar].x;
            const double dy = tags[tag].y - aars[aar].y;
            const double dz = tags[tag].z - aars[aar].z;
            const bool inRange = std::sqrt(dx * dx + dy * dy + dz * dz) <= range;
            (*angles)[tag][aar] = inRange ? angle(aars[aar], dx, dy, dz) : outOfRange;
        }
    }
}

// One turn up, then one down, and no more: an angle farther off stays so.
double turnOnce(double angle) {
    if (angle < 0.0) {
        angle += 360.0;
    }
    return angle > 360.0 ? angle - 360.0 : angle;
}

// Evenly distributed over (0, 1]: the noise takes its logarithm.
double randomFraction() {
    constexpr double perStep = 4.656612875245797e-10;  // 1 / 2147483647
    return std::min(std::max(std::rand(), 1) * perStep, 1.0);
}

// Cut towards zero. What no int can hold becomes the nearest, no number 0.
int toTenths(double degrees) {
    constexpr double lowest = std::numeric_limits<int>::min();
    constexpr double highest = std::numeric_limits<int>::max();
    const double tenths = degrees * 10.0;
    return std::isnan(tenths) ? 0 : static_cast<int>(std::clamp(tenths, lowest, highest));
}

constexpr std::size_t bearingBytes = 6;  // at a tag packet's end: the angles and their confidences

// Writes the angles of a tag packet, high byte first.
void setBearing(int azimuthX10, int elevationX10, RXE_packet_s* packet) {
    std::uint8_t* at = packet->payload + packet->length - bearingBytes;
    for (const int angle : {azimuthX10, elevationX10}) {
        *at++ = static_cast<std::uint8_t>(static_cast<unsigned>(angle) >> 8);
        *at++ = static_cast<std::uint8_t>(angle);
    }
}

// ---- the run

bool keepRunning() {
    return runSimulation.load(relaxed) && !simulationSuperseded.load(relaxed);
}

// A packet of exactly the size that it needs.
std::vector<std::uint8_t> packetOf(const std::string& tagId) {
    std::vector<std::uint8_t> packet(sizeof(RXE_packet_s) + maxSimulatedPayload);
    auto* head = reinterpret_cast<RXE_packet_s*>(packet.data());
    buildTagPacket(tagId, 0, 0, head);
    packet.resize(sizeof(RXE_packet_s) + head->length);
    packet.shrink_to_fit();
    return packet;
}

// Prints the tags that this reader sees and makes their packets. Returns their number.
int listTags(simulation_s* simulation, std::size_t aar) {
    int count = 0;
    for (std::size_t tag = 0; tag < maxSimulatedTags; ++tag) {
        const double azimuth = simulation->azimuths[tag][aar];
        if (azimuth != outOfRange) {
            const std::string& tagId = simulation->tagIds[tag];
            say("AAR: ", aar, ", Tag: ", tagId, " (", tag, ") , az: ", azimuth,
                ", el: ", simulation->elevations[tag][aar]);
            simulation->targets[tag] = {{azimuth, simulation->elevations[tag][aar]}, packetOf(tagId)};
            ++count;
        }
    }
    say("Number of Tags seen by this AAR: ", count);
    return count;
}

// A random tag in the reader's range; null when there is none to send now, because
// the file holds more tags than the tables or another simulation takes over.
target_s* chooseTag(simulation_s* simulation, int aar) {
    while (!simulationSuperseded.load(relaxed)) {
        const auto tag = static_cast<std::size_t>(std::rand() % simulation->tagCount);
        if (tag >= maxSimulatedTags) {
            say("tag_idx: ", tag, ", aar_idx: ", aar, " (tag_count: ", simulation->tagCount, ")");
            break;
        }
        if (target_s& target = simulation->targets[tag]; target.bearing.azimuth != outOfRange) {
            return &target;
        }
    }
    return nullptr;
}

void sendPacket(simulation_s* simulation, const sim_data_s& data) {
    target_s* target = chooseTag(simulation, data.aar);
    if (target == nullptr) {
        return;
    }
    bearing_s bearing = target->bearing;
    add_noise(&bearing, data.stdAz, data.stdEl);
    auto* packet = reinterpret_cast<RXE_packet_s*>(target->packet.data());
    setBearing(toTenths(bearing.azimuth), toTenths(bearing.elevation), packet);
    getPacket(packet);
    if (++simulation->packetCount % packetsPerMessage == 0) {
        say("simulated ", simulation->packetCount, " packets");
    }
}

// The only place where the thread can be cancelled, between two packets and behind
// a slice: no half-done packet and no held lock is lost with it.
void sleepFor(std::chrono::microseconds duration) {
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
    if (duration.count() > 0) {
        usleep(static_cast<useconds_t>(duration.count()));
    } else {
        pthread_testcancel();
    }
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
}

// A late slice is not made up for. Below 4 tags a second nothing is sent. A stop
// waits for the end of the slice, and cancels one that takes too long.
void runSlice(simulation_s* simulation, const sim_data_s& data) {
    using std::chrono::steady_clock;
    const auto start = steady_clock::now();
    const int packets = data.tps / slicesPerSecond;
    for (int i = 0; i < packets && !simulationSuperseded.load(relaxed); ++i) {
        sendPacket(simulation, data);
        sleepFor({});
    }
    sleepFor(slice - std::chrono::duration_cast<std::chrono::microseconds>(steady_clock::now() - start));
}

// Reads the files and fills the tables. Returns whether there is a tag to send.
bool prepare(simulation_s* simulation, const sim_data_s& data) {
    const int aarCount = get_aar_info("aar.json", &simulation->aars);
    simulation->tagCount = get_tag_info("tag.json", &simulation->tagIds, &simulation->tags);
    if (data.aar < 0 || data.aar >= static_cast<int>(maxAars)) {
        say("AAR Idx requested (", data.aar, ") is invalid");
        say("exiting");
        return false;
    }
    const auto aar = static_cast<std::size_t>(data.aar);
    const aar_position_s& at = simulation->aars[aar];
    say("AAR ", aar, ",", at.x, ",", at.y, ",", at.z, ",", at.orientation);
    say("standard deviation:");
    say(" azimuth: ", data.stdAz);
    say(" elevation: ", data.stdEl);
    get_az(simulation->aars, simulation->tags, &simulation->azimuths, aarCount, simulation->tagCount);
    get_el(simulation->aars, simulation->tags, &simulation->elevations, aarCount, simulation->tagCount);
    if (listTags(simulation, aar) == 0) {
        say("stopping simulation");
        return false;
    }
    return true;
}

// Waits for the end of the thread, which has been told. Returns pthread_join's result.
int joinSimulation() {
    pthread_attr_destroy(&simulation_attr);
    const int rc = pthread_join(simulation_thread, nullptr);
    simulationJoinable = false;
    return rc;
}

// Ends what an earlier start has left: nothing, a thread that has ended by
// itself, or one that still loads or runs.
void endEarlierSimulation() {
    if (!simulationJoinable) {
        return;
    }
    simulationSuperseded.store(true, relaxed);
    joinSimulation();
    simulationSuperseded.store(false, relaxed);
    runSimulation.store(false, relaxed);
}

}  // namespace

int startSimulationThread(int aar, int tps, float stdAz, float stdEl) {
    endEarlierSimulation();
    pthread_attr_init(&simulation_attr);
    pthread_attr_setdetachstate(&simulation_attr, PTHREAD_CREATE_JOINABLE);
    sim_data = {.aar = aar, .tps = tps, .stdAz = stdAz, .stdEl = stdEl};
    say("starting with params: ", aar, " and ", tps, " (std az: ", stdAz, ", std el: ", stdEl, ")");
    if (pthread_create(&simulation_thread, &simulation_attr, sim_main, &sim_data) != 0) {
        pthread_attr_destroy(&simulation_attr);
        return -1;
    }
    simulationJoinable = true;
    return 0;
}

int stopSimulationThread() {
    if (!runSimulation.load(relaxed)) {
        // One that has ended by itself is only waiting for this.
        if (simulationJoinable && pthread_tryjoin_np(simulation_thread, nullptr) == 0) {
            pthread_attr_destroy(&simulation_attr);
            simulationJoinable = false;
        }
        return 0;
    }
    runSimulation.store(false, relaxed);
    for (int i = 0; i < stopChecks && !simulationStopped.load(relaxed); ++i) {
        usleep(stopCheckMicroseconds);
    }
    pthread_cancel(simulation_thread);
    const int rc = joinSimulation();
    say("stopping ... ", rc);
    return rc;
}

bool isSimulationRunning() {
    return runSimulation.load(relaxed);
}

double get_std_az(const std::vector<std::string>* tokens) {
    return standardDeviation("std_az", tokens);
}

// Says "std_az" as well; whoever reads the output knows it so.
double get_std_el(const std::vector<std::string>* tokens) {
    return standardDeviation("std_el", tokens);
}

int get_aar_info(const std::string& path, aar_table_t* aars) {
    const auto store = [aars](std::size_t index, const aar_position_s& aar) {
        if (index < aars->size()) {
            (*aars)[index] = aar;
        }
    };
    return std::max(readFile<aar_position_s>(path, "aar", store), 0);
}

int get_tag_info(const std::string& path, tag_id_table_t* ids, tag_table_t* tags) {
    const auto store = [ids, tags](std::size_t index, const tag_s& tag) {
        if (index < tags->size()) {
            (*ids)[index] = tag.id;
            (*tags)[index] = tag.position;
        }
    };
    const int count = readFile<tag_s>(path, "tag", store);
    return count < 0 ? 0 : count - 1;
}

void get_az(const aar_table_t& aars, const tag_table_t& tags, angle_table_t* azimuths, int aarCount,
            int tagCount) {
    fillAngles(aars, tags, azimuths, aarCount, tagCount,
               [](const aar_position_s& aar, double dx, double dy, double /*dz*/) {
                   return turnOnce(90.0 - std::atan2(dy, dx) * 180.0 / pi + aar.orientation);
               });
}

void get_el(const aar_table_t& aars, const tag_table_t& tags, angle_table_t* elevations, int aarCount,
            int tagCount) {
    fillAngles(aars, tags, elevations, aarCount, tagCount,
               [](const aar_position_s& /*aar*/, double dx, double dy, double dz) {
                   const double below = std::atan2(-dz, std::sqrt(dx * dx + dy * dy)) * 180.0 / pi;
                   return 180.0 - (below + 90.0);
               });
}

// Box-Muller: two even draws give two normal ones. Without a spread there is nothing
// to draw: the angles are only brought into range.
void add_noise(bearing_s* pair, double stdAz, double stdEl) {
    if (stdAz != 0 || stdEl != 0) {
        const double radius = std::sqrt(-2.0 * std::log(randomFraction()));
        const double angle = 2.0 * randomFraction() * pi;
        pair->azimuth += std::cos(angle) * radius * stdAz;
        pair->elevation += std::sin(angle) * radius * stdEl;
    }
    pair->azimuth = turnOnce(pair->azimuth);
    pair->elevation = std::abs(pair->elevation);
}

//   96 bits:    | 8D | EPC: 12 |
//   otherwise:  | 00 F1 | bytes: 2 | bits: 2 | EPC |
//   then:       | 8C | PC: 2 | 8B | CRC: 2, low byte first |
//               | 03 84 11 06 | azimuth: 2 | elevation: 2 | their confidences: 1 each |
void buildTagPacket(const std::string& tagId, int azimuthX10, int elevationX10, RXE_packet_s* packet) {
    constexpr std::uint8_t confidence = 100;
    const std::size_t digits = std::min(tagId.size(), 2 * maxSimulatedEpcBytes);
    const std::size_t epcBytes = digits / 2;
    std::uint8_t* end = packet->payload;
    const auto put = [&end](unsigned byte) { *end++ = static_cast<std::uint8_t>(byte); };
    const auto putWord = [&put](std::size_t word) {
        put(static_cast<unsigned>(word >> 8));
        put(static_cast<unsigned>(word));
    };
    if (digits == 24) {
        put(0x8D);
    } else {
        putWord(0x00F1);
        putWord(epcBytes);
        putWord(epcBytes * 8);
    }
    const std::uint8_t* const epc = end;
    for (std::size_t i = 0; i < epcBytes; ++i) {
        const char pair[] = {tagId[2 * i], tagId[2 * i + 1], '\0'};
        put(static_cast<unsigned>(std::strtol(pair, nullptr, 16)));
    }
    const std::uint16_t crc = computeCRC(static_cast<int>(epcBytes), epc);
    put(0x8C);
    put(static_cast<unsigned>(digits / 4 * 8));  // the length of the EPC in words, in bits 15 to 11
    put(0);
    put(0x8B);
    put(crc);
    put(crc >> 8U);
    putWord(0x0384);
    putWord(0x1106);
    putWord(0);
    putWord(0);
    put(confidence);
    put(confidence);
    packet->type = 0x0805;  // TAG_INFO_CUSTOM
    packet->length = static_cast<std::uint16_t>(end - packet->payload);
    setBearing(azimuthX10, elevationX10, packet);
}

void* sim_main(void* arg) {
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    prctl(PR_SET_NAME, "simulator");
    const sim_data_s data = *static_cast<const sim_data_s*>(arg);
    // A rate of 0 has no time for each tag.
    say("Simulating AAR: ", data.aar, " TPS: ", data.tps, " (", data.tps == 0 ? 0 : 1'000'000 / data.tps,
        " uS per tag)");
    const auto simulation = std::make_unique<simulation_s>();
    if (!prepare(simulation.get(), data)) {
        return nullptr;
    }
    // In this order, so that a stop that sees it run does not take it for stopped.
    simulationStopped.store(false);
    runSimulation.store(true);
    while (keepRunning()) {
        runSlice(simulation.get(), data);
    }
    simulationStopped.store(true, relaxed);
    say("stopping simulation");
    return nullptr;
}
