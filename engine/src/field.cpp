// SPDX-License-Identifier: MIT
#include "field.hpp"

#include <cmath>

#include "gen2.hpp"

namespace rxe {
namespace {

bool moves(const tag_s& tag) {
    return tag.velocity.x != 0 || tag.velocity.y != 0 || tag.velocity.z != 0;
}

bool radiates(const world_s& world, const carrier_s& carrier) {
    if (carrier.beam) {
        const bool hears = carrier.allBeams || carrier.listening.valid();
        return carrier.direction.valid() && hears && world.antennas[0].connected &&
               !world.antennas[0].paFailed;
    }
    const bool isPort = carrier.antenna >= 1 && carrier.antenna <= MAX_PORTS;
    const bool hears = carrier.receiver == 0 || world.antennas[carrier.receiver].connected;
    return isPort && hears && world.antennas[carrier.antenna].connected &&
           !world.antennas[carrier.antenna].paFailed;
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

void sortTags(std::int64_t now, const world_s& world, field_s* field) {
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
        } else if (const lit_tag_s lit = lightOn(world, field->carrier, index, now); lit.margin >= 0) {
            field->still.push_back(lit);
        }
    }
}

void light(const lit_tag_s& lit, std::int64_t carrierSince, std::int64_t now, world_s* world,
           field_s* field) {
    tag_s& tag = world->tags[lit.index];
    if (!isPresent(tag, now)) {
        return;
    }
    if (tag.poweredUntil <= field->since || tag.poweredUntil < field->lookedAt) {
        powerUp(now, &tag);
    } else if (tag.poweredUntil <= carrierSince) {
        setInventoried(0, false, now, &tag);
    }
    tag.poweredUntil = now;
    field->lit.push_back(lit);
}

}  // namespace

void lookAround(std::int64_t carrierSince, std::int64_t now, world_s* world, field_s* field) {
    if (field->changes != world->changes) {
        sortTags(now, *world, field);
    }
    field->lit.clear();
    for (const lit_tag_s& lit : field->still) {
        light(lit, carrierSince, now, world, field);
    }
    for (const std::uint32_t index : field->movers) {
        const lit_tag_s lit = lightOn(*world, field->carrier, index, now);
        if (lit.margin >= 0) {
            light(lit, carrierSince, now, world, field);
        }
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
        *lit = lightOn(world, carrier, lit->index, now);
    }
    return lit->margin >= 0 && radiates(world, carrier);
}

}  // namespace rxe
