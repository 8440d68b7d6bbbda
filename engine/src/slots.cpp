// SPDX-License-Identifier: MIT
// Slots are drawn one by one, each from the tags that the earlier ones have left, so a frame costs
// as many draws as it has slots, whatever the number of tags.
#include "slots.hpp"

#include <algorithm>
#include <cmath>

namespace rxe {
namespace {

// Above this mean the walk below would be long and its first term too small.
constexpr double walkableMean = 60;

}  // namespace

std::uint32_t drawBinomial(std::uint32_t count, double probability, random_s* random) {
    if (count == 0 || probability >= 1) {
        return count;
    }
    const double mean = count * probability;
    // More than a few tags in a slot collide whatever their number, so the normal approximation
    // is good enough.
    if (mean > walkableMean) {
        const double drawn = mean + std::sqrt(mean * (1 - probability)) * normal(random);
        return static_cast<std::uint32_t>(std::clamp(std::round(drawn), 0.0, static_cast<double>(count)));
    }
    // Inversion: walk the distribution from 0 until it covers a uniform number.
    const double odds = probability / (1 - probability);
    double term = std::exp(count * std::log1p(-probability));
    double left = unitInterval(nextRandom(random)) - term;
    std::uint32_t k = 0;
    while (left >= 0 && k < count) {
        term *= odds * (count - k) / (k + 1);
        left -= term;
        ++k;
    }
    return k;
}

std::uint32_t drawSlot(frame_s* frame, random_s* random) {
    const std::uint32_t slotsLeft = frame->slots - frame->next;
    const std::uint32_t k =
        slotsLeft == 1 ? frame->waiting : drawBinomial(frame->waiting, 1.0 / slotsLeft, random);
    frame->waiting -= k;
    ++frame->next;
    return k;
}

}  // namespace rxe
