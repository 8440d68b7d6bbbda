// SPDX-License-Identifier: MIT
// The numbers are those of beam_grid.hpp, which the daemon's mode language uses too: an index
// in a grid of directions plus a number that stands for the polarization.
#include "beams.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <numbers>

#include "beam_grid.hpp"
#include "exit_status.hpp"
#include "requests.hpp"
#include "words.hpp"

namespace {

using beam_grid::direction_s;

constexpr std::uint32_t usualPolarization = 5000;  // LHCP, as in a mode

// The cosine of the angle between two directions, 1 for the same. Azimuth and elevation are in
// degrees, and the elevation is the angle from the boresight.
double closeness(const direction_s& a, const direction_s& b) {
    constexpr double radian = std::numbers::pi / 180;
    return std::cos(a.elevation * radian) * std::cos(b.elevation * radian) +
           std::sin(a.elevation * radian) * std::sin(b.elevation * radian) *
               std::cos((a.azimuth - b.azimuth) * radian);
}

// Of all directions of the fine grid the one with the smallest angle. Among equals the lowest
// number counts: `rounding` keeps the noise of the cosines from choosing.
direction_s nearestBeam(const direction_s& wanted) {
    direction_s nearest = beam_grid::noDirection;
    double best = -std::numeric_limits<double>::infinity();
    for (int offset = 1; offset <= beam_grid::fineBoresight; ++offset) {
        const direction_s direction = beam_grid::directionIn(beam_grid::fineRings, offset);
        constexpr double rounding = 1e-9;
        if (closeness(wanted, direction) > best + rounding) {
            best = closeness(wanted, direction);
            nearest = direction;
        }
    }
    return nearest;
}

std::string textOf(const direction_s& direction) {
    return "azimuth " + std::to_string(direction.azimuth) + ", elevation " +
           std::to_string(direction.elevation);
}

// The decimal number with which a word begins; -1 without one, and for more than five
// characters.
int numberOf(const std::string& word) {
    int number = -1;
    return std::sscanf(word.c_str(), "%5d", &number) == 1 && word.size() <= 5 ? number : -1;
}

int refuse(const std::string& text) {
    std::fprintf(stderr, "twctl: %s\n", text.c_str());
    return exitFailure;
}

// "5361" to "azimuth 0, elevation 45, polarization LHCP".
int showBeam(int number) {
    const direction_s direction = beam_grid::directionOf(number);
    const int polarization = beam_grid::polarizationOf(number);
    if (direction.azimuth < 0 || polarization == 0) {
        return refuse(
            "not a beam; beams are 1 to 97, 101 to 197, 201 to 297, 301 to 397, and 1 to 897 "
            "above each of 1000, 2000, 3000, 4000 and 5000");
    }
    return printText(
        textOf(direction) + ", polarization " +
        std::string(beam_grid::polarizationNames[static_cast<std::size_t>(polarization) / 1000 - 1]));
}

// A direction to its number. `polarization` is in thousands, as in the number.
int showNumber(const direction_s& wanted, std::uint32_t polarization) {
    if (wanted.azimuth < 0 || wanted.azimuth > 359 || wanted.elevation < 0 ||
        wanted.elevation > beam_grid::highestElevation) {
        return refuse("azimuth must be from 0 to 359, elevation from 0 to 70");
    }
    if (const std::string text = whyNotABeam(wanted.azimuth, wanted.elevation); !text.empty()) {
        return refuse(text);
    }
    const int beam = beam_grid::beamOf(wanted.azimuth, wanted.elevation, polarization);
    const direction_s direction =
        beam_grid::directionOf(beam);  // of an elevation between steps, the one above
    return printText(std::to_string(beam) +
                     (direction.elevation == wanted.elevation ? "" : ", which is " + textOf(direction)));
}

}  // namespace

bool isDirectionTaken(int azimuth, int elevation) {
    return beam_grid::beamOf(azimuth, elevation, usualPolarization) != 0;
}

std::string whyNotABeam(int azimuth, int elevation) {
    if (azimuth < 0 || azimuth > 359 || elevation < 0 || elevation > beam_grid::highestElevation) {
        return "";
    }
    const bool taken = isDirectionTaken(azimuth, elevation);
    if (taken &&
        beam_grid::directionOf(beam_grid::beamOf(azimuth, elevation, usualPolarization)).azimuth >= 0) {
        return "";
    }
    return textOf({azimuth, elevation}) + (taken ? " makes a number that is not a beam" : " is not a beam") +
           "; the nearest is " + textOf(nearestBeam({azimuth, elevation}));
}

int runBeam(const std::vector<std::string>& words) {
    std::string reason;
    if (!areWordsGood(words, &reason) || words.size() < 2) {
        std::fprintf(stderr, "twctl: %s\n",
                     reason.empty() ? "beam needs a number or a direction" : reason.c_str());
        return exitTrouble;
    }
    if (words.size() == 2) {
        return showBeam(numberOf(words[1]));
    }
    const auto& names = beam_grid::polarizationNames;
    const auto name =
        words.size() > 3 ? std::ranges::find(names, words[3]) : std::ranges::find(names, "LHCP");
    const auto polarization = static_cast<std::uint32_t>(name - names.begin() + 1) * 1000;
    return showNumber({numberOf(words[1]), numberOf(words[2])}, polarization);
}
