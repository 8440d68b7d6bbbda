// SPDX-License-Identifier: MIT
#include "support/engine_double.hpp"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>

namespace engine_double {
namespace {

using bytes_t = std::vector<std::uint8_t>;

struct failure_s {
    std::string name;
    int id;
    RXE_API_STATUS status;
    int skip;  // matching calls that still succeed
};

// One mutex for all of it; never held while the callback runs.
struct state_s {
    std::mutex lock;
    std::vector<call_s> calls;
    std::vector<failure_s> failures;
    std::map<unsigned, bytes_t> answers;  // by setRecord, before what was set
    std::map<unsigned, bytes_t> written;  // by RXE_setParam and RXE_setParam2
    int (*callback)(RXE_packet_s*) = nullptr;
    bool ongoing = false;
};

state_s& state() {
    static state_s theState;
    return theState;
}

struct range_s {
    unsigned first, last;
    std::size_t size;
};

// Bytes of a parameter's record. The first range that holds the id counts.
constexpr range_s ranges[] = {
    {0x0001, 0x0001, sizeof(REL_VERSION_s)},
    {0x0004, 0x0004, sizeof(PACKET_ENABLE_s)},
    {0x0005, 0x0005, sizeof(PER_RADIO_STOP_s)},
    {0x0009, 0x0009, sizeof(std::uint32_t)},
    {0x0011, 0x0011, sizeof(std::uint16_t)},
    {0x0014, 0x0014, sizeof(std::uint32_t)},
    {0x0015, 0x0015, sizeof(PER_RADIO_STOP2_s)},
    {0x0020, 0x003F, sizeof(std::uint32_t)},
    {0x0100, 0x01FF, sizeof(SELECT_OP_s)},
    {0x0200, 0x02FF, sizeof(INVENTORY_OP_s)},
    {0x0300, 0x03FF, sizeof(ACCESS_OP_s)},
    {0x0400, 0x07FF, sizeof(OLIO_s)},
    {0x0800, 0x087F, sizeof(CHANNEL_s)},
    {0x1000, 0x10EA, sizeof(REPORT_FILTER_ID_s)},
    {0x10EE, 0x10EF, sizeof(std::uint16_t)},
    {0x10F3, 0x10F5, sizeof(std::uint16_t)},
    {0x10FF, 0x10FF, sizeof(REPORT_FILTER_LAST_REPORT_s)},
    {0x2100, 0x2111, sizeof(std::uint16_t)},
    {0x2300, 0x23FF, sizeof(AAREchoResults)},
    {0xD003, 0xD003, sizeof(GPIO_START_s)},
    {0xD005, 0xD005, sizeof(GPIO_START2_s)},
};

std::size_t recordSize(unsigned id) {
    for (const range_s& range : ranges) {
        if (id >= range.first && id <= range.last) {
            return range.size;
        }
    }
    return 1;
}

template <class Record>
bytes_t bytesOf(const Record& record) {
    const auto* first = reinterpret_cast<const std::uint8_t*>(&record);
    return {first, first + sizeof(record)};
}

bytes_t defaultAnswer(unsigned id) {
    if (id == RXE_PARAM_FW_VERSION) {
        return {2, 1, 50, 0};
    }
    if (id == RXE_PARAM_MAX_TX_POWER) {
        return bytesOf(std::uint32_t{330});
    }
    if (id > RXE_PARAM_CHANNEL && id <= RXE_PARAM_CHANNEL + 4) {
        const unsigned channel = id - RXE_PARAM_CHANNEL;
        return bytesOf(CHANNEL_s{.enable = 1,
                                 .reserved1 = {},
                                 .frequency = 902500 + 500 * channel,
                                 .maxPower = 300,
                                 .reserved10 = 0});
    }
    return {};
}

RXE_API_STATUS note(call_s call) {
    state_s& my = state();
    const int id = static_cast<int>(call.id);
    RXE_API_STATUS status = RXE_OK;
    for (failure_s& failure : my.failures) {
        if (failure.name != call.name || (failure.id != -1 && failure.id != id)) {
            continue;
        }
        if (failure.skip > 0) {
            --failure.skip;
        } else {
            status = failure.status;
        }
    }
    my.calls.push_back(std::move(call));
    return status;
}

RXE_API_STATUS noteSimple(const char* name, unsigned id = 0, const char* text = "") {
    const std::lock_guard guard(state().lock);
    return note({.name = name, .id = id, .record = {}, .shadow = false, .text = text});
}

RXE_API_STATUS write(const char* name, unsigned short id, const void* record, std::size_t size, bool shadow) {
    const std::lock_guard guard(state().lock);
    const auto* first = static_cast<const std::uint8_t*>(record);
    const bytes_t bytes(first, first + size);
    const RXE_API_STATUS status =
        note({.name = name, .id = id, .record = bytes, .shadow = shadow, .text = ""});
    if (status == RXE_OK) {
        state().written[id] = bytes;
    }
    return status;
}

}  // namespace

std::string describe(const call_s& call) {
    constexpr std::size_t prefix = sizeof("RXE_") - 1;
    char number[16];
    std::string line = call.name.substr(prefix);
    if (call.id != 0) {
        std::snprintf(number, sizeof(number), " %04x", call.id);
        line += number;
    }
    if (!call.record.empty()) {
        bytes_t record = call.record;
        while (!record.empty() && record.back() == 0) {
            record.pop_back();
        }
        line += record.empty() ? " -" : " ";
        for (const std::uint8_t byte : record) {
            std::snprintf(number, sizeof(number), "%02x", byte);
            line += number;
        }
    }
    return call.text.empty() ? line : line + " " + call.text;
}

std::vector<call_s> calls() {
    const std::lock_guard guard(state().lock);
    return state().calls;
}

void reset() {
    state_s& my = state();
    const std::lock_guard guard(my.lock);
    my.calls.clear();
    my.failures.clear();
    my.answers.clear();
    my.written.clear();
    my.callback = nullptr;
    my.ongoing = false;
}

void clearCalls() {
    const std::lock_guard guard(state().lock);
    state().calls.clear();
}

void failOn(const std::string& name, int id, RXE_API_STATUS status, int skip) {
    const std::lock_guard guard(state().lock);
    state().failures.push_back({name, id, status, skip});
}

void setRecord(unsigned short id, const void* record, std::size_t size) {
    const std::lock_guard guard(state().lock);
    const auto* first = static_cast<const std::uint8_t*>(record);
    state().answers[id] = bytes_t(first, first + size);
}

void setOngoing(bool ongoing) {
    const std::lock_guard guard(state().lock);
    state().ongoing = ongoing;
}

int deliver(std::uint16_t rawType, std::span<const std::uint8_t> payload) {
    int (*callback)(RXE_packet_s*) = nullptr;
    {
        const std::lock_guard guard(state().lock);
        callback = state().callback;
    }
    if (callback == nullptr) {
        return -1;
    }
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

using engine_double::note;
using engine_double::noteSimple;
using engine_double::recordSize;
using engine_double::state;

extern "C" {

RXE_API_STATUS RXE_getAPIVerNum(REL_VERSION_s* version, char** text) {
    static char name[] = "double";
    const RXE_API_STATUS status = noteSimple("RXE_getAPIVerNum");
    if (status == RXE_OK) {
        *version = {2, 2, 40, 0};
        if (text != nullptr) {
            *text = name;
        }
    }
    return status;
}

RXE_API_STATUS RXE_connect(char* device, unsigned long baud) {
    return noteSimple("RXE_connect", static_cast<unsigned>(baud), device);
}
RXE_API_STATUS RXE_disconnect(void) {
    return noteSimple("RXE_disconnect");
}

RXE_API_STATUS RXE_setCallback(int (*callback)(RXE_packet_s*)) {
    const RXE_API_STATUS status = noteSimple("RXE_setCallback");
    if (status == RXE_OK) {
        const std::lock_guard guard(state().lock);
        state().callback = callback;
    }
    return status;
}

RXE_API_STATUS RXE_getParam(unsigned short id, void* record) {
    engine_double::state_s& my = state();
    const std::lock_guard guard(my.lock);
    const RXE_API_STATUS status =
        note({.name = "RXE_getParam", .id = id, .record = {}, .shadow = false, .text = ""});
    if (status != RXE_OK) {
        return status;
    }
    engine_double::bytes_t answer = engine_double::defaultAnswer(id);
    if (my.answers.contains(id)) {
        answer = my.answers[id];
    } else if (my.written.contains(id)) {
        answer = my.written[id];
    }
    answer.resize(recordSize(id));
    std::memcpy(record, answer.data(), answer.size());
    return status;
}

RXE_API_STATUS RXE_setParam(unsigned short id, void* record) {
    return engine_double::write("RXE_setParam", id, record, recordSize(id), false);
}

RXE_API_STATUS RXE_setParam2(unsigned short id, void* record, bool flag, bool useShadow) {
    // A cleared first flag has no use here; the name tells it apart in `calls`.
    const char* name = flag ? "RXE_setParam2" : "RXE_setParam2 without its flag";
    return engine_double::write(name, id, record, recordSize(id), useShadow);
}

// A memory of its own, which nothing here reads.
RXE_API_STATUS RXE_setNVMParam(unsigned short id, void* record) {
    const std::lock_guard guard(state().lock);
    const auto byte = *static_cast<const std::uint8_t*>(record);
    return note({.name = "RXE_setNVMParam", .id = id, .record = {byte}, .shadow = false, .text = ""});
}

RXE_API_STATUS RXE_start(void) {
    const RXE_API_STATUS status = noteSimple("RXE_start");
    const std::lock_guard guard(state().lock);
    state().ongoing = state().ongoing || status == RXE_OK;
    return status;
}
RXE_API_STATUS RXE_stop(void) {
    const RXE_API_STATUS status = noteSimple("RXE_stop");
    const std::lock_guard guard(state().lock);
    state().ongoing = state().ongoing && status != RXE_OK;
    return status;
}
RXE_API_STATUS RXE_resume(void) {
    const RXE_API_STATUS status = noteSimple("RXE_resume");
    const std::lock_guard guard(state().lock);
    return status != RXE_OK || state().ongoing ? status : RXE_NO_START_ONGOING;
}

RXE_API_STATUS RXE_resetDb(void) {
    return noteSimple("RXE_resetDb");
}
RXE_API_STATUS RXE_getErr(void) {
    return noteSimple("RXE_getErr");
}
const char* RXE_strerror(RXE_API_STATUS status) {
    return status == RXE_OK ? "no error" : "an error";
}
RXE_API_STATUS RXE_txFakeTags(unsigned short count) {
    return noteSimple("RXE_txFakeTags", count);
}
RXE_API_STATUS RXE_enablePacketLogging(const char* file) {
    return noteSimple("RXE_enablePacketLogging", 0, file);
}
RXE_API_STATUS RXE_disablePacketLogging(void) {
    return noteSimple("RXE_disablePacketLogging");
}

// The payload is the record itself, as far as it reaches.
RXE_API_STATUS RXE_formatPayloadToStruct(RXE_packet_s* packet, void* record) {
    const RXE_API_STATUS status = noteSimple("RXE_formatPayloadToStruct", packet->type);
    if (status == RXE_OK) {
        std::memcpy(record, packet->payload, packet->length);
    }
    return status;
}

}  // extern "C"
