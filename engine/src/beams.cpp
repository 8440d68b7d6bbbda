// SPDX-License-Identifier: MIT
#include "beams.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace rxe {
namespace {

constexpr float radian = std::numbers::pi_v<float> / 180;
constexpr float halfWidth = 15;     // degrees from the middle of a beam to 3 dB less
constexpr float sideLobeLoss = 20;  // dB below the middle
constexpr float crossedLoss = 20;   // dB, the most that a wrong polarisation costs
constexpr float circularLoss = 3;   // dB between circular and linear

// One row of a grid: rings of equal steps, the first at the highest elevation.
struct rings_s {
    int first, last;  // offsets of the ids
    int perRing, step;
    int elevation, elevationStep;
};

constexpr std::array coarse{rings_s{1, 96, 24, 15, 60, 15}, rings_s{97, 97, 1, 0, 0, 0}};
constexpr std::array fine{rings_s{1, 864, 72, 5, 70, 5}, rings_s{865, 888, 24, 15, 10, 0},
                          rings_s{889, 896, 8, 45, 5, 0}, rings_s{897, 897, 1, 0, 0, 0}};

// The beam at this offset of a grid; one that is not valid where the grid has a gap.
template <typename Grid>
beam_s inGrid(const Grid& grid, int offset, int polarisation) {
    for (const rings_s& rings : grid) {
        if (offset >= rings.first && offset <= rings.last) {
            const int n = offset - rings.first;
            return {n % rings.perRing * rings.step, rings.elevation - n / rings.perRing * rings.elevationStep,
                    polarisation};
        }
    }
    return {-1, -1, polarisation};
}

// Degrees between two directions from the array.
float angleBetween(float azimuthA, float elevationA, direction_s b) {
    const float cosine = std::cos(elevationA * radian) * std::cos(b.elevation * radian) +
                         std::sin(elevationA * radian) * std::sin(b.elevation * radian) *
                             std::cos((azimuthA - b.azimuth) * radian);
    return std::acos(std::clamp(cosine, -1.0F, 1.0F)) / radian;
}

}  // namespace

beam_s beamOf(std::uint16_t id) {
    if (id <= 1000) {
        return inGrid(coarse, id % 100, id / 100 < 4 ? (id / 100 + 1) * 1000 : 0);
    }
    return inGrid(fine, id % 1000, id > 5999 ? 0 : id / 1000 * 1000);
}

// The inverse of the rows of `fine`.
std::uint16_t beamId(int azimuth, int elevation, int polarisation) {
    const int offset = elevation == 0    ? 897
                       : elevation == 5  ? 889 + azimuth / 45
                       : elevation == 10 ? 865 + azimuth / 15
                                         : 1 + azimuth / 5 + 72 * ((70 - elevation) / 5);
    return static_cast<std::uint16_t>(polarisation + offset);
}

std::vector<std::uint16_t> heatMapBeams(int polarisation) {
    std::vector<std::uint16_t> beams;
    for (int elevation = 60; elevation > 0; elevation -= 15) {
        for (int azimuth = 0; azimuth < 360; azimuth += 15) {
            beams.push_back(beamId(azimuth, elevation, polarisation));
        }
    }
    beams.push_back(beamId(0, 0, polarisation));
    return beams;
}

direction_s directionTo(place_s from, place_s to) {
    const float x = to.x - from.x, y = to.y - from.y, down = from.z - to.z;
    const float azimuth = std::atan2(y, x) / radian;
    return {azimuth < 0 ? azimuth + 360 : azimuth, std::atan2(std::hypot(x, y), down) / radian};
}

float beamLoss(const beam_s& beam, direction_s direction) {
    const float off =
        angleBetween(static_cast<float>(beam.azimuth), static_cast<float>(beam.elevation), direction) /
        halfWidth;
    return std::min(3 * off * off, sideLobeLoss);
}

float polarisationLoss(int polarisation, double turn) {
    const auto angle = static_cast<float>(turn) * std::numbers::pi_v<float>;
    const auto linear = [](float part) { return part < 0.1F ? crossedLoss : -20 * std::log10(part); };
    switch (polarisation) {
        case 1000:
            return 0;
        case 2000:
            return linear(std::abs(std::cos(angle)));
        case 3000:
            return linear(std::abs(std::sin(angle)));
        default:
            return circularLoss;
    }
}

}  // namespace rxe
