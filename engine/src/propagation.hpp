// SPDX-License-Identifier: MIT
// The waves between an antenna and a tag: powers, phase, and how often a frame
// gets lost (free-space link budget after Dobkin, The RF in RFID).
#pragma once

#include <cstdint>

#include "beams.hpp"
#include "random.hpp"
#include "world.hpp"

namespace rxe {

// What an olio transmits with.
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
    std::uint32_t kilohertz = 915000;
    // dBm at the reader's connector.
    double power = 0;
    // dB, of the transmitting and of the receiving cable.
    double cableLoss = 0;
    double receiveLoss = 0;
};

// One tag as one carrier meets it.
struct path_s {
    // One way; the mean of both ways when another antenna listens.
    float metres = 0;
    // dBm, without fading.
    float atTag = -200;
    float atReader = -200;
    // Where the array sees the tag; zeros for a port.
    direction_s seen;
    // dB that the listening beam loses off its middle.
    float listeningLoss = 0;
};

// The link budget at `now`, without fading.
path_s pathOf(const world_s& world, const carrier_s& carrier, const tag_s& tag, std::int64_t now);

// Loss at a distance, dB: free space up to one metre, with `exponent` beyond.
double pathLoss(double metres, std::uint32_t kilohertz, double exponent);

// Phase of the backscatter in radians, 0 to 2 pi, for a channel of `kilohertz`
// at an antenna: cables and filters turn it by an amount of their own for each pair.
float backscatterPhase(float metres, std::uint32_t kilohertz, std::uint16_t antenna);

// Share of bit errors, 0 to 0.5, in the reader's decoder when the signal is `margin` dB above
// its sensitivity.
double bitErrorRate(double margin);
// A margin beyond which frames do not get lost, dB.
constexpr float safeMargin = 12;

}  // namespace rxe
