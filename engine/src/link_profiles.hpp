// SPDX-License-Identifier: MIT
// The air interface settings behind the number of a link profile. Hundreds give the forward
// link (Tari, length of a one, divide ratio) and the tag's link frequency, the last two digits
// the tag's coding and whether its preamble is long (TRext):
//
//   508 = 5: Tari 20 us, PIE 2.0, DR 64/3, 274 kHz;  08: Miller 4, TRext 0
//
// Any thread.
#pragma once

#include <cstdint>

#include "timing.hpp"

namespace rxe {

// The profile of an olio that names none: 274 kHz, Miller 4, 68.5 kbit/s from the tag. It reads
// some 220 tags a second.
constexpr std::uint16_t usualProfile = 508;

// Whether the number is in RXE_LINK_PROFILES. 0, with which an olio names none, is not.
bool isLinkProfile(std::uint16_t id);
// The settings of a profile; `id` is one that isLinkProfile knows, or 0. Profiles 3 to 6 leave
// the choice to the radio, which settles on 508, 814, 913 and 201.
link_s linkOf(std::uint16_t id);
// The weakest backscatter that is still decoded: -75 dBm for FM0, -80 for Miller 2, -84 for
// Miller 4 and 8.
double receiverSensitivity(const link_s& link);

}  // namespace rxe
