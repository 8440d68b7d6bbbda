// SPDX-License-Identifier: MIT
// The radio's tag database: which EPCs it has seen since RXE_resetDb, when it last reported
// them, and the filters that decide on the next report. Radio thread only; times are
// microseconds of the engine's clock.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "rxe.h"

namespace rxe {

// A hash of a whole EPC, 64 bits, never 0, by which the database knows it. Among 100,000 EPCs
// the chance that any two share a key is below 1e-9.
using tag_key_t = std::uint64_t;
tag_key_t keyOf(std::span<const std::uint8_t> epc);

// Reads since the last report, which the next one merges.
struct report_state_s {
    // Microseconds of the engine's clock.
    std::int64_t lastReport = 0;
    std::int64_t firstSeen = 0;
    // How many reads there were.
    std::uint32_t merged = 0;
    // Whether `lastReport` counts.
    bool reported = false;
};

// States by key: a hash table with open addressing and linear probing, so that a look-up
// mostly touches one line of the cache. A state stands at the index that the low bits of its
// key give, or behind it; key 0 marks an empty entry. Entries are never removed one by one.
struct state_table_s {
    struct entry_s {
        tag_key_t key = 0;
        report_state_s state;
    };
    // A power of two of them, 64 or more, or none at first; at most half are in use.
    std::vector<entry_s> entries;
    std::size_t used = 0;
};
// Null when the key is not there. A pointer holds until the next addState.
report_state_s* findState(state_table_s* table, tag_key_t key);
// Adds a state; `key` is not in the table yet. May grow the table, which moves all states.
report_state_s* addState(state_table_s* table, tag_key_t key);

// What noteSeen found. KNOWN: the tag was in the database. NEW: it is now. NO_ROOM: the database
// is full.
enum class seen_e : std::uint8_t { KNOWN, NEW, NO_ROOM };

struct reported_s {
    state_table_s tags;
    // Entries that the event "database" made: they take room and match no tag.
    std::size_t elsewhere = 0;
    // By a key of EPC and olio together, for a filter of last reports that works per olio.
    state_table_s perOlio;
    // Stands in for a tag without an entry, and holds the state that passesLastReport returns.
    report_state_s noRoom;
    // DB_WARNING and DB_ERROR have been sent; each comes once.
    bool warned = false;
    bool full = false;
};

// Forgets all tags and entries, as RXE_resetDb asks.
void clearReported(reported_s* reported);

// Entries in use: tags read here, and those of the event "database".
inline std::size_t usedRoom(const reported_s& reported) {
    return reported.tags.used + reported.elsewhere;
}

// Enters the tag when it is new and fewer than `capacity` entries are in use.
seen_e noteSeen(tag_key_t key, std::uint32_t capacity, reported_s* reported);

// True when `filters`, the enabled id filters, is empty or one of them matches. A filter
// compares bitLength bits of the EPC from bitPointer on; it does not match an EPC that ends
// before. `bits`: length of the EPC.
bool passesIdFilters(const std::vector<REPORT_FILTER_ID_s>& filters, const std::uint8_t* epc,
                     std::size_t bits);

// Merges the read into the tag's state. When the read may be reported now, notes the report and
// returns the state as it was, which is valid until the next call; otherwise returns null: the
// filter is enabled and less than its duration (seconds; FFFFFFFFh without end) has passed
// since the last report. A tag without room in the database is reported each time.
const report_state_s* passesLastReport(const REPORT_FILTER_LAST_REPORT_s& filter, tag_key_t key,
                                       std::uint16_t olioId, std::int64_t now, reported_s* reported);

}  // namespace rxe
