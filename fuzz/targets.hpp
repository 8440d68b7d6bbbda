// SPDX-License-Identifier: MIT
// The inputs of the programs, each as a function that takes any bytes. The sanitizers check memory;
// require() checks everything else that the program promises about its input.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <span>
#include <string_view>

struct target_s {
    std::string_view name;  // of "--target=" and of the folder of its seeds
    // Leaves no state that would change the effect of the next input. The input is not terminated, and
    // a read behind it is an error.
    void (*run)(std::string_view input);
    // The longest input in bytes. Room for what the target tells apart, and not more: the time of an input
    // grows with its length.
    std::size_t longest;
};
// The targets of this executable.
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

// A file in memory with this content, for programs that read a file. Returns its name, which is valid
// until the next call with the same number, 0 or 1.
const char* fileOf(std::string_view content, std::size_t number = 0);
