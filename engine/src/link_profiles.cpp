// SPDX-License-Identifier: MIT
#include "link_profiles.hpp"

#include <algorithm>
#include <array>
#include <iterator>

#include "rxe.h"

namespace rxe {
namespace {

// Forward links by the hundreds of a profile number. Each row has RTcal within 2.5 to 3 Tari and
// TRcal within 1.1 to 3 RTcal (EPC Gen2 v2.0.1, 6.3.1.2.8).
struct forward_s {
    std::uint16_t hundred;
    double tari;       // microseconds
    double pie;        // length of data-1 in Tari
    double ratio;      // DR
    double kilohertz;  // link frequency
};

constexpr double dr8 = 8, dr64 = 64.0 / 3;

constexpr std::array forwards{
    forward_s{1, 25, 2.0, dr8, 40},        forward_s{2, 20, 2.0, dr64, 170.6},
    forward_s{3, 25, 2.0, dr64, 160},      forward_s{4, 20, 2.0, dr64, 213.3},
    forward_s{5, 20, 2.0, dr64, 274},      forward_s{6, 20, 2.0, dr64, 320},
    forward_s{7, 12.5, 2.0, dr64, 274},    forward_s{8, 12.5, 2.0, dr64, 320},
    forward_s{9, 12.5, 2.0, dr64, 426.7},  forward_s{10, 7.14, 1.5, dr64, 640},
    forward_s{14, 12.5, 1.5, dr64, 426.7}, forward_s{15, 6.25, 1.5, dr64, 640},
    forward_s{16, 12.5, 2.0, dr64, 500},   forward_s{17, 20, 2.0, dr64, 320},
};

// The tag's coding by the last two digits.
struct coding_s {
    std::uint16_t digits;
    unsigned miller;
    bool pilot;
};

constexpr std::array codings{
    coding_s{1, 8, true},   coding_s{2, 4, true},  coding_s{7, 8, false},  coding_s{8, 4, false},
    coding_s{11, 2, true},  coding_s{12, 1, true}, coding_s{13, 2, false}, coding_s{14, 1, false},
    coding_s{17, 4, false}, coding_s{18, 2, true}, coding_s{19, 1, false}, coding_s{20, 2, false},
};

// Numbers that leave the choice to the radio. Without interference there is nothing to choose
// by, so each stands for one profile.
struct chosen_s {
    std::uint16_t id;
    std::uint16_t profile;
};
constexpr std::array chosen{chosen_s{0, usualProfile}, chosen_s{3, 508}, chosen_s{4, 814}, chosen_s{5, 913},
                            chosen_s{6, 201}};

struct sensitivity_s {
    unsigned miller;
    double dbm;
};
constexpr std::array sensitivities{sensitivity_s{1, -75}, sensitivity_s{2, -80}, sensitivity_s{4, -84},
                                   sensitivity_s{8, -84}};

template <typename Rows, typename Key, typename Member>
const auto& rowOf(const Rows& rows, Key key, Member member) {
    return *std::ranges::find(rows, key, member);
}

}  // namespace

bool isLinkProfile(std::uint16_t id) {
    return std::ranges::find(RXE_LINK_PROFILES, id) != std::end(RXE_LINK_PROFILES);
}

link_s linkOf(std::uint16_t id) {
    const auto choice = std::ranges::find(chosen, id, &chosen_s::id);
    const std::uint16_t profile = choice == chosen.end() ? id : choice->profile;
    const forward_s& forward = rowOf(forwards, profile / 100, &forward_s::hundred);
    const coding_s& coding = rowOf(codings, profile % 100, &coding_s::digits);
    return makeLink(forward.tari, forward.pie, forward.ratio, forward.kilohertz, coding.miller, coding.pilot);
}

double receiverSensitivity(const link_s& link) {
    return rowOf(sensitivities, link.miller, &sensitivity_s::miller).dbm;
}

}  // namespace rxe
