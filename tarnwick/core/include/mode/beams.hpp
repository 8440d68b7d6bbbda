// SPDX-License-Identifier: MIT
// Beams of the array reader. Any thread.
//
// Ids up to 1000 belong to the coarse grid. Those from 1001 on belong to the fine grid:
// polarization plus an offset of 1 to 897 (beam_grid.hpp). Azimuth and elevation in degrees.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "mode/record.hpp"

// -1 for an id that is not a beam. Quirk: the elevation of fine offset 0, which is not a beam, is
// 70.
short beam_to_az(short beam);
short beam_to_el(short beam);
// NONE for an id outside the grids.
QDX_BEAM_POL_e beam_to_pol(short beam);

// The fine beam id of a direction, or 0 for a direction without a beam. Elevation 0 is the
// boresight for any azimuth. Quirk: an elevation that is not a multiple of 5 is not refused. From
// 11 up it counts as the next multiple above; 6 to 9 give the ids of other directions or, from
// azimuth 165 on, of none; 1 to 4 give ids beyond the grid.
std::uint16_t az_el_pol_to_beam(short azimuth, short elevation, QDX_BEAM_POL_e polarization);

// Between a polarization and its word. Return -1 for an unknown word, which leaves the
// polarization as it is, and for a polarization without a word, which empties the word.
int stringToQDX_BEAM_POL(const std::string* word, QDX_BEAM_POL_e* polarization);
int getPolarizationString(QDX_BEAM_POL_e polarization, std::string* word);

// Makes `antennas` the beams of DEFAULT_BEAMS_QDX_BEARING in this polarization.
void setBearingBeams(QDX_BEAM_POL_e polarization, std::vector<std::uint32_t>* antennas);
