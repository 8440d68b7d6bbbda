// SPDX-License-Identifier: MIT
// The radio's tag database: which EPCs it has seen since RXE_resetDb, when it
// last reported them, and the filters that decide on the next report. Radio
// thread only.
#ifndef ENGINE_REPORTED_HPP
#define ENGINE_REPORTED_HPP

#include <cstdint>
#include <span>
#include <vector>

#include "rxe.h"

namespace rxe {

// An EPC as the database knows it.
using tag_key_t = std::uint64_t;
tag_key_t keyOf(std::span<const std::uint8_t> epc);

// Reads since the last report, which the next one merges.
struct report_state_s {
    std::int64_t lastReport = 0;  // microseconds of the engine's clock
    std::int64_t firstSeen = 0;
    std::uint32_t merged = 0;
    bool reported = false;
};

// States by key, in one piece so that a look costs one line of memory: each
// stands at or behind the place that its key names, 0 is an empty place.
struct state_table_s {
    struct entry_s {
        tag_key_t key = 0;
        report_state_s state;
    };
    std::vector<entry_s> entries;  // a power of two of them, at most half in use
    std::size_t used = 0;
};
report_state_s* findState(state_table_s* table, tag_key_t key);  // null when it is not there
report_state_s* addState(state_table_s* table, tag_key_t key);   // `key` is not there yet

enum class seen_e : std::uint8_t { KNOWN, NEW, NO_ROOM };

struct reported_s {
    state_table_s tags;
    std::size_t elsewhere = 0;  // entries of tags that nobody here will read
    state_table_s perOlio;      // keys of EPC and olio
    report_state_s noRoom;      // stands in for a tag without an entry
    bool warned = false;        // DB_WARNING has been sent
    bool full = false;          // DB_ERROR has
};

void clearReported(reported_s* reported);

// Entries in use.
inline std::size_t usedRoom(const reported_s& reported) {
    return reported.tags.used + reported.elsewhere;
}

// Enters the tag when there is room for it.
seen_e noteSeen(tag_key_t key, std::uint32_t capacity, reported_s* reported);

// True when no id filter is enabled or one of them matches the EPC.
bool passesIdFilters(const std::vector<REPORT_FILTER_ID_s>& filters, const std::uint8_t* epc,
                     std::size_t bits);

// The tag's state when the read may be reported now, which is then noted; null
// when not. A tag without room in the database is reported each time.
const report_state_s* passesLastReport(const REPORT_FILTER_LAST_REPORT_s& filter, tag_key_t key,
                                       std::uint16_t olioId, std::int64_t now, reported_s* reported);

}  // namespace rxe

#endif
