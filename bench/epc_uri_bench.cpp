// SPDX-License-Identifier: MIT
// Decodes per second for each scheme, and the heap allocations of a decode.
// "to_sgtin96" is a decode's time against that of an sgtin-96 of the same run.
// The exit status is 1 when an aim is missed.
#include <benchmark/benchmark.h>

#include <array>
#include <ctime>
#include <limits>

#include "measure.hpp"
#include "tuvr.h"
#include "verdict.hpp"

namespace {

constexpr double leastDecodes = 1e6;  // a second, of every scheme

struct code_s {
    const char* scheme;
    const char* hex;
};

constexpr std::array codes{
    code_s{"sgtin-96", "3074257BF7194E4000001A85"},
    code_s{"sgtin-198", "3674257BF6B7A659B2C2BF100000000000000000000000000000"},
    code_s{"sscc-96", "3174257BF4499602D2000000"},
    code_s{"sgln-96", "3274257BF46072000000162E"},
    code_s{"sgln-195", "3974257BF46072CD9615F8800000000000000000000000000000"},
    code_s{"grai-96", "3376451FD40C0E400000162E"},
    code_s{"grai-170", "3774257BF40C0E59B2C2BF1000000000000000000000"},
    code_s{"giai-96", "3474257BF40000000000162E"},
    code_s{"giai-202", "3874257BF59B2C2BF10000000000000000000000000000000000"},
    code_s{"gsrn-96", "2D74257BF4499602D2000000"},
    code_s{"gsrnp-96", "2E74257BF4499602D2000000"},
    code_s{"gdti-96", "2C74257BF46072000000162E"},
    code_s{"gdti-113", "3A74257BF460720000000007AE7F8000"},
    code_s{"gdti-174", "3E74257BF46072CD9615F88000000000000000000000"},
    code_s{"cpi-96", "3C74257BF400C0E680003039"},
    code_s{"cpi-var", "3D74257BF75411DEF6B4CC00000003039000"},
    code_s{"sgcn-96", "3F74257BF61264000098A8E7"},
    code_s{"itip-110", "4074257BF40C0E42630000006A14"},
    code_s{"itip-212", "4174257BF40C0E408266CB0AFC400000000000000000000000000000"},
    code_s{"gid-96", "350007AB70425D4000000586"},
    code_s{"usdod-96", "2F320434147455900000162E"},
    code_s{"adi-var", "3B0E0CF5E76C9047759AD00373DC7602E7200000"},
    code_s{"a TID, refused", "E28011606000020000000000"},
};

// CPU time of this thread in seconds, so that other programs do not count.
double cpuSeconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// Seconds of one sgtin-96 decode, measured right after each benchmark.
double yardstick() {
    constexpr int rounds = 100000;
    std::array<char, 1024> buffer{};
    const auto start = cpuSeconds();
    for (int i = 0; i < rounds; ++i) {
        benchmark::DoNotOptimize(tuvr_hexToEpcTagUri(codes[0].hex, 1024, buffer.data()));
    }
    return (cpuSeconds() - start) / rounds;
}

void decode(benchmark::State& state, const code_s& code) {
    std::array<char, 1024> buffer{};
    const auto before = allocations;
    const auto start = cpuSeconds();
    for (auto _ : state) {
        benchmark::DoNotOptimize(tuvr_hexToEpcTagUri(code.hex, 1024, buffer.data()));
    }
    const auto seconds = cpuSeconds() - start;
    const auto count = allocations - before;
    const auto decodes = static_cast<double>(state.iterations());
    state.counters["decodes"] = benchmark::Counter(decodes, benchmark::Counter::kIsRate);
    state.counters["allocations"] = static_cast<double>(count);
    state.counters["to_sgtin96"] = seconds / decodes / yardstick();
    const bool isDecoded = tuvr_hexToEpcTagUri(code.hex, 1024, buffer.data()) == 0;
    if (isDecoded != (code.hex[0] != 'E')) {
        state.SkipWithError("the code is not decoded as it should be");
    }
}

}  // namespace

int main(int argc, char** argv) {
    for (const auto& code : codes) {
        benchmark::RegisterBenchmark(code.scheme, [&code](benchmark::State& state) { decode(state, code); });
    }
    counters_reporter_s reporter;
    const bool ran = reporter.run(argc, argv) && !reporter.counters.empty();
    double slowest = std::numeric_limits<double>::infinity(), most = 0;
    for (const auto& [scheme, counters] : reporter.counters) {
        slowest = std::min(slowest, counters.at("decodes"));
        most = std::max(most, counters.at("allocations"));
    }
    const bool fast = atLeast("decodes a second, slowest scheme", slowest, leastDecodes);
    const bool lean = atMost("allocations of all decodes of a scheme", most, 0);
    return ran && fast && lean ? 0 : 1;
}
