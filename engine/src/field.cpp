// SPDX-License-Identifier: MIT
// A tag at rest keeps its link budget until the world changes; then all are worked out anew.
// A moving tag is worked out at each look. Fading comes on top of both.
#include "field.hpp"

#include <cmath>

#include "gen2.hpp"

namespace rxe {
namespace {

// A tag at rest keeps its link budget, so it is worked out once.
bool moves(const tag_s& tag) {
    return tag.velocity.x != 0 || tag.velocity.y != 0 || tag.velocity.z != 0;
}

bool radiates(const world_s& world, const carrier_s& carrier) {
    return silenceOf(world, carrier) == silence_e::NONE;
}

// With "errors" false fading does not decide either, so that a scenario can exclude chance.
bool hasPower(const air_s& air, const lit_tag_s& lit) {
    return lit.margin + (air.errors ? lit.fade : 0) >= 0;
}

// Makes `still` and `movers` anew, which is needed only when the world has changed.
void sortTags(std::int64_t now, const world_s& world, field_s* field) {
    const float reach = fadeReach(world.air);
    field->still.clear();
    field->movers.clear();
    field->changes = world.changes;
    if (!radiates(world, field->carrier)) {
        return;
    }
    for (std::uint32_t index = 0; index < world.tags.size(); ++index) {
        const tag_s& tag = world.tags[index];
        if (tag.leaves <= now || tag.killed) {
            continue;
        }
        if (moves(tag)) {
            field->movers.push_back(index);
        } else if (const lit_tag_s lit = lightOn(world, field->carrier, index, now); lit.margin >= -reach) {
            field->still.push_back(lit);
        }
    }
}

// One tag at this look: draws its fading if that decides, and powers it up.
void light(lit_tag_s lit, std::int64_t carrierSince, std::int64_t now, world_s* world, field_s* field,
           random_s* random) {
    tag_s& tag = world->tags[lit.index];
    const float reach = fadeReach(world->air);
    if (lit.margin < -reach || !isPresent(tag, now)) {
        return;
    }
    lit.atEdge = lit.margin < reach;
    lit.fade = lit.atEdge ? static_cast<float>(world->air.fadeDb * normal(random)) : 0;
    if (!hasPower(world->air, lit)) {
        return;
    }
    runDown(*field, carrierSince, now, &tag);
    tag.poweredUntil = now;
    field->lit.push_back(lit);
}

}  // namespace

silence_e silenceOf(const world_s& world, const carrier_s& carrier) {
    const bool isPort = carrier.antenna >= 1 && carrier.antenna <= maxPorts;
    if (carrier.beam ? !carrier.direction.valid() : !isPort) {
        return silence_e::NO_ANTENNA;
    }
    const antenna_s& antenna = world.antennas[carrier.beam ? 0 : carrier.antenna];
    if (!antenna.connected) {
        return silence_e::LOST;
    }
    if (antenna.paFailed) {
        return silence_e::AMPLIFIER;
    }
    const bool hears = carrier.beam ? carrier.allBeams || carrier.listening.valid()
                                    : carrier.receiver == 0 || world.antennas[carrier.receiver].connected;
    return hears ? silence_e::NONE : silence_e::DEAF;
}

lit_tag_s lightOn(const world_s& world, const carrier_s& carrier, std::uint32_t index, std::int64_t now) {
    const tag_s& tag = world.tags[index];
    lit_tag_s lit;
    lit.index = index;
    lit.id = tag.id;
    lit.moving = moves(tag);
    lit.path = pathOf(world, carrier, tag, now);
    lit.margin = lit.path.atTag - tag.sensitivity;
    lit.milliwatts = std::pow(10.0F, lit.path.atReader / 10);
    return lit;
}

void runDown(const field_s& field, std::int64_t carrierSince, std::int64_t now, tag_s* tag) {
    if (tag->poweredUntil <= field.since || tag->poweredUntil < field.lookedAt) {
        powerUp(now, tag);
    } else if (tag->poweredUntil <= carrierSince) {
        setInventoried(0, false, now, tag);
    }
}

float fadeReach(const air_s& air) {
    return air.errors ? normalEnds * static_cast<float>(air.fadeDb) : 0;
}

void lookAround(std::int64_t carrierSince, std::int64_t now, world_s* world, field_s* field,
                random_s* random) {
    if (field->changes != world->changes) {
        sortTags(now, *world, field);
    }
    field->lit.clear();
    for (const lit_tag_s& lit : field->still) {
        light(lit, carrierSince, now, world, field, random);
    }
    for (const std::uint32_t index : field->movers) {
        light(lightOn(*world, field->carrier, index, now), carrierSince, now, world, field, random);
    }
    field->lookedAt = now;
}

void darken(std::int64_t now, world_s* world, field_s* field) {
    for (const lit_tag_s& lit : field->lit) {
        if (world->tags[lit.index].id == lit.id) {
            world->tags[lit.index].poweredUntil = now;
        }
    }
}

bool stillLit(const world_s& world, const carrier_s& carrier, std::int64_t now, lit_tag_s* lit) {
    const tag_s& tag = world.tags[lit->index];
    if (tag.id != lit->id || !isPresent(tag, now)) {
        return false;
    }
    if (lit->moving) {
        return litAnew(world, carrier, now, lit);
    }
    return hasPower(world.air, *lit) && radiates(world, carrier);
}

bool litAnew(const world_s& world, const carrier_s& carrier, std::int64_t now, lit_tag_s* lit) {
    const tag_s& tag = world.tags[lit->index];
    if (tag.id != lit->id || !isPresent(tag, now)) {
        return false;
    }
    lit_tag_s anew = lightOn(world, carrier, lit->index, now);
    anew.fade = lit->fade;
    anew.atEdge = lit->atEdge;
    *lit = anew;
    return hasPower(world.air, *lit) && radiates(world, carrier);
}

}  // namespace rxe
