// SPDX-License-Identifier: MIT
// The tags that one olio's carrier reaches. The link budget of a tag at rest is worked out
// once and kept until the world changes, that of a moving tag at each round. Radio thread
// only; times are microseconds of the engine's clock.
#pragma once

#include <cstdint>
#include <vector>

#include "propagation.hpp"
#include "world.hpp"

namespace rxe {

// A tag that has enough power to answer, at least in this round.
struct lit_tag_s {
    // Into world.tags.
    std::uint32_t index = 0;
    // Of the tag. Another id at the index means that this tag has gone.
    std::uint32_t id = 0;
    bool moving = false;
    // Power at the tag above its sensitivity, dB, without fading.
    float margin = 0;
    // dB of this moment's fading at the tag; twice that at the reader.
    float fade = 0;
    // Fading decides whether the tag has power, so `fade` is drawn once for a whole round.
    // Other tags draw it for each of their slots.
    bool atEdge = false;
    // Power at the reader, without fading. path.atReader is the same in dBm; the sum of
    // colliding replies needs milliwatts.
    float milliwatts = 0;
    path_s path;
};

struct field_s {
    carrier_s carrier;
    // world.changes when `still` and `movers` were made; another number makes them anew.
    std::uint64_t changes = ~std::uint64_t{0};
    // Tags at rest that have power, or may have it by fading.
    std::vector<lit_tag_s> still;
    // Indices into world.tags of all tags that move, in reach or not.
    std::vector<std::uint32_t> movers;
    // Tags of both kinds that were present and had power at the last look.
    std::vector<lit_tag_s> lit;
    // When this olio's turn began.
    std::int64_t since = 0;
    // The last look. The tags that were lit then had power until then.
    std::int64_t lookedAt = 0;
};

// Why no tag is read with a carrier: the transmitting port or beam is not one, it is lost, its
// amplifier has failed, or nothing listens.
enum class silence_e : std::uint8_t { NONE, NO_ANTENNA, LOST, AMPLIFIER, DEAF };
silence_e silenceOf(const world_s& world, const carrier_s& carrier);

// The link budget at `now` of the tag at `index`, without fading, whether the antenna is silent or
// not; `carrier` must have one.
lit_tag_s lightOn(const world_s& world, const carrier_s& carrier, std::uint32_t index, std::int64_t now);

// Brings the flags of a tag that the field reaches up to `now`. They have run down when it was
// without power since before this turn, or at the last look; with a hop in between, only S0 has.
void runDown(const field_s& field, std::int64_t carrierSince, std::int64_t now, tag_s* tag);

// Brings `lit` up to `now`. Tags power up that were without power before this olio's turn or
// at the last look. A hop interrupts the carrier briefly, the last one until `carrierSince`:
// tags lose only their S0 flag. An antenna that is lost lights no tag. The fading of tags at
// the edge is drawn from `random`.
void lookAround(std::int64_t carrierSince, std::int64_t now, world_s* world, field_s* field,
                random_s* random);

// The carrier goes off at `now`: the lit tags have no power from then on, and their flags
// begin to run down.
void darken(std::int64_t now, world_s* world, field_s* field);

// Looks at the tag again, later in a round, and brings `*lit` up to `now` when it moves.
// False when it has left or has no power; it keeps the fading of the round.
bool stillLit(const world_s& world, const carrier_s& carrier, std::int64_t now, lit_tag_s* lit);
// The same on another channel or with another power, where its link has to be worked out anew.
bool litAnew(const world_s& world, const carrier_s& carrier, std::int64_t now, lit_tag_s* lit);

// The most that fading lifts a level at the tag, dB; 0 when frames do not get lost.
float fadeReach(const air_s& air);

}  // namespace rxe
