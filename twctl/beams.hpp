// SPDX-License-Identifier: MIT
// "twctl beam": what the numbers of the array reader's beams mean.
#pragma once

#include <string>
#include <vector>

// Whether a mode may name this direction. Some elevations below 10 may be named and yet
// make numbers that are not beams.
bool isDirectionTaken(int azimuth, int elevation);

// Why no beam looks there, with the nearest one that does; empty when one does, or when
// azimuth (0 to 359) or elevation (0 to 70) is out of range.
std::string whyNotABeam(int azimuth, int elevation);

// `words` are "beam", then a number, or azimuth, elevation and perhaps a polarization.
// Prints the other side. Returns an exit_status_e; what is not a beam is a failure.
int runBeam(const std::vector<std::string>& words);
