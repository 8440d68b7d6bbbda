// SPDX-License-Identifier: MIT
// The beams of the array reader, which hangs above the tags and looks down:
// elevation is the angle from straight down, azimuth the turn from x towards y.
// Ids up to 1000 are the coarse grid, those above the fine one; the numbering
// is the host's too, so its gaps and quirks stay.
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

// Any id; one that is not a beam gives a beam that is not valid.
beam_s beamOf(std::uint16_t id);
// The id in the fine grid. Azimuth and elevation, degrees, are ones that the grid has.
std::uint16_t beamId(int azimuth, int elevation, int polarisation);
// The beams of one polarisation whose levels a PARALLEL_RSSI_DEBUG tells: four
// rings of 24 and the one straight down.
std::vector<std::uint16_t> heatMapBeams(int polarisation);

// Whether a receive antenna id stands for all beams of a polarisation at once,
// which is then that polarisation's thousands.
constexpr std::uint16_t patternBase = 0xFFF0;
constexpr bool isPattern(std::uint16_t receiveAntenna) {
    return receiveAntenna >= patternBase;
}

// Where a place is, seen from the array, degrees.
struct direction_s {
    // 0 to below 360
    float azimuth = 0;
    float elevation = 0;
};
direction_s directionTo(place_s from, place_s to);
// Loss against the beam's middle in dB, 0 or more.
float beamLoss(const beam_s& beam, direction_s direction);
// Loss between the beam's polarisation and a tag turned by `turn` (0 to 1 of a half turn), dB.
float polarisationLoss(int polarisation, double turn);

}  // namespace rxe
