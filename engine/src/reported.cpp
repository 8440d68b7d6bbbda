// SPDX-License-Identifier: MIT
#include "reported.hpp"

#include <algorithm>
#include <cstring>
#include <utility>

#include "random.hpp"

namespace rxe {
namespace {

constexpr std::uint32_t neverAgain = 0xFFFFFFFF;  // a duration: report each tag only once
constexpr std::int64_t microsecondsPerSecond = 1000000;
constexpr std::uint8_t typePerOlio = 1;

bool bitAt(const std::uint8_t* bytes, std::size_t bit) {
    return ((bytes[bit / 8] >> (7 - bit % 8)) & 1) != 0;
}

bool matches(const REPORT_FILTER_ID_s& filter, const std::uint8_t* epc, std::size_t bits) {
    if (filter.bitPointer + std::size_t{filter.bitLength} > bits) {
        return false;
    }
    for (std::size_t bit = 0; bit < filter.bitLength; ++bit) {
        if (bitAt(filter.mask, bit) != bitAt(epc, filter.bitPointer + bit)) {
            return false;
        }
    }
    return true;
}

// Index of the key's entry, or of the empty entry that it would take.
std::size_t placeOf(const state_table_s& table, tag_key_t key) {
    const std::size_t mask = table.entries.size() - 1;
    std::size_t at = key & mask;
    while (table.entries[at].key != 0 && table.entries[at].key != key) {
        at = (at + 1) & mask;
    }
    return at;
}

// Doubles the table, so that at most half is in use and a search stays short.
void grow(state_table_s* table) {
    constexpr std::size_t least = 64;
    state_table_s larger;
    larger.entries.resize(std::max(least, table->entries.size() * 2));
    larger.used = table->used;
    for (const auto& entry : table->entries) {
        if (entry.key != 0) {
            larger.entries[placeOf(larger, entry.key)] = entry;
        }
    }
    *table = std::move(larger);
}

// By the filter's type: one state for each tag, or one for each tag and olio.
report_state_s* stateOf(const REPORT_FILTER_LAST_REPORT_s& filter, tag_key_t key, std::uint16_t olioId,
                        reported_s* reported) {
    report_state_s* const radioWide = findState(&reported->tags, key);
    if (radioWide == nullptr) {
        reported->noRoom = {};
        return &reported->noRoom;
    }
    if (filter.enable == 0 || filter.type != typePerOlio) {
        return radioWide;
    }
    const tag_key_t both = std::max<tag_key_t>(key ^ mix64(olioId), 1);
    report_state_s* const own = findState(&reported->perOlio, both);
    return own == nullptr ? addState(&reported->perOlio, both) : own;
}

}  // namespace

tag_key_t keyOf(std::span<const std::uint8_t> epc) {
    tag_key_t key = epc.size();
    for (std::size_t at = 0; at < epc.size(); at += 8) {
        std::uint64_t part = 0;
        std::memcpy(&part, &epc[at], std::min<std::size_t>(8, epc.size() - at));
        key = mix64(key ^ part);
    }
    return std::max<tag_key_t>(key, 1);
}

report_state_s* findState(state_table_s* table, tag_key_t key) {
    if (table->entries.empty()) {
        return nullptr;
    }
    auto& entry = table->entries[placeOf(*table, key)];
    return entry.key == key ? &entry.state : nullptr;
}

report_state_s* addState(state_table_s* table, tag_key_t key) {
    if (table->entries.size() < 2 * (table->used + 1)) {
        grow(table);
    }
    ++table->used;
    auto& entry = table->entries[placeOf(*table, key)];
    entry.key = key;
    return &entry.state;
}

void clearReported(reported_s* reported) {
    *reported = {};
}

seen_e noteSeen(tag_key_t key, std::uint32_t capacity, reported_s* reported) {
    if (findState(&reported->tags, key) != nullptr) {
        return seen_e::KNOWN;
    }
    if (usedRoom(*reported) >= capacity) {
        return seen_e::NO_ROOM;
    }
    addState(&reported->tags, key);
    return seen_e::NEW;
}

bool passesIdFilters(const std::vector<REPORT_FILTER_ID_s>& filters, const std::uint8_t* epc,
                     std::size_t bits) {
    return filters.empty() || std::ranges::any_of(filters, [&](const REPORT_FILTER_ID_s& filter) {
               return matches(filter, epc, bits);
           });
}

const report_state_s* passesLastReport(const REPORT_FILTER_LAST_REPORT_s& filter, tag_key_t key,
                                       std::uint16_t olioId, std::int64_t now, reported_s* reported) {
    report_state_s* const state = stateOf(filter, key, olioId, reported);
    if (state->merged == 0) {
        state->firstSeen = now;
    }
    ++state->merged;
    const bool tooSoon =
        filter.enable != 0 && state->reported &&
        (filter.duration == neverAgain || now - state->lastReport < filter.duration * microsecondsPerSecond);
    if (tooSoon) {
        return nullptr;
    }
    // The caller gets a copy of what was merged; the state begins anew.
    reported->noRoom = *state;
    *state = {.lastReport = now, .firstSeen = now, .merged = 0, .reported = true};
    return &reported->noRoom;
}

}  // namespace rxe
