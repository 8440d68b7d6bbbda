// SPDX-License-Identifier: MIT
// The beams of the array reader, which hangs above the tags and looks down:
// elevation is the angle from straight down, azimuth the turn from x towards y.
// The host computes beam ids by the same rules, so gaps and quirks of the numbering stay.
//
//   coarse grid, ids to 1000: 100 * p + offset, p 0 to 3 for total, theta, phi, RHCP
//     offset 1-96     elevation 60, 45, 30, 15; 24 azimuths each, 15 degrees apart
//     offset 97       straight down
//   fine grid, ids above 1000: polarisation + offset
//     offset 1-864    elevation 70 down to 15 by 5; 72 azimuths each, 5 degrees apart
//     offset 865-888  elevation 10; 24 azimuths, 15 degrees apart
//     offset 889-896  elevation 5; 8 azimuths, 45 degrees apart
//     offset 897      straight down
#pragma once

#include <cstdint>
#include <vector>

#include "world.hpp"

namespace rxe {

struct beam_s {
    // Degrees; -1 for an id that is not a beam.
    int azimuth = -1;
    int elevation = -1;
    // 1000 total, 2000 theta, 3000 phi, 4000 RHCP, 5000 LHCP; 0 for an id that is not a beam.
    int polarisation = 0;
    bool valid() const { return azimuth >= 0 && elevation >= 0 && polarisation != 0; }
};

// The beam of an id. Any id is accepted; for one that is not a beam, valid() is false.
beam_s beamOf(std::uint16_t id);
// The id in the fine grid. Azimuth and elevation, degrees, are ones that the grid has;
// `polarisation` is 1000 to 5000.
std::uint16_t beamId(int azimuth, int elevation, int polarisation);
// The 97 beams of one polarisation (1000 to 5000) whose levels a PARALLEL_RSSI_DEBUG tells:
// rings of 24 at elevation 60, 45, 30 and 15, then the one straight down.
std::vector<std::uint16_t> heatMapBeams(int polarisation);

// Receive antenna ids from patternBase up stand for all beams of a polarisation at once:
// patternBase + n for polarisation n * 1000, patternBase alone for that of the
// transmitting beam.
constexpr std::uint16_t patternBase = 0xFFF0;
constexpr bool isPattern(std::uint16_t receiveAntenna) {
    return receiveAntenna >= patternBase;
}

// A direction from the array, degrees.
struct direction_s {
    // 0 to below 360.
    float azimuth = 0;
    // 0 straight down, 90 to the horizon.
    float elevation = 0;
};
// Where `to` lies, seen from the array at `from`.
direction_s directionTo(place_s from, place_s to);
// Loss against the beam's middle, 0 to 20 dB: 3 dB at 15 degrees off it, and with the square
// of the angle.
float beamLoss(const beam_s& beam, direction_s direction);
// Loss in dB between the beam's polarisation and a tag turned by `turn`, 0 to 1 of a half
// turn: 0 for total, 0 to 20 for theta and phi, 3 for the circular ones.
float polarisationLoss(int polarisation, double turn);

}  // namespace rxe
