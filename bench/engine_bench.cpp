// SPDX-License-Identifier: MIT
// The cost of the software radio engine: tag packets a second on the fast clock to a callback that does
// nothing, with few tags in the field and with many, and the cost of decoding one. The exit status is 1
// when an aim is missed.
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <atomic>
#include <cstdio>
#include <cstring>

#include "one_antenna.hpp"
#include "rxe.h"
#include "verdict.hpp"

namespace {

// Counted by the engine's thread, read by the benchmark's.
std::atomic<std::uint64_t> tags{0};
std::atomic<bool> ended{false};

int nothing(RXE_packet_s* packet) {
    if (packet->type == RXE_PACKET_TAG_INFO_CUSTOM) {
        tags.fetch_add(1, std::memory_order_relaxed);
    } else if (packet->type == RXE_PACKET_END_OF_RUN) {
        ended.store(true, std::memory_order_release);
        ended.notify_one();
    }
    return 0;
}

// A field of `count` tags within reach, and air in which frames do not get lost.
bool connect(std::int64_t count) {
    char path[] = "/tmp/engine-bench-XXXXXX";
    const int descriptor = mkstemp(path);
    std::FILE* const file = descriptor < 0 ? nullptr : fdopen(descriptor, "w");
    if (file == nullptr) {
        return false;
    }
    std::fprintf(file, R"({"clock": "fast", "control": "none", "tags": {"count": %d}})",
                 static_cast<int>(count));
    std::fclose(file);
    setenv("RXE_SCENARIO", path, 1);
    char device[] = "/dev/ttyS1";
    const bool connected = RXE_connect(device, 460800) == RXE_OK;
    std::remove(path);
    return connected && RXE_setCallback(nothing) == RXE_OK;
}

bool configure(std::uint32_t fields) {
    INVENTORY_OP_s inventory = everyTagInventory(0);
    OLIO_s olio = firstAntennaOlio(RXE_STOP_INVENTORY_ROUNDS, 1, 1519);
    PER_RADIO_STOP_s stop = {};
    stop.tagCount = 50000;
    return RXE_setParam(RXE_PARAM_INVENTORY + 1, &inventory) == RXE_OK &&
           RXE_setParam(RXE_PARAM_OLIO + 1, &olio) == RXE_OK &&
           RXE_setParam(RXE_PARAM_RADIO_STOP, &stop) == RXE_OK &&
           RXE_setParam(RXE_PARAM_CUSTOM_FIELDS, &fields) == RXE_OK;
}

// The arguments are the mask of custom fields and how many tags there are.
void fastTime(benchmark::State& state) {
    if (!connect(state.range(1)) || !configure(static_cast<std::uint32_t>(state.range(0)))) {
        state.SkipWithError("the engine refused the benchmark's setup");
        return;
    }
    tags = 0;
    for (auto _ : state) {
        ended = false;
        RXE_start();
        ended.wait(false, std::memory_order_acquire);  // asleep, so the engine has a core for itself
        RXE_stop();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(tags.load()));
    RXE_disconnect();
}
BENCHMARK(fastTime)
    ->ArgNames({"fields", "tags"})
    ->Args({0x3C01, 100})
    ->Args({0x3C01, 1000})
    ->Args({0x3C01, 10000})
    ->Args({0xFFFFF, 1000})
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

void decode(benchmark::State& state) {
    constexpr std::uint8_t payload[] = {0x8D, 0x30, 0x14, 0x25, 0x7B, 0xF7, 0x19, 0x4E, 0x40, 0x00,
                                        0x00, 0x1A, 0x85, 0x8C, 0x30, 0x00, 0x8B, 0x34, 0x12, 0x03,
                                        0x84, 0x11, 0x06, 0x0C, 0x1C, 0x01, 0xC2, 100,  100};
    std::uint16_t words[(sizeof(RXE_packet_s) + sizeof payload + 1) / 2];  // aligned for the packet
    auto* const packet = reinterpret_cast<RXE_packet_s*>(words);
    packet->type = RXE_PACKET_TAG_INFO_CUSTOM;
    packet->length = sizeof payload;
    std::memcpy(packet->payload, payload, sizeof payload);
    TAG_INFO_s info = {};
    for (auto _ : state) {
        info.fields = 0;
        benchmark::DoNotOptimize(RXE_formatPayloadToStruct(packet, &info));
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
}
BENCHMARK(decode);

}  // namespace

// The aims of the benchmarks that were run: packets a second from a thousand tags, and the
// cost of a packet with 10,000 tags in the field against 100.
int main(int argc, char** argv) {
    counters_reporter_s reporter;
    bool allMet = reporter.run(argc, argv);
    const auto packets = [&](const char* number) {
        const std::string name = std::string("fastTime/fields:15361/tags:") + number + "/real_time";
        const auto found = reporter.counters.find(name);
        return found == reporter.counters.end() ? 0.0 : found->second.at("items_per_second");
    };
    const double few = packets("100"), usual = packets("1000"), many = packets("10000");
    if (usual != 0) {
        allMet = atLeast("tag packets a second, 1,000 tags", usual, 50000) && allMet;
    }
    if (few != 0 && many != 0) {
        allMet = atMost("cost of a packet, 10,000 tags against 100", few / many, 2) && allMet;
    }
    return allMet ? 0 : 1;
}
