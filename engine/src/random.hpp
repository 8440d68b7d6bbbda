// SPDX-License-Identifier: MIT
// The engine's random numbers: SplitMix64 (Steele, Lea and Flood, OOPSLA 2014).
// The standard library's distributions differ between implementations; these do not, so that
// a seed gives the same packets everywhere. Not for keys or passwords: the series can be
// predicted.
#pragma once

#include <cstdint>

namespace rxe {

// Turns a number into one that looks random, always the same one: for draws that must not
// depend on the order in which they are made, such as the place of a tag by its number.
constexpr std::uint64_t mix64(std::uint64_t value) {
    value += 0x9E3779B97F4A7C15u;
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9u;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EBu;
    return value ^ (value >> 31);
}

// A series of draws, which belongs to one thread. The radio thread's begins with the scenario's
// seed; each draw moves the state on.
struct random_s {
    std::uint64_t state = 0;
};

// The next 64 bits of the series. The step is that of SplitMix64: 2^64 divided by the golden
// ratio, an odd number, so that the state takes all 2^64 values before it repeats.
inline std::uint64_t nextRandom(random_s* random) {
    const std::uint64_t value = mix64(random->state);
    random->state += 0x9E3779B97F4A7C15u;
    return value;
}

// 0 to bound - 1; `bound` is above 0. Multiplication instead of a remainder: the chance of each
// number is off by less than bound / 2^32 of itself, and there is not a division.
inline std::uint32_t randomBelow(random_s* random, std::uint32_t bound) {
    return static_cast<std::uint32_t>(((nextRandom(random) >> 32) * bound) >> 32);
}

// 0 to below 1, in steps of 2^-53, from the upper 53 of 64 bits that are already mixed.
constexpr double unitInterval(std::uint64_t bits) {
    return static_cast<double>(bits >> 11) * 0x1.0p-53;
}

// A draw from the normal distribution with mean 0 and deviation 1, as the sum of twelve uniform
// numbers: good within three deviations, never beyond normalEnds. Takes twelve draws of the
// series, and no function of the mathematics library, whose last bits differ between machines.
constexpr float normalEnds = 6;
inline double normal(random_s* random) {
    double sum = -6;
    for (int i = 0; i < 12; ++i) {
        sum += unitInterval(nextRandom(random));
    }
    return sum;
}

}  // namespace rxe
