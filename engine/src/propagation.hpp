// SPDX-License-Identifier: MIT
// The waves between an antenna and a tag: powers, phase, and how often a frame
// gets lost (free-space link budget after Dobkin, The RF in RFID).
#ifndef ENGINE_PROPAGATION_HPP
#define ENGINE_PROPAGATION_HPP

#include <cstdint>

#include "beams.hpp"
#include "random.hpp"
#include "world.hpp"

namespace rxe {

// What an olio transmits with.
struct carrier_s {
    std::uint16_t antenna = 0;  // port number or beam id
    bool beam = false;
    beam_s direction;            // of a beam
    std::uint16_t receiver = 0;  // port that listens; 0: the one that transmits
    beam_s listening;            // the beam that listens
    bool allBeams = false;       // all of its polarisation do, and the best one counts
    std::uint32_t kilohertz = 915000;
    double power = 0;        // dBm at the reader's connector
    double cableLoss = 0;    // dB
    double receiveLoss = 0;  // dB, of the receiving cable
};

// One tag as one carrier meets it.
struct path_s {
    float metres = 0;         // one way; the mean of both when another antenna listens
    float atTag = -200;       // dBm
    float atReader = -200;    // dBm
    direction_s seen;         // from the array; zeros for a port
    float listeningLoss = 0;  // dB of the beam that listens, off its middle
};

path_s pathOf(const world_s& world, const carrier_s& carrier, const tag_s& tag, std::int64_t now);

// Loss at a distance, dB. `exponent` counts beyond one metre.
double pathLoss(double metres, std::uint32_t kilohertz, double exponent);

// Phase of the backscatter in radians, 0 to 2 pi, for a channel of `kilohertz`
// at an antenna: cables and filters turn it by an amount of their own for each pair.
float backscatterPhase(float metres, std::uint32_t kilohertz, std::uint16_t antenna);

// Bit errors in the reader's decoder when the signal is `margin` dB above its sensitivity.
double bitErrorRate(double margin);
// A margin beyond which frames do not get lost, dB.
constexpr float SAFE_MARGIN = 12;

}  // namespace rxe

#endif
