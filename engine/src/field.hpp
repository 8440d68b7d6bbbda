// SPDX-License-Identifier: MIT
// The tags that one olio's carrier reaches. What stands still is worked out
// once and kept until the world changes; what moves, at each round.
#ifndef ENGINE_FIELD_HPP
#define ENGINE_FIELD_HPP

#include <cstdint>
#include <vector>

#include "propagation.hpp"
#include "world.hpp"

namespace rxe {

// A tag with enough power to answer, in this round at least.
struct lit_tag_s {
    std::uint32_t index = 0;  // into world.tags
    std::uint32_t id = 0;     // of the tag; another one there means that this one has gone
    bool moving = false;
    float margin = 0;      // dB at the tag above its sensitivity, without fading
    float fade = 0;        // dB of this moment's fading at the tag; twice that at the reader
    bool atEdge = false;   // fading decides whether it has power: it is drawn for a whole round
    float milliwatts = 0;  // at the reader
    path_s path;
};

struct field_s {
    carrier_s carrier;
    std::uint64_t changes = ~std::uint64_t{0};  // of the world, when `still` was made
    std::vector<lit_tag_s> still;               // those that fading can light
    std::vector<std::uint32_t> movers;          // indices
    std::vector<lit_tag_s> lit;                 // both kinds, present and lit at the last look
    std::int64_t since = 0;                     // when this olio's turn began
    std::int64_t lookedAt = 0;  // the last look: whoever was lit then has had power until then
};

// Brings `lit` up to `now` and lets tags power up that were dark before this
// olio's turn or at the last look. The moment without a carrier that each hop takes, the last one
// up to `carrierSince`, costs tags no more than their flag of session 0.
// Nothing is lit by an antenna that is lost. `random` is drawn from for tags at the edge.
void lookAround(std::int64_t carrierSince, std::int64_t now, world_s* world, field_s* field,
                random_s* random);

// The carrier goes off: from now on the lit tags live on what they remember.
void darken(std::int64_t now, world_s* world, field_s* field);

// The tag once more, later in a round; false when it is gone or has lost power.
bool stillLit(const world_s& world, const carrier_s& carrier, std::int64_t now, lit_tag_s* lit);
// The same on another channel or with another power.
bool litAnew(const world_s& world, const carrier_s& carrier, std::int64_t now, lit_tag_s* lit);

// The most that fading lifts a level at the tag, dB; none when frames do not get lost.
float fadeReach(const air_s& air);

}  // namespace rxe

#endif
