// SPDX-License-Identifier: MIT
#include "support/engine_double.hpp"

#include <algorithm>
#include <cstring>
#include <iomanip>
#include <map>
#include <memory>
#include <mutex>
#include <sstream>

namespace engine_double {
namespace {

using bytes_t = std::vector<std::uint8_t>;

// What the engine holds before anything is set.
std::map<unsigned, bytes_t> soundRecords() {
    std::map<unsigned, bytes_t> records{{RXE_PARAM_FW_VERSION, {2, 1, 50, 0}},
                                        {RXE_PARAM_MAX_TX_POWER, {330 & 0xFF, 330 >> 8}}};
    for (unsigned id = 1; id <= 4; ++id) {
        CHANNEL_s channel{};
        channel.enable = 1;
        channel.frequency = 902500 + 500 * id;
        channel.maxPower = 300;
        const auto* first = reinterpret_cast<const std::uint8_t*>(&channel);
        records[RXE_PARAM_CHANNEL + id].assign(first, first + sizeof(channel));
    }
    return records;
}

// Under one lock, which is never held while the callback runs.
struct state_s {
    std::vector<call_s> calls;
    std::map<std::pair<std::string, int>, RXE_API_STATUS> failures;  // by name and id, or -1 for any id
    std::map<unsigned, bytes_t> records = soundRecords();
    int (*callback)(RXE_packet_s*) = nullptr;
    bool ongoing = false;
};
std::recursive_mutex mutex;
state_s my;
using lock_t = std::lock_guard<std::recursive_mutex>;

// Bytes of a parameter's record; one for an id outside.
constexpr struct {
    unsigned first, last, size;
} ranges[] = {{0x0001, 0x0001, 4},  {0x0004, 0x0004, 4},   {0x0005, 0x0005, 16},  {0x0009, 0x0009, 4},
              {0x0011, 0x0011, 2},  {0x0014, 0x0014, 4},   {0x0015, 0x0015, 20},  {0x0020, 0x003F, 4},
              {0x0100, 0x01FF, 76}, {0x0200, 0x02FF, 520}, {0x0300, 0x03FF, 528}, {0x0400, 0x07FF, 40},
              {0x0800, 0x087F, 12}, {0x1000, 0x10EA, 72},  {0x10EE, 0x10EF, 2},   {0x10F3, 0x10F5, 2},
              {0x10FF, 0x10FF, 8},  {0x2100, 0x2111, 2},   {0x2300, 0x23FF, 116}, {0xD003, 0xD003, 6},
              {0xD005, 0xD005, 10}};

std::size_t recordSize(unsigned id) {
    const auto* row = std::find_if(std::begin(ranges), std::end(ranges),
                                   [id](const auto& range) { return id >= range.first && id <= range.last; });
    return row == std::end(ranges) ? 1 : row->size;
}

RXE_API_STATUS note(const char* name, unsigned id = 0, bytes_t record = {}, const char* text = "") {
    const lock_t guard(mutex);
    RXE_API_STATUS status = RXE_OK;
    for (const int which : {-1, static_cast<int>(id)}) {
        const auto failure = my.failures.find({name, which});
        status = failure == my.failures.end() ? status : failure->second;
    }
    my.calls.push_back({name, id, std::move(record), text});
    return status;
}

RXE_API_STATUS write(const char* name, unsigned short id, const void* record) {
    const lock_t guard(mutex);
    const auto* first = static_cast<const std::uint8_t*>(record);
    const bytes_t bytes(first, first + recordSize(id));
    const RXE_API_STATUS status = note(name, id, bytes);
    if (status == RXE_OK) {
        my.records[id] = bytes;
    }
    return status;
}

}  // namespace

std::string describe(const call_s& call) {
    std::ostringstream line;
    line << call.name.substr(sizeof("RXE_") - 1) << std::hex << std::setfill('0');
    if (call.id != 0) {
        line << ' ' << std::setw(4) << call.id;
    }
    if (!call.record.empty()) {
        const auto isSet = [](std::uint8_t byte) { return byte != 0; };
        const auto end = std::find_if(call.record.rbegin(), call.record.rend(), isSet).base();
        line << (end == call.record.begin() ? " -" : " ");
        std::for_each(call.record.begin(), end, [&line](unsigned byte) { line << std::setw(2) << byte; });
    }
    line << (call.text.empty() ? "" : " ") << call.text;
    return line.str();
}

std::vector<call_s> calls() {
    const lock_t guard(mutex);
    return my.calls;
}

std::string lastCall() {
    const std::vector<call_s> all = calls();
    return all.empty() ? "none" : describe(all.back());
}

void reset() {
    const lock_t guard(mutex);
    my = {};
}

void clearCalls() {
    const lock_t guard(mutex);
    my.calls.clear();
}

void failOn(const std::string& name, int id, int status) {
    const lock_t guard(mutex);
    my.failures[{name, id}] = static_cast<RXE_API_STATUS>(status);
}

void setRecord(unsigned id, const void* record, std::size_t size) {
    const lock_t guard(mutex);
    const auto* first = static_cast<const std::uint8_t*>(record);
    my.records[id].assign(first, first + size);
}

void setOngoing(bool ongoing) {
    const lock_t guard(mutex);
    my.ongoing = ongoing;
}

int deliver(std::uint16_t rawType, std::span<const std::uint8_t> payload) {
    std::unique_lock<std::recursive_mutex> guard(mutex);
    const auto callback = my.callback;
    guard.unlock();
    // Sixteen-bit words, so that the header stands aligned; nothing but the
    // rounding is readable beyond the payload.
    const auto storage = std::make_unique<std::uint16_t[]>((sizeof(RXE_packet_s) + payload.size() + 1) / 2);
    auto* packet = reinterpret_cast<RXE_packet_s*>(storage.get());
    packet->type = rawType;
    packet->length = static_cast<std::uint16_t>(payload.size());
    std::copy(payload.begin(), payload.end(), packet->payload);
    return callback(packet);
}

}  // namespace engine_double

using engine_double::lock_t;
using engine_double::my;
using engine_double::note;

extern "C" {

RXE_API_STATUS RXE_getAPIVerNum(REL_VERSION_s* version, char**) {
    const RXE_API_STATUS status = note("RXE_getAPIVerNum");
    if (status == RXE_OK) {
        *version = {2, 2, 40, 0};
    }
    return status;
}

RXE_API_STATUS RXE_connect(char* device, unsigned long baud) {
    return note("RXE_connect", static_cast<unsigned>(baud), {}, device);
}

RXE_API_STATUS RXE_setCallback(int (*callback)(RXE_packet_s*)) {
    const lock_t guard(engine_double::mutex);
    const RXE_API_STATUS status = note("RXE_setCallback");
    my.callback = status == RXE_OK ? callback : my.callback;
    return status;
}

RXE_API_STATUS RXE_getParam(unsigned short id, void* record) {
    const lock_t guard(engine_double::mutex);
    const RXE_API_STATUS status = note("RXE_getParam", id);
    if (status == RXE_OK) {
        engine_double::bytes_t answer = my.records[id];
        answer.resize(engine_double::recordSize(id));
        std::memcpy(record, answer.data(), answer.size());
    }
    return status;
}

RXE_API_STATUS RXE_setParam(unsigned short id, void* record) {
    return engine_double::write("RXE_setParam", id, record);
}

RXE_API_STATUS RXE_setParam2(unsigned short id, void* record, bool flag, bool useShadow) {
    // The name tells cleared flags apart in `calls`.
    const char* const name = useShadow ? "RXE_setParam2" : "RXE_setParam2 without shadow";
    return engine_double::write(flag ? name : "RXE_setParam2 without its flag", id, record);
}

// A memory of its own, which nothing here reads.
RXE_API_STATUS RXE_setNVMParam(unsigned short id, void* record) {
    return note("RXE_setNVMParam", id, {*static_cast<const std::uint8_t*>(record)});
}

RXE_API_STATUS RXE_start(void) {
    const lock_t guard(engine_double::mutex);
    const RXE_API_STATUS status = note("RXE_start");
    my.ongoing = my.ongoing || status == RXE_OK;
    return status;
}
RXE_API_STATUS RXE_stop(void) {
    const lock_t guard(engine_double::mutex);
    const RXE_API_STATUS status = note("RXE_stop");
    my.ongoing = my.ongoing && status != RXE_OK;
    return status;
}
RXE_API_STATUS RXE_resume(void) {
    const lock_t guard(engine_double::mutex);
    const RXE_API_STATUS status = note("RXE_resume");
    return status != RXE_OK || my.ongoing ? status : RXE_NO_START_ONGOING;
}

#define ONLY_NOTED(name)        \
    RXE_API_STATUS name(void) { \
        return note(#name);     \
    }
ONLY_NOTED(RXE_disconnect)
ONLY_NOTED(RXE_resetDb)
ONLY_NOTED(RXE_getErr)
ONLY_NOTED(RXE_disablePacketLogging)

const char* RXE_strerror(RXE_API_STATUS status) {
    return status == RXE_OK ? "no error" : "an error";
}
RXE_API_STATUS RXE_txFakeTags(unsigned short count) {
    return note("RXE_txFakeTags", count);
}
RXE_API_STATUS RXE_enablePacketLogging(const char* file) {
    return note("RXE_enablePacketLogging", 0, {}, file);
}

// The payload is the record itself, as far as it reaches.
RXE_API_STATUS RXE_formatPayloadToStruct(RXE_packet_s* packet, void* record) {
    const RXE_API_STATUS status = note("RXE_formatPayloadToStruct", packet->type);
    if (status == RXE_OK) {
        std::memcpy(record, packet->payload, packet->length);
    }
    return status;
}

}  // extern "C"
