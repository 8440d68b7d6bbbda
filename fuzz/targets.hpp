// SPDX-License-Identifier: MIT
// The inputs of the programs, each as a function that takes whatever bytes come. The
// sanitizers check memory; require() checks everything else that is promised.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <span>
#include <string_view>

struct target_s {
    std::string_view name;  // of "--target=" and of the folder of its seeds
    // Leaves nothing behind that would change what the next input does. The input
    // has no terminating NUL and nothing readable behind it.
    void (*run)(std::string_view input);
};
// Those of this executable.
extern const std::span<const target_s> targets;

inline void require(bool kept, const char* promise) {
    if (!kept) {
        std::fprintf(stderr, "broken: %s\n", promise);
        std::abort();
    }
}

// Cuts the text up to the next separator off the front of `*rest`, which becomes
// empty behind the last.
inline std::string_view takeUntil(char separator, std::string_view* rest) {
    const std::size_t end = rest->find(separator);
    const std::string_view part = rest->substr(0, end);
    rest->remove_prefix(end == std::string_view::npos ? rest->size() : end + 1);
    return part;
}

// A file in memory, for what is read from a file: its name, good until the next call with
// the same number, which is 0 or 1.
const char* fileOf(std::string_view content, std::size_t number = 0);
