// SPDX-License-Identifier: MIT
// The mouths of the software radio engine: its two files, its control socket, the
// payloads that it decodes, and the records that the host gives it.
#include "targets.hpp"

#include <atomic>
#include <chrono>
#include <cstring>
#include <memory>
#include <thread>

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

void packetLog(std::string_view input) {
    setenv("RXE_REPLAY", fileOf(input), 1);
    rxe::replay_s replay;
    std::string error;
    require(loadReplay(&replay, &error) || isLine(error), "what is wrong is one line");
    for (const rxe::replay_packet_s& packet : replay.packets) {
        require(packet.offset + packet.length <= replay.bytes.size(), "a packet lies within its file");
    }
    unsetenv("RXE_REPLAY");
}

// The raw type in two bytes, low byte first, and a payload. The record stands in a
// block of its own size.
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
        {rxe::TYPE_TAG_CUSTOM, decodeAs<TAG_INFO_s>},
        {rxe::TYPE_TAG_COMPLETE, decodeAs<TAG_INFO_s>},
        {rxe::TYPE_ACCESS_INFO, decodeAs<ACCESS_INFO_s>},
        {rxe::TYPE_PARALLEL_RSSI, decodeAs<PARALLEL_RSSI_s>},
        {rxe::TYPE_START_INFO3, decodeAs<START_INFO_s>},
        {rxe::TYPE_DB_WARNING, decodeAs<DB_WARNING_s>},
    };
    if (!input.empty()) {
        const auto& row = types[static_cast<std::uint8_t>(input.front()) % std::size(types)];
        row.decode(row.type, {reinterpret_cast<const std::uint8_t*>(input.data()) + 1, input.size() - 1});
    }
}

// ---- records

// Packets of the run under way. Written by the radio thread, read by the host's.
std::atomic<unsigned> delivered{0};
constexpr unsigned enough = 300;
constexpr std::chrono::milliseconds patience{4};

int count(RXE_packet_s*) {
    delivered.fetch_add(1, std::memory_order_relaxed);
    return 0;
}

bool connect(char model) {
    constexpr const char* models[] = {"any", "PN5100", "PN8200", "QDX4400"};
    const std::string text =
        R"({"control": "none", "clock": "fast", "model": ")" + std::string(models[model & 3]) + R"("})";
    setenv("RXE_SCENARIO", fileOf(text), 1);
    char device[] = "/dev/ttyS1";
    return RXE_connect(device, 460800) == RXE_OK && RXE_setCallback(count) == RXE_OK;
}

// A run with whatever was set. A plan may well have nothing to send, so that time
// ends it too.
void run() {
    delivered = 0;
    if (RXE_start() == RXE_OK) {
        const auto end = std::chrono::steady_clock::now() + patience;
        while (delivered.load(std::memory_order_relaxed) < enough && std::chrono::steady_clock::now() < end) {
            std::this_thread::sleep_for(std::chrono::microseconds(50));
        }
        require(RXE_stop() == RXE_OK, "a run can be stopped");
    }
}

// The reader's model, then records, of which what lies behind the last byte that is
// not zero is left out:
//
//   | id, low byte first: 2 | bytes: 1 | record |
//
// Those that the radio takes read back, and then it runs with them.
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
    run();
    RXE_disconnect();
}

constexpr target_s table[] = {
    {"scenario", scenario}, {"control_event", controlEvent}, {"packet_log", packetLog},
    {"payload", payload},   {"parameters", parameters},
};

}  // namespace

const std::span<const target_s> targets = table;
