// SPDX-License-Identifier: MIT
// What stands behind the number of a link profile: hundreds are the forward
// link and the tag's frequency, the last two digits the tag's coding.
#pragma once

#include <cstdint>

#include "timing.hpp"

namespace rxe {

// The profile of an olio that names none.
constexpr std::uint16_t usualProfile = 508;

// Whether an olio may name this profile; 0, which names none, is not one.
bool isLinkProfile(std::uint16_t id);
// `id` is one that isLinkProfile knows, or 0.
link_s linkOf(std::uint16_t id);
// The weakest backscatter that is still decoded, dBm.
double receiverSensitivity(const link_s& link);

}  // namespace rxe
