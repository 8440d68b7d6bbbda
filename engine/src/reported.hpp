// SPDX-License-Identifier: MIT
// The radio's tag database: which EPCs it has seen since RXE_resetDb, when it
// last reported them, and the filters that decide on the next report. Radio
// thread only.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "rxe.h"

namespace rxe {

// An EPC as the database knows it: 64 bits mixed from all of it, never 0. Two EPCs of a
// population share a key too rarely to matter.
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

// States by key, in one piece so that a look costs one line of memory: each
// stands at or behind the place that its key names, 0 is an empty place.
struct state_table_s {
    struct entry_s {
        tag_key_t key = 0;
        report_state_s state;
    };
    // A power of two of them, at most half in use.
    std::vector<entry_s> entries;
    std::size_t used = 0;
};
// Null when the key is not there. A pointer holds until the next addState.
report_state_s* findState(state_table_s* table, tag_key_t key);
// `key` is not there yet.
report_state_s* addState(state_table_s* table, tag_key_t key);

// What the database says of a read: its tag was there already, it is entered now, or
// there is no room for it.
enum class seen_e : std::uint8_t { KNOWN, NEW, NO_ROOM };

struct reported_s {
    state_table_s tags;
    // Entries that the event "database" made: they take room and match no tag.
    std::size_t elsewhere = 0;
    // Keys of EPC and olio together, for a filter of last reports that counts per olio.
    state_table_s perOlio;
    // Stands in for a tag without an entry, and holds the state that passesLastReport returns.
    report_state_s noRoom;
    // DB_WARNING and DB_ERROR have been sent; each comes once.
    bool warned = false;
    bool full = false;
};

// Forgets all tags and entries, as RXE_resetDb asks.
void clearReported(reported_s* reported);

// Entries in use.
inline std::size_t usedRoom(const reported_s& reported) {
    return reported.tags.used + reported.elsewhere;
}

// Enters the tag when it is new and there is room for it among `capacity` entries.
seen_e noteSeen(tag_key_t key, std::uint32_t capacity, reported_s* reported);

// True when no id filter is enabled or one of them matches the EPC.
bool passesIdFilters(const std::vector<REPORT_FILTER_ID_s>& filters, const std::uint8_t* epc,
                     std::size_t bits);

// Merges the read into the tag's state. When the read may be reported now, notes the report and
// returns the state as it was, which holds until the next call; else returns null. A tag
// without room in the database is reported each time.
const report_state_s* passesLastReport(const REPORT_FILTER_LAST_REPORT_s& filter, tag_key_t key,
                                       std::uint16_t olioId, std::int64_t now, reported_s* reported);

}  // namespace rxe
