// SPDX-License-Identifier: MIT
#include "world.hpp"

#include <algorithm>
#include <utility>

namespace rxe {
namespace {

// Compares the whole EPC, its length included.
bool holdsEpc(const tag_s& tag, const std::vector<std::uint8_t>& epc) {
    return epcBytes(tag) == epc.size() &&
           std::equal(epc.begin(), epc.end(), tag.banks[BANK_EPC].begin() + epcOffset);
}

}  // namespace

std::size_t epcBytes(const tag_s& tag) {
    const auto& bank = tag.banks[BANK_EPC];
    return bank.size() < epcOffset ? 0 : std::min(bank.size() - epcOffset, (bank[2] >> 3) * std::size_t{2});
}

std::uint32_t addTag(tag_s tag, std::int64_t now, world_s* world) {
    tag.id = ++world->tagsMade;
    ++world->changes;
    // A few entries for each new tag are enough to reuse those of tags that have left. A walk through
    // a hundred thousand present tags for each new one would be too slow.
    constexpr int looks = 8;
    for (int i = 0; i < looks && !world->tags.empty(); ++i) {
        world->freeHint = (world->freeHint + 1) % static_cast<std::uint32_t>(world->tags.size());
        tag_s& candidate = world->tags[world->freeHint];
        if (candidate.leaves <= now) {
            candidate = std::move(tag);
            return world->freeHint;
        }
    }
    world->tags.push_back(std::move(tag));
    return static_cast<std::uint32_t>(world->tags.size() - 1);
}

void moveTag(std::uint32_t tag, place_s place, place_s velocity, std::int64_t now, world_s* world) {
    tag_s& moved = world->tags[tag];
    moved.place = place;
    moved.velocity = velocity;
    moved.placedAt = now;
    ++world->changes;
}

void removeTag(std::uint32_t tag, std::int64_t now, world_s* world) {
    world->tags[tag].leaves = now;
    ++world->changes;
}

// Events name tags by EPC and are rare, so an index of EPCs would not pay.
std::vector<std::uint32_t> findTags(const world_s& world, const std::vector<std::uint8_t>& epc,
                                    std::int64_t now) {
    std::vector<std::uint32_t> found;
    for (std::uint32_t index = 0; index < world.tags.size(); ++index) {
        if (isPresent(world.tags[index], now) && holdsEpc(world.tags[index], epc)) {
            found.push_back(index);
        }
    }
    return found;
}

history_s* beginHistory(std::uint32_t tag, world_s* world) {
    if (tag >= world->histories.size()) {
        world->histories.resize(world->tags.size());
    }
    world->histories[tag] = {.id = world->tags[tag].id};
    return &world->histories[tag];
}

void noteSuppressed(suppressor_e by, std::uint16_t antenna, std::uint32_t tag, std::int64_t now,
                    world_s* world) {
    history_s* const history = historyOf(tag, world);
    history->suppressedAt = now;
    history->suppressedOn = antenna;
    history->suppressedBy = by;
}

place_s placeAt(const tag_s& tag, std::int64_t now) {
    // Double first: microseconds of days do not fit into a float.
    const auto seconds = static_cast<float>(static_cast<double>(now - tag.placedAt) * 1e-6);
    return {tag.place.x + tag.velocity.x * seconds, tag.place.y + tag.velocity.y * seconds,
            tag.place.z + tag.velocity.z * seconds};
}

void postEvent(event_s event, event_queue_s* queue) {
    const std::lock_guard lock(queue->mutex);
    queue->events.push_back(std::move(event));
    queue->waiting.store(true, std::memory_order_relaxed);
}

std::vector<event_s> takeEvents(event_queue_s* queue) {
    const std::lock_guard lock(queue->mutex);
    queue->waiting.store(false, std::memory_order_relaxed);
    return std::exchange(queue->events, {});
}

}  // namespace rxe
