// SPDX-License-Identifier: MIT
// The numbers of the array reader's beams and their directions, as arithmetic alone. The daemon
// reads modes with it, the client explains numbers with it. Any thread.
//
//   coarse   number = hundreds | 1 to 97     polarization (hundreds + 1) * 1000
//            every 15 degrees round, elevations 60, 45, 30, 15; 97 is the boresight
//   fine     number = polarization + offset  polarization 1000 to 5000
//            1 to 864    every 5 degrees round, elevations 70 down to 15
//            865 to 888  every 15 degrees round, elevation 10
//            889 to 896  every 45 degrees round, elevation 5
//            897         the boresight
//
// So 397 is the boresight in RHCP (4000), 5897 the one of the fine grid in LHCP (5000).
//
// Azimuth and elevation are whole degrees. The elevation is the angle from the
// boresight, which points straight down from a reader on the ceiling.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace beam_grid {

// The polarization n * 1000 has the name n-1: TOTAL is 1000, LHCP 5000. THETA and PHI are linear,
// RHCP and LHCP circular, right-handed and left-handed.
inline constexpr std::array<std::string_view, 5> polarizationNames{"TOTAL", "THETA", "PHI", "RHCP", "LHCP"};

// Numbers up to lastCoarseBeam belong to the coarse grid, higher ones to the fine grid.
inline constexpr int lastCoarseBeam = 1000;
// Offset in the fine grid of the beam that points along the boresight.
inline constexpr int fineBoresight = 897;
// Degrees, the outermost ring of the fine grid.
inline constexpr int highestElevation = 70;

// Where a beam points, in degrees. Both are -1 for a number that is not a beam.
struct direction_s {
    // 0 to 359.
    int azimuth;
    // 0 to 70, 0 is the boresight.
    int elevation;
};
// For a number that is not a beam.
inline constexpr direction_s noDirection{-1, -1};

// A run of offsets of one grid, `first` to `last`. Azimuths come first: a full turn has `turn`
// beams, `azimuthStep` degrees apart, and the next turn is `elevationStep` degrees lower. The
// boresight is a ring of one beam.
struct ring_s {
    int first;
    int last;
    // Degrees.
    int azimuthStep;
    // Beams of one turn.
    int turn;
    // Degrees: of the first turn, and how much lower each further turn is.
    int elevation;
    int elevationStep;
};
// Offsets that are in no ring are gaps: 0, and above 97 or 897.
inline constexpr std::array coarseRings{
    ring_s{1, 96, 15, 24, 60, 15},
    ring_s{97, 97, 0, 1, 0, 0},
};
// The ring of elevation 10 and that of elevation 5 have fewer beams, since they are shorter.
inline constexpr std::array fineRings{
    ring_s{1, 864, 5, 72, highestElevation, 5},
    ring_s{865, 888, 15, 24, 10, 0},
    ring_s{889, 896, 45, 8, 5, 0},
    ring_s{fineBoresight, fineBoresight, 0, 1, 0, 0},
};

// The direction at an offset of a grid, or noDirection for an offset outside its rings.
template <class Rings>
constexpr direction_s directionIn(const Rings& rings, int offset) {
    for (const ring_s& ring : rings) {
        if (offset >= ring.first && offset <= ring.last) {
            const int place = offset - ring.first;
            return {(place % ring.turn) * ring.azimuthStep,
                    ring.elevation - (place / ring.turn) * ring.elevationStep};
        }
    }
    return noDirection;
}

// The direction of a beam number; noDirection when it is not one. Quirk: for offset 0 of the
// fine grid, which is not a beam, the elevation is 70, that of the top ring.
constexpr direction_s directionOf(int beam) {
    if (beam <= lastCoarseBeam) {
        return directionIn(coarseRings, beam % 100);
    }
    const int offset = beam % 1000;
    return offset == 0 ? direction_s{-1, highestElevation} : directionIn(fineRings, offset);
}

// The polarization of a beam number, 1000 to 5000, or 0 for a number outside the grids. It does
// not ask whether the offset is a beam.
constexpr int polarizationOf(int beam) {
    const int thousands = beam <= lastCoarseBeam ? beam / 100 + 1 : beam / 1000;
    const bool known = beam >= 0 && (beam <= lastCoarseBeam ? thousands <= 4 : beam <= 5999);
    return known ? thousands * 1000 : 0;
}

// The fine number of a direction, or 0 for a direction without a beam. Elevation 0 is the boresight
// for any azimuth. Quirk: elevations between the steps are not refused. From 11 up one counts as the
// next multiple of 5 above it; 6 to 9 give the numbers of other directions or, from azimuth 165 on,
// of none; 1 to 4 give numbers without a direction. Azimuth and elevation are 0 or more.
constexpr std::uint16_t beamOf(int azimuth, int elevation, std::uint32_t polarization) {
    if (polarization < 1000 || polarization > 5000 || polarization % 1000 != 0 ||
        elevation > highestElevation || azimuth % 5 != 0) {
        return 0;
    }
    const auto beam = [&](int offset) {
        return static_cast<std::uint16_t>(static_cast<int>(polarization) + offset);
    };
    if (elevation == 0) {
        return beam(fineBoresight);
    }
    if (azimuth >= 356) {
        return 0;
    }
    if (elevation == 5) {
        return azimuth % 45 == 0 ? beam(889 + azimuth / 45) : std::uint16_t{0};
    }
    if (elevation == 10) {
        return azimuth % 15 == 0 ? beam(865 + azimuth / 15) : std::uint16_t{0};
    }
    return beam(1 + azimuth / 5 + 72 * ((highestElevation - elevation) / 5));
}

}  // namespace beam_grid
