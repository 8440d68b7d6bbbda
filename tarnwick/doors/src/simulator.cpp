// SPDX-License-Identifier: MIT
#include "simulator.hpp"

#include <sys/prctl.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <list>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stop_token>
#include <system_error>
#include <thread>

#include "command_words.hpp"
#include "json_fields.hpp"
#include "radio.hpp"
#include "util.hpp"

using nlohmann::json;

namespace {

// What one simulation is to do.
struct sim_data_s {
    std::int32_t aar;     // index into aar.json
    std::int32_t tps;     // tags per second
    double stdAz, stdEl;  // standard deviations of the noise, degrees
};

// The thread of one simulation. A request to stop ends it between two packets.
struct simulation_thread_s {
    // The thread has ended and can be joined. Written by the thread, read by the main thread.
    std::atomic<bool> ended{false};
    std::jthread thread;
};
// All that have not been joined, in the order of their starts. Main thread.
std::list<simulation_thread_s> simulations;

// Simulations that send packets: they have read their files and have not ended. Written by their
// threads, read by any.
std::atomic<int> runningSimulations{0};
// Tells the simulations to end with the slice that they are in. Written by the
// main thread, read by the simulations' threads.
std::atomic<bool> endAfterSlice{false};

constexpr auto relaxed = std::memory_order_relaxed;

constexpr double range = 30.0;
constexpr double pi = 3.14159265;
constexpr double anyNumber = std::numeric_limits<double>::max();

constexpr int slicesPerSecond = 4;
constexpr std::chrono::microseconds slice{1'000'000 / slicesPerSecond};
constexpr unsigned packetsPerMessage = 1000;

constexpr int stopChecks = 45;
constexpr std::chrono::microseconds stopCheckInterval{25'000};

// A tag seen from the simulated reader, and its packet.
struct target_s {
    bearing_s bearing{outOfRange, outOfRange};
    std::vector<std::uint8_t> packet;  // made once; each send writes only the bearing
};

// The content of the files. Too large for a thread's stack.
struct room_s {
    aar_table_t aars{};
    tag_id_table_t tagIds;
    tag_table_t tags{};
    angle_table_t azimuths;
    angle_table_t elevations;

    // All cells are out of range until get_az and get_el have filled them.
    room_s() {
        for (angle_table_t* angles : {&azimuths, &elevations}) {
            for (auto& ofTag : *angles) {
                ofTag.fill(outOfRange);
            }
        }
    }
};

// The tags and packets of one simulation.
struct simulation_s {
    int tagCount = 0;  // of the file; only the first maxSimulatedTags of them are targets
    unsigned packetCount = 0;
    std::array<target_s, maxSimulatedTags> targets;
};

// Prints one line on standard output, flushed, since people watch it.
template <class... Parts>
void say(const Parts&... parts) {
    std::ostringstream line;
    (line << ... << parts) << '\n';
    std::fputs(line.str().c_str(), stdout);
    std::fflush(stdout);
}

double standardDeviation(const vocabulary::argument_s& argument, const std::vector<std::string>* tokens) {
    std::string text;
    const double value = getParamValue(std::string(argument.name), tokens, &text) == 0
                             ? std::strtod(text.c_str(), nullptr)
                             : 0.0;
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
    std::string text;
    json document;
    std::string reply;
    if (readRegularFile(path, &text, &reply) != file_read_e::done ||
        !parseJsonText(text, &document, &reply)) {
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

// Quirk: adds or subtracts a single full turn, so an angle farther off stays outside 0 to 360.
double turnOnce(double angle) {
    if (angle < 0.0) {
        angle += 360.0;
    }
    return angle > 360.0 ? angle - 360.0 : angle;
}

// Tenths of a degree, cut towards zero. Beyond the range of int it is the nearest int; 0 for NaN.
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

// A packet of exactly the size that it needs.
std::vector<std::uint8_t> packetOf(const std::string& tagId) {
    std::vector<std::uint8_t> packet(sizeof(RXE_packet_s) + maxSimulatedPayload);
    RXE_packet_s* head = headOf(&packet);
    buildTagPacket(tagId, 0, 0, head);
    packet.resize(sizeof(RXE_packet_s) + head->length);
    packet.shrink_to_fit();
    return packet;
}

// Prints the tags that this reader sees and makes their packets. Returns their number.
int listTags(const room_s& room, std::size_t aar, simulation_s* simulation) {
    int count = 0;
    for (std::size_t tag = 0; tag < maxSimulatedTags; ++tag) {
        const bearing_s bearing{room.azimuths[tag][aar], room.elevations[tag][aar]};
        if (bearing.azimuth != outOfRange) {
            const std::string& tagId = room.tagIds[tag];
            say("AAR: ", aar, ", Tag: ", tagId, " (", tag, ") , az: ", bearing.azimuth,
                ", el: ", bearing.elevation);
            simulation->targets[tag] = {bearing, packetOf(tagId)};
            ++count;
        }
    }
    say("Number of Tags seen by this AAR: ", count);
    return count;
}

// A random tag in the reader's range; there is at least one. Null when the file has more tags than the
// tables and the draw falls on one of those.
target_s* chooseTag(simulation_s* simulation, int aar) {
    for (;;) {
        const auto tag = static_cast<std::size_t>(std::rand() % simulation->tagCount);
        if (tag >= maxSimulatedTags) {
            say("tag_idx: ", tag, ", aar_idx: ", aar, " (tag_count: ", simulation->tagCount, ")");
            return nullptr;
        }
        if (target_s& target = simulation->targets[tag]; target.bearing.azimuth != outOfRange) {
            return &target;
        }
    }
}

void sendPacket(simulation_s* simulation, const sim_data_s& data) {
    target_s* target = chooseTag(simulation, data.aar);
    if (target == nullptr) {
        return;
    }
    bearing_s bearing = target->bearing;
    add_noise(&bearing, data.stdAz, data.stdEl);
    RXE_packet_s* packet = headOf(&target->packet);
    setBearing(toTenths(bearing.azimuth), toTenths(bearing.elevation), packet);
    getPacket(packet);
    if (++simulation->packetCount % packetsPerMessage == 0) {
        say("simulated ", simulation->packetCount, " packets");
    }
}

// Sleeps until `end`, or until the thread is to stop.
void sleepUntil(std::chrono::steady_clock::time_point end, const std::stop_token& stop) {
    std::mutex mutex;
    std::unique_lock lock(mutex);
    std::condition_variable_any().wait_until(lock, stop, end, [] { return false; });
}

// Sends the packets of one slice and waits for its end; time lost in a late slice stays lost. Quirk:
// below 4 tags a second nothing is sent.
void runSlice(simulation_s* simulation, const sim_data_s& data, const std::stop_token& stop) {
    const auto end = std::chrono::steady_clock::now() + slice;
    const int packets = data.tps / slicesPerSecond;
    for (int i = 0; i < packets && !stop.stop_requested(); ++i) {
        sendPacket(simulation, data);
    }
    sleepUntil(end, stop);
}

// Reads the files and makes the packets. Returns whether there is a tag to send.
bool prepare(simulation_s* simulation, const sim_data_s& data) {
    const auto room = std::make_unique<room_s>();
    const int aarCount = get_aar_info("aar.json", &room->aars);
    simulation->tagCount = get_tag_info("tag.json", &room->tagIds, &room->tags);
    if (data.aar < 0 || data.aar >= static_cast<int>(maxAars)) {
        say("AAR Idx requested (", data.aar, ") is invalid");
        say("exiting");
        return false;
    }
    const auto aar = static_cast<std::size_t>(data.aar);
    const aar_position_s& at = room->aars[aar];
    say("AAR ", aar, ",", at.x, ",", at.y, ",", at.z, ",", at.orientation);
    say("standard deviation:");
    say(" azimuth: ", data.stdAz);
    say(" elevation: ", data.stdEl);
    get_az(room->aars, room->tags, &room->azimuths, aarCount, simulation->tagCount);
    get_el(room->aars, room->tags, &room->elevations, aarCount, simulation->tagCount);
    if (listTags(*room, aar, simulation) == 0) {
        say("stopping simulation");
        return false;
    }
    return true;
}

// The body of a simulation's thread.
void sim_main(const sim_data_s& data, const std::stop_token& stop) {
    prctl(PR_SET_NAME, "simulator");
    // A rate of 0 prints 0 us.
    say("Simulating AAR: ", data.aar, " TPS: ", data.tps, " (", data.tps == 0 ? 0 : 1'000'000 / data.tps,
        " uS per tag)");
    simulation_s simulation;
    if (!prepare(&simulation, data) || stop.stop_requested()) {
        return;
    }
    runningSimulations.fetch_add(1, relaxed);
    while (!endAfterSlice.load(relaxed) && !stop.stop_requested()) {
        runSlice(&simulation, data, stop);
    }
    if (!stop.stop_requested()) {
        say("stopping simulation");
    }
    runningSimulations.fetch_sub(1, relaxed);
}

// Joins the threads of the simulations that have ended by themselves.
void joinEnded() {
    simulations.remove_if(
        [](const simulation_thread_s& simulation) { return simulation.ended.load(relaxed); });
}

}  // namespace

int startSimulationThread(int aar, int tps, float stdAz, float stdEl) {
    joinEnded();
    const sim_data_s data{.aar = aar, .tps = tps, .stdAz = stdAz, .stdEl = stdEl};
    say("starting with params: ", aar, " and ", tps, " (std az: ", stdAz, ", std el: ", stdEl, ")");
    simulation_thread_s& simulation = simulations.emplace_back();
    try {
        simulation.thread = std::jthread([data, &ended = simulation.ended](const std::stop_token& stop) {
            sim_main(data, stop);
            ended.store(true, relaxed);
        });
    } catch (const std::system_error&) {
        simulations.pop_back();
        return -1;
    }
    return 0;
}

int stopSimulationThread() {
    joinEnded();
    if (!isSimulationRunning()) {
        return 0;
    }
    endAfterSlice.store(true, relaxed);
    for (int i = 0; i < stopChecks && isSimulationRunning(); ++i) {
        std::this_thread::sleep_for(stopCheckInterval);
    }
    const int rc = endSimulations();
    endAfterSlice.store(false, relaxed);
    say("stopping ... ", rc);
    return rc;
}

int endSimulations() {
    for (simulation_thread_s& simulation : simulations) {
        simulation.thread.request_stop();
    }
    int rc = 0;
    for (simulation_thread_s& simulation : simulations) {
        try {
            simulation.thread.join();
        } catch (const std::system_error& failure) {
            rc = failure.code().value();
        }
    }
    simulations.clear();
    return rc;
}

bool isSimulationRunning() {
    return runningSimulations.load(relaxed) > 0;
}

double get_std_az(const std::vector<std::string>* tokens) {
    return standardDeviation(vocabulary::stdAz, tokens);
}

// Quirk: says "std_az" for the elevation too.
double get_std_el(const std::vector<std::string>* tokens) {
    return standardDeviation(vocabulary::stdEl, tokens);
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

// Box-Muller: two uniform draws give two normal ones. The draws are made without noise as well, so that
// the tags come in the same order with noise and without.
void add_noise(bearing_s* pair, double stdAz, double stdEl) {
    constexpr double perStep = 4.656612875245797e-10;         // 1 / 2147483647
    const double first = std::max(std::rand(), 1) * perStep;  // above 0, for its logarithm
    const double second = std::rand() * perStep;
    if (stdAz != 0 || stdEl != 0) {
        const double radius = std::sqrt(-2.0 * std::log(first));
        const double angle = 2.0 * second * pi;
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
RXE_packet_s* headOf(std::vector<std::uint8_t>* packet) {
    return static_cast<RXE_packet_s*>(static_cast<void*>(packet->data()));
}

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
    packet->type = RXE_PACKET_TAG_INFO_CUSTOM;
    packet->length = static_cast<std::uint16_t>(end - packet->payload);
    setBearing(azimuthX10, elevationX10, packet);
}
