// SPDX-License-Identifier: MIT
#include "propagation.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace rxe {
namespace {

constexpr double tagGain = 2;           // dBi
constexpr double circularToLinear = 3;  // dB between a circular antenna and a linear tag
constexpr double modulationLoss = 6;    // dB lost in the tag's modulation
constexpr double arrayGain = 6;         // dB that a beam has above one element
constexpr double lightKm = 299792.458;  // per second, so that kHz give metres
constexpr double nearField = 0.1;       // metres; the loss does not fall below that of 0.1 m

// A number from the normal distribution that is the same for the same bits.
double fixedNormal(std::uint64_t bits) {
    const double u = std::max(unitInterval(mix64(bits)), 1e-12), v = unitInterval(mix64(~bits));
    return std::sqrt(-2 * std::log(u)) * std::cos(2 * std::numbers::pi * v);
}

// dB, the same for each read of a tag at an antenna: what stands between them does not move.
double shadow(const air_s& air, std::uint16_t antenna, const tag_s& tag) {
    return air.shadowDb <= 0 ? 0 : air.shadowDb * fixedNormal(mix64(tag.id) ^ antenna);
}

// The way between one antenna and the tag, without cables and beams.
struct way_s {
    float metres = 0;
    double gain = 0;  // dB
};

way_s wayOf(const world_s& world, std::uint32_t kilohertz, std::uint16_t port, std::uint16_t antenna,
            const tag_s& tag, place_s place) {
    const place_s& from = world.antennas[port].place;
    way_s way;
    way.metres = std::hypot(place.x - from.x, place.y - from.y, place.z - from.z);
    way.gain = world.antennas[port].gain + tagGain - pathLoss(way.metres, kilohertz, world.air.exponent) -
               shadow(world.air, antenna, tag);
    return way;
}

// Each tag is turned by an angle of its own, which decides what a linear polarisation loses.
double beamGain(const beam_s& beam, float loss, const tag_s& tag) {
    return arrayGain - loss - polarisationLoss(beam.polarisation, unitInterval(mix64(tag.id)));
}

}  // namespace

double pathLoss(double metres, std::uint32_t kilohertz, double exponent) {
    const double atOneMetre = 20 * std::log10(4 * std::numbers::pi * kilohertz / lightKm);
    return atOneMetre + (metres < 1 ? 20 : 10 * exponent) * std::log10(std::max(metres, nearField));
}

path_s pathOf(const world_s& world, const carrier_s& carrier, const tag_s& tag, std::int64_t now) {
    const place_s place = placeAt(tag, now);
    const std::uint16_t port = carrier.beam ? std::uint16_t{0} : carrier.antenna;
    const way_s out = wayOf(world, carrier.kilohertz, port, carrier.antenna, tag, place);
    const bool apart = !carrier.beam && carrier.receiver != 0;
    const way_s back =
        apart ? wayOf(world, carrier.kilohertz, carrier.receiver, carrier.receiver, tag, place) : out;
    path_s path;
    path.metres = (out.metres + back.metres) / 2;
    double outGain = out.gain - circularToLinear, backGain = back.gain - circularToLinear;
    if (carrier.beam) {
        path.seen = directionTo(world.antennas[0].place, place);
        path.listeningLoss = carrier.allBeams ? 0 : beamLoss(carrier.listening, path.seen);
        outGain = out.gain + beamGain(carrier.direction, beamLoss(carrier.direction, path.seen), tag);
        backGain = back.gain + beamGain(carrier.listening, path.listeningLoss, tag);
    }
    path.atTag = static_cast<float>(carrier.power - carrier.cableLoss + outGain);
    path.atReader = static_cast<float>(path.atTag + backGain - modulationLoss - carrier.receiveLoss);
    return path;
}

float backscatterPhase(float metres, std::uint32_t kilohertz, std::uint16_t antenna) {
    const double offset = unitInterval(mix64(std::uint64_t{kilohertz} << 16 | antenna));
    const double turns = 2.0 * metres * kilohertz / lightKm + offset;
    const auto phase = static_cast<float>((turns - std::floor(turns)) * 2 * std::numbers::pi);
    return std::min(phase, std::nextafter(static_cast<float>(2 * std::numbers::pi), 0.0F));
}

double bitErrorRate(double margin) {
    return 0.5 * std::exp(-4 * std::pow(10, margin / 10));
}

}  // namespace rxe
