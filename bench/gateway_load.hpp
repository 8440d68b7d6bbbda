// SPDX-License-Identifier: MIT
// What the benchmarks of the gateway send, and the way through a spool.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "sender.hpp"
#include "spool.hpp"

inline std::string reportOf(std::uint64_t number) {
    return R"({"data":{"antenna":1,"eventNum":)" + std::to_string(number) +
           R"(,"format":"epc","idHex":"30340a0b0c0d0e0f10111213","peakRssi":-52},)"
           R"("timestamp":"2026-03-02T10:15:30.123+0000","type":"INVENTORY"})";
}

inline std::vector<std::string> reportsUpTo(std::uint64_t count) {
    std::vector<std::string> bodies;
    for (std::uint64_t i = 0; i < count; ++i) {
        bodies.push_back(reportOf(i));
    }
    return bodies;
}

inline double secondsFor(auto work) {
    const auto begin = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

inline double middleOf(std::vector<double> values) {
    std::ranges::sort(values);
    return values[values.size() / 2];
}

// Seconds until all of them are committed, for every sink of the spool.
inline double fillSpool(spool_c* spool, const std::vector<std::string>& bodies) {
    constexpr std::size_t atOnce = 500;
    std::vector<source_account_s> sources(1);
    sources[0].reader = "dock";
    const std::int64_t boot = spool->addBoot("dock", 1);
    return secondsFor([&] {
        for (std::size_t i = 0; i < bodies.size(); i += atOnce) {
            std::vector<new_entry_s> entries;
            for (std::size_t j = i; j < std::min(i + atOnce, bodies.size()); ++j) {
                entries.push_back({.source = 0,
                                   .stream = stream_e::tags,
                                   .boot = boot,
                                   .number = j,
                                   .takenAt = nowMicroseconds(),
                                   .body = bodies[j]});
            }
            spool->take(std::move(entries), &sources);
        }
        spool->flush();
    });
}

// Seconds from the start of the sink until it has settled all that is pending for it, 1 minute at most.
inline double emptySpool(spool_c* spool, const sink_config_s& config) {
    const spool_account_s account = spool->account();
    sender_c sender(config, *std::ranges::find(account.sinks, config.name, &sink_account_s::name), spool);
    return secondsFor([&] {
        sender.drain(std::chrono::steady_clock::now() + std::chrono::minutes(1), true);
        sender.join();
    });
}

inline std::uint64_t pendingIn(spool_c* spool) {
    spool->flush();
    std::uint64_t pending = 0;
    for (const sink_account_s& sink : spool->account().sinks) {
        pending += sink.pending();
    }
    return pending;
}
