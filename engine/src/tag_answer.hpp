// SPDX-License-Identifier: MIT
// The answer to the question "tag" of the control socket: why a tag is read or is not. All values
// come from the functions that the rounds use, with the parameters that the host has written, which
// a run takes over at its next pass. Nothing changes, and no random number is drawn. Radio thread
// only.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "params.hpp"
#include "radio.hpp"

namespace rxe {

// One line of JSON; README.md has its members. Of several tags with this EPC the first is told,
// which is also the one that the events "move" and "leave" take.
std::string tellOfTag(const radio_s& radio, const std::vector<std::uint8_t>& epc, params_s* params);

}  // namespace rxe
