// SPDX-License-Identifier: MIT
// Counts allocations and measures times for the benchmarks. It replaces operator new, so only one file
// of a program may include it.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <vector>

// Calls of operator new on this thread. Bodies of ZeroMQ's messages come from
// malloc and are not among them.
inline thread_local std::uint64_t allocations = 0;

// Not inlined: the compiler would warn that the pair below does not match.
[[gnu::noinline]] void* operator new(std::size_t size) {
    ++allocations;
    if (void* memory = std::malloc(size)) {
        return memory;
    }
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

inline double secondsOf(auto&& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

inline double median(std::vector<double> values) {
    std::ranges::sort(values);
    return values[values.size() / 2];
}
