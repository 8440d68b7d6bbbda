// SPDX-License-Identifier: MIT
// The waves between an antenna and a tag: powers, phase, and how often a frame gets lost (link
// budget after Dobkin, The RF in RFID). All functions depend on their arguments alone.
//
//   at the tag     power - cable + antenna gain + tag gain - polarisation - path loss - shadow
//   at the reader  at the tag + antenna gain + tag gain - polarisation - path loss - shadow
//                  - modulation loss - cable, of the way back
#pragma once

#include <cstdint>

#include "beams.hpp"
#include "random.hpp"
#include "world.hpp"

namespace rxe {

// The transmitting and the receiving side of an olio.
struct carrier_s {
    // Port number or, with `beam`, beam id.
    std::uint16_t antenna = 0;
    bool beam = false;
    // Where the transmitting beam looks.
    beam_s direction;
    // Port that listens; 0 for the one that transmits.
    std::uint16_t receiver = 0;
    // The beam that listens. With `allBeams` all of its polarisation do, and the best
    // one counts for each tag.
    beam_s listening;
    bool allBeams = false;
    // Of the channel, 840000 to 960000.
    std::uint32_t kilohertz = 915000;
    // dBm at the reader's connector.
    double power = 0;
    // dB, of the transmitting and of the receiving cable.
    double cableLoss = 0;
    double receiveLoss = 0;
};

// The link between one carrier and one tag.
struct path_s {
    // One way; the mean of both ways when another antenna listens.
    float metres = 0;
    // dBm, without fading. The tag answers when `atTag` reaches its sensitivity.
    float atTag = -200;
    float atReader = -200;
    // Where the array sees the tag; zeros for a port.
    direction_s seen;
    // dB that the listening beam loses off its middle.
    float listeningLoss = 0;
};

// The link budget at `now`, microseconds of the engine's clock, without fading.
path_s pathOf(const world_s& world, const carrier_s& carrier, const tag_s& tag, std::int64_t now);

// Loss at a distance, dB: free space up to one metre, 10 * `exponent` dB for each factor of ten
// beyond; 0.1 m counts for anything closer.
double pathLoss(double metres, std::uint32_t kilohertz, double exponent);

// Phase of the backscatter in radians, 0 to 2 pi, for a channel of `kilohertz`
// at an antenna: cables and filters turn it by an amount of their own for each pair.
float backscatterPhase(float metres, std::uint32_t kilohertz, std::uint16_t antenna);

// Share of bit errors, 0 to 0.5, in the reader's decoder when the signal is `margin` dB above
// its sensitivity: 0.5 exp(-4 x), x the margin as a ratio of powers.
double bitErrorRate(double margin);
// dB. Beyond this margin the chance of a lost frame is too small to be drawn.
constexpr float safeMargin = 12;

}  // namespace rxe
