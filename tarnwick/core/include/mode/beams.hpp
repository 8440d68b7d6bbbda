// SPDX-License-Identifier: MIT
// Beams of the array reader. Any thread.
//
// Ids up to 1000 are of the coarse grid, from 1001 of the fine grid: polarization
// plus an offset of 1 to 897. Azimuth and elevation in degrees.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "mode/record.hpp"

// -1 for an id that is not a beam; the elevation of fine offset 0 is 70 all the same.
short beam_to_az(short beam);
short beam_to_el(short beam);
QDX_BEAM_POL_e beam_to_pol(short beam);  // NONE for an id that has none

// The fine beam id, or 0 when there is no such beam. Elevation 0 is the boresight
// whatever the azimuth. Elevations are not tested for being a multiple of 5: from
// 11 up one counts as the next multiple above; 6 to 9 land among the ids of 10
// and 5, and 1 to 4 make ids beyond the grid.
std::uint16_t az_el_pol_to_beam(short azimuth, short elevation, QDX_BEAM_POL_e polarization);

// Between a polarization and its word. Return -1 for what is neither; the
// polarization stays as it is then, the word becomes empty.
int stringToQDX_BEAM_POL(const std::string* word, QDX_BEAM_POL_e* polarization);
int getPolarizationString(QDX_BEAM_POL_e polarization, std::string* word);

// Makes `antennas` the beams of DEFAULT_BEAMS_QDX_BEARING in this polarization.
void setBearingBeams(QDX_BEAM_POL_e polarization, std::vector<std::uint32_t>* antennas);
