// SPDX-License-Identifier: MIT
#include "propagation.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace rxe {
namespace {

constexpr double TAG_GAIN = 2;               // dBi
constexpr double POLARISATION = 3;           // dB between a circular antenna and a linear tag
constexpr double MODULATION = 6;             // dB lost in the tag's modulation
constexpr double ARRAY_GAIN = 6;             // dB that a beam has above one element
constexpr double MID_BAND_METRES = 0.32764;  // wavelength at 915 MHz
constexpr double LIGHT_KM = 299792.458;      // per second, so that kHz give metres
constexpr double NEAR_FIELD = 0.1;           // metres; closer makes no difference

// A number from the normal distribution that is the same for the same bits.
double fixedNormal(std::uint64_t bits) {
    const double u = std::max(unitInterval(mix64(bits)), 1e-12), v = unitInterval(mix64(~bits));
    return std::sqrt(-2 * std::log(u)) * std::cos(2 * std::numbers::pi * v);
}

double shadow(const air_s& air, const carrier_s& carrier, const tag_s& tag) {
    return air.shadowDb <= 0 ? 0 : air.shadowDb * fixedNormal(mix64(tag.id) ^ carrier.antenna);
}

}  // namespace

double pathLoss(double metres, double exponent) {
    const double atOneMetre = 20 * std::log10(4 * std::numbers::pi / MID_BAND_METRES);
    return atOneMetre + (metres < 1 ? 20 : 10 * exponent) * std::log10(std::max(metres, NEAR_FIELD));
}

path_s pathOf(const world_s& world, const carrier_s& carrier, const tag_s& tag, std::int64_t now) {
    const antenna_s& antenna = world.antennas[carrier.beam ? 0 : carrier.antenna];
    const place_s place = placeAt(tag, now);
    const float metres =
        std::hypot(place.x - antenna.place.x, place.y - antenna.place.y, place.z - antenna.place.z);
    path_s path;
    path.metres = metres;
    double gain = antenna.gain;
    double polarisation = POLARISATION;
    if (carrier.beam) {
        path.seen = directionTo(antenna.place, place);
        gain += ARRAY_GAIN - beamLoss(carrier.direction, path.seen);
        polarisation = polarisationLoss(carrier.direction.polarisation, unitInterval(mix64(tag.id)));
    }
    const double oneWay = gain + TAG_GAIN - polarisation - pathLoss(metres, world.air.exponent) -
                          shadow(world.air, carrier, tag);
    path.atTag = static_cast<float>(carrier.power - carrier.cableLoss + oneWay);
    path.atReader = static_cast<float>(path.atTag + oneWay - MODULATION - carrier.cableLoss);
    return path;
}

float backscatterPhase(float metres, std::uint32_t kilohertz, std::uint16_t antenna) {
    const double offset = unitInterval(mix64(std::uint64_t{kilohertz} << 16 | antenna));
    const double turns = 2.0 * metres * kilohertz / LIGHT_KM + offset;
    const auto phase = static_cast<float>((turns - std::floor(turns)) * 2 * std::numbers::pi);
    return std::min(phase, std::nextafter(static_cast<float>(2 * std::numbers::pi), 0.0F));
}

double bitErrorRate(double margin) {
    return 0.5 * std::exp(-4 * std::pow(10, margin / 10));
}

}  // namespace rxe
