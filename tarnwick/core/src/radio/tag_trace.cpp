// SPDX-License-Identifier: MIT
#include "radio/tag_trace.hpp"

#include <sys/time.h>

#include <algorithm>
#include <memory>

#include "additional_config.hpp"
#include "radio/report_plan.hpp"
#include "radio_state.hpp"
#include "zmq_intfc.hpp"

namespace radio {

bool isTraced = false;

namespace {

constexpr auto relaxed = std::memory_order_relaxed;

// A packet in a trace.
struct place_s {
    tag_trace_s* trace;
    std::uint64_t id;      // of the trace
    std::uint64_t number;  // of the packet
};

// The packet that was opened last, and its places.
traced_packet_s packet;
std::array<place_s, maxTraces> places;
std::size_t placeCount = 0;

// Writes the packet into its places. A trace that was removed meanwhile may have been freed: only those
// of the plan in force are there for certain.
void writePacket() {
    for (std::size_t i = 0; i < placeCount; ++i) {
        const place_s& place = places[i];
        const bool isThere = std::ranges::any_of(reportPlan().traces, [&](const auto& trace) {
            return trace.get() == place.trace && trace->id == place.id;
        });
        if (isThere) {
            place.trace->last[place.number % tracedPackets].write(packet, place.number);
        }
    }
}

void setReason(std::string_view text) {
    const std::size_t size = std::min(text.size(), packet.reason.size());
    std::copy_n(text.data(), size, packet.reason.data());
    packet.reasonBytes = static_cast<std::uint8_t>(size);
}

}  // namespace

void beginTrace(const TAG_INFO_s& info, const timeval& time) {
    const std::size_t bytes = std::min<std::size_t>(info.epcLength >> 3 & 0xFF, maxEpcBytes);
    placeCount = 0;
    for (const auto& trace : reportPlan().traces) {
        const std::size_t length = trace->prefix.size();
        if (length <= bytes && std::equal(trace->prefix.begin(), trace->prefix.end(), info.epc)) {
            const std::uint64_t number = trace->packets.load(relaxed) + 1;
            places[placeCount++] = {trace.get(), trace->id, number};
        }
    }
    if (placeCount == 0) {
        return;
    }
    packet = {};
    packet.time = time;
    packet.channel = currentChannel;
    packet.antenna = currentTxAntenna;
    packet.rssi = (info.fields & RXE_FIELD_RSSI) != 0 ? info.rssi : noRssi;
    packet.epcBytes = static_cast<std::uint8_t>(bytes);
    std::copy_n(info.epc, bytes, packet.epc.begin());
    packet.eventNum = eventNum.load(relaxed);
    writePacket();
    for (std::size_t i = 0; i < placeCount; ++i) {
        places[i].trace->packets.store(places[i].number, std::memory_order_release);
    }
    isTraced = true;
}

void endTrace(vocabulary::fate_e fate, int form) {
    using vocabulary::fate_e;
    packet.fate = static_cast<std::uint8_t>(fate);
    if (fate == fate_e::sent) {
        const bool reduced = form == DATA_ANALYTICS_BINARY && reportPlan().modeType == MODE_TYPE_e::BEARING;
        packet.form = static_cast<std::uint8_t>(form);
        packet.eventNum = reduced ? noEventNum : packet.eventNum;
        packet.listeners = sockets::tag_data.listeners.load(relaxed);
        packet.quietUntil = 0;
        packet.reasonBytes = 0;
    } else if (fate == fate_e::filtered) {
        setReason(reportPlan().filterRule);
    }
    writePacket();
    isTraced = false;
}

void traceHeldBack(std::string_view key) {
    packet.quietUntil = quietUntil();
    setReason(key);
    writePacket();
}

}  // namespace radio

namespace {

// The traces. Main thread.
using traces_t = std::vector<std::shared_ptr<tag_trace_s>>;
traces_t traces;

traces_t::iterator find(const std::vector<std::uint8_t>& prefix) {
    return std::ranges::find(traces, prefix, [](const auto& trace) { return trace->prefix; });
}

trace_s headOf(const tag_trace_s& trace) {
    return {trace.prefix, trace.since, trace.packets.load(std::memory_order_acquire), {}};
}

}  // namespace

bool addTrace(const std::vector<std::uint8_t>& prefix) {
    if (find(prefix) != traces.end()) {
        return true;
    }
    if (traces.size() == maxTraces) {
        return false;
    }
    static std::uint64_t ids = 0;
    const auto trace = std::make_shared<tag_trace_s>();
    trace->prefix = prefix;
    trace->id = ++ids;
    gettimeofday(&trace->since, nullptr);
    traces.push_back(trace);
    publishTraces(traces);
    return true;
}

bool removeTrace(const std::vector<std::uint8_t>& prefix) {
    const auto trace = find(prefix);
    if (trace == traces.end()) {
        return false;
    }
    traces.erase(trace);
    publishTraces(traces);
    return true;
}

std::vector<trace_s> getTraces() {
    std::vector<trace_s> all;
    std::ranges::transform(traces, std::back_inserter(all), [](const auto& trace) { return headOf(*trace); });
    return all;
}

std::optional<trace_s> getTrace(const std::vector<std::uint8_t>& prefix) {
    const auto found = find(prefix);
    if (found == traces.end()) {
        return std::nullopt;
    }
    const tag_trace_s& trace = **found;
    trace_s copy = headOf(trace);
    const std::uint64_t kept = std::min<std::uint64_t>(copy.packets, tracedPackets);
    for (std::uint64_t number = copy.packets - kept + 1; number <= copy.packets; ++number) {
        traced_packet_s packet;
        const shared_record_s<traced_packet_s>& place = trace.last[number % tracedPackets];
        // Its fate may be being written at this moment.
        constexpr int tries = 1000;
        bool copied = false;
        for (int i = 0; i < tries && !copied; ++i) {
            copied = place.copy(number, &packet);
        }
        if (copied) {
            copy.last.push_back(packet);
        }
    }
    return copy;
}
