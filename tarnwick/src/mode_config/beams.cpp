// SPDX-License-Identifier: MIT
// Beam ids of the array reader: two grids of directions, told apart by the size
// of the id.
//
//   coarse   id = hundreds | 1 to 97     polarization (hundreds + 1) * 1000
//            every 15 degrees round, elevations 60, 45, 30, 15; 97 is the boresight
//   fine     id = polarization + offset  polarization 1000 to 5000
//            1 to 864    every 5 degrees round, elevations 70 down to 15
//            865 to 888  every 15 degrees round, elevation 10
//            889 to 896  every 45 degrees round, elevation 5
//            897         the boresight
#include "mode_config.hpp"
#include "mode_config/words.hpp"

namespace {
constexpr short lastCoarseBeam = 1000;

// A run of offsets of one grid: from `first` to `last`, azimuth by azimuth, each
// full turn 5 or 15 degrees (`elevationStep`) below the one before.
struct beam_ring_s {
    int first;
    int last;
    int azimuthStep;
    int turn;  // beams of one turn
    int elevation;
    int elevationStep;
};

constexpr std::array coarseRings{
    beam_ring_s{1, 96, 15, 24, 60, 15},
    beam_ring_s{97, 97, 0, 1, 0, 0},
};
constexpr std::array fineRings{
    beam_ring_s{1, 864, 5, 72, 70, 5},
    beam_ring_s{865, 888, 15, 24, 10, 0},
    beam_ring_s{889, 896, 45, 8, 5, 0},
    beam_ring_s{897, 897, 0, 1, 0, 0},
};
constexpr int fineBoresight = 897;

struct direction_s {
    int azimuth;
    int elevation;
};
constexpr direction_s noDirection{-1, -1};

template <class Rings>
direction_s directionOf(const Rings& rings, int offset) {
    for (const beam_ring_s& ring : rings) {
        if (offset >= ring.first && offset <= ring.last) {
            const int place = offset - ring.first;
            return {(place % ring.turn) * ring.azimuthStep,
                    ring.elevation - (place / ring.turn) * ring.elevationStep};
        }
    }
    return noDirection;
}

direction_s directionOf(short beam) {
    if (beam <= lastCoarseBeam) {
        return directionOf(coarseRings, beam % 100);
    }
    const int offset = beam % 1000;
    // Offset 0 is no beam, and yet its elevation reads as that of the top ring.
    return offset == 0 ? direction_s{-1, 70} : directionOf(fineRings, offset);
}
}  // namespace

short beam_to_az(short beam) {
    return static_cast<short>(directionOf(beam).azimuth);
}

short beam_to_el(short beam) {
    return static_cast<short>(directionOf(beam).elevation);
}

QDX_BEAM_POL_e beam_to_pol(short beam) {
    const int number = beam <= lastCoarseBeam ? beam / 100 + 1 : beam / 1000;
    const bool known = beam >= 0 && (beam <= lastCoarseBeam ? number <= 4 : beam <= 5999);
    return known ? static_cast<QDX_BEAM_POL_e>(number * 1000) : QDX_BEAM_POL_e::NONE;
}

std::uint16_t az_el_pol_to_beam(short azimuth, short elevation, QDX_BEAM_POL_e polarization) {
    const auto base = static_cast<std::uint32_t>(polarization);
    if (base < 1000 || base > 5000 || base % 1000 != 0 || elevation > 70 || azimuth % 5 != 0) {
        return 0;
    }
    if (elevation == 0) {
        return static_cast<std::uint16_t>(base + fineBoresight);
    }
    if (azimuth >= 356) {
        return 0;
    }
    const auto beam = [base](int offset) { return static_cast<std::uint16_t>(base + offset); };
    if (elevation == 5) {
        return azimuth % 45 == 0 ? beam(889 + azimuth / 45) : std::uint16_t{0};
    }
    if (elevation == 10) {
        return azimuth % 15 == 0 ? beam(865 + azimuth / 15) : std::uint16_t{0};
    }
    return beam(1 + azimuth / 5 + 72 * ((70 - elevation) / 5));
}

int stringToQDX_BEAM_POL(const std::string* word, QDX_BEAM_POL_e* polarization) {
    const QDX_BEAM_POL_e* value = findValue(polarizationWords, *word);
    if (value == nullptr) {
        return -1;
    }
    *polarization = *value;
    return 0;
}

int getPolarizationString(QDX_BEAM_POL_e polarization, std::string* word) {
    *word = findWord(polarizationWords, polarization);
    return word->empty() ? -1 : 0;
}

void setBearingBeams(QDX_BEAM_POL_e polarization, std::vector<std::uint32_t>* antennas) {
    antennas->clear();
    for (const std::uint16_t offset : DEFAULT_BEAMS_QDX_BEARING) {
        antennas->push_back(static_cast<std::uint32_t>(polarization) + offset);
    }
}
