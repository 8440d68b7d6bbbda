// SPDX-License-Identifier: MIT
#include "mode/beams.hpp"
#include "beam_grid.hpp"
#include "mode/defaults.hpp"
#include "mode/record.hpp"
#include "mode/words.hpp"

namespace {
constexpr bool wordsAreThoseOfTheGrid() {
    for (std::size_t i = 0; i < polarizationWords.size(); ++i) {
        if (polarizationWords[i].word != beam_grid::polarizationNames[i] ||
            static_cast<std::size_t>(polarizationWords[i].value) != (i + 1) * 1000) {
            return false;
        }
    }
    return polarizationWords.size() == beam_grid::polarizationNames.size();
}
static_assert(wordsAreThoseOfTheGrid());
}  // namespace

short beam_to_az(short beam) {
    return static_cast<short>(beam_grid::directionOf(beam).azimuth);
}

short beam_to_el(short beam) {
    return static_cast<short>(beam_grid::directionOf(beam).elevation);
}

QDX_BEAM_POL_e beam_to_pol(short beam) {
    return static_cast<QDX_BEAM_POL_e>(beam_grid::polarizationOf(beam));
}

std::uint16_t az_el_pol_to_beam(short azimuth, short elevation, QDX_BEAM_POL_e polarization) {
    return beam_grid::beamOf(azimuth, elevation, static_cast<std::uint32_t>(polarization));
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
