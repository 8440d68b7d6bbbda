// SPDX-License-Identifier: MIT
// What a mode does with a given EPC: its tag filter, its Selects and its Query. Judged from the
// mode alone, and from the software radio's scene where that knows more.
#pragma once

#include <string>

#include "facts.hpp"

namespace why {

// "include regex 3034.*"
std::string filterText(const filter_s& filter);

// Whether the mode's tag filter surely refuses the tag. An EPC of which only the beginning is
// known is refused only by a prefix.
bool filterRefuses(const facts_s& facts);

// Whether the Selects and the Query of some antenna of the mode ask for the tag. `text` says of
// the first antenna why not, or what is not known.
enum class asked_e { yes, unknown, no };
struct selection_s {
    asked_e asked = asked_e::yes;
    std::string text;
};
selection_s selectionOf(const facts_s& facts);

// Whether the antenna's Selects set the flag that its Query asks for anew in each round, so that
// an earlier read does not keep the tag quiet.
bool isSetAnew(const antenna_s& antenna, const facts_s& facts);

}  // namespace why
