// SPDX-License-Identifier: MIT
// Which tags are present, from the stream of reports: a tag arrives with its first read, moves when
// another antenna hears it better, and departs when it was not read for a while. No clock is asked and
// nothing is stored here; time comes in with each call, so that the same calls have the same results.
//
// Each reader has tags and a time of its own: a tag that goes from one reader to another departs there and
// arrives here. Its tags form a list, the longest unseen first, so that departures cost nothing for those who
// stay. Memory: about 210 bytes a tag with an EPC of up to 120 bits.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "presence/antenna_levels.hpp"
#include "presence/reader_clock.hpp"
#include "presence/rules.hpp"

// One report.
struct sighting_s {
    std::string_view epc;                  // lower-case hex, two digits a byte; others are passed over
    std::optional<std::uint16_t> antenna;  // or beam
    std::optional<int> rssi;               // dBm
    std::uint64_t reads = 1;
    std::optional<std::int64_t> time;  // of the read, by the reader's clock, microseconds since 1970
    std::int64_t takenAt = 0;          // by the gateway's clock
};

enum class presence_e : std::uint8_t { arrived, moved, departed };
// As in "event" of the body.
std::string_view presenceWord(presence_e event);

// Times are those of the reader's clock, microseconds since 1970.
struct presence_event_s {
    presence_e event = presence_e::arrived;
    std::size_t reader = 0;
    std::string epc;
    std::int64_t at = 0;  // departed: the end of departAfter, or the time of the report that took its place
    std::optional<std::uint16_t> antenna;
    std::optional<std::uint16_t> from{};       // moved
    std::int64_t firstSeen = 0, lastSeen = 0;  // departed, as are the next three
    std::uint64_t reads = 0;
    std::optional<int> bestRssi{};
    std::optional<std::uint16_t> bestAntenna{};  // that of the best RSSI
};

class presence_table_c {
  public:
    explicit presence_table_c(const presence_rules_s& tableRules) : rules(tableRules) {}

    // The index of a reader, which is new or known.
    std::size_t readerOf(const std::string& name);
    const std::string& nameOf(std::size_t reader) const { return readers[reader].name; }

    // Takes a report of a reader. `now`, here and below: microseconds of a clock that is never set. What
    // happened is appended to `events`.
    void take(std::size_t reader, const sighting_s& sighting, std::int64_t now,
              std::vector<presence_event_s>* events);

    // While a reader is silent its time goes on, a second late: until then a report may still be on its way.
    void tick(std::int64_t now, std::vector<presence_event_s>* events);

    // The tags of a reader depart whose time is over at `at`, by the reader's clock.
    void departUntil(std::size_t reader, std::int64_t at, std::vector<presence_event_s>* events);

    // Nobody has listened until now: no tag departs for what was not heard. Its departAfter counts from the
    // next report of its reader on, or from now.
    void resume(std::int64_t now);

    void setRules(const presence_rules_s& tableRules) { rules = tableRules; }
    const presence_account_s& account() const { return counts; }

    // All of it, rules included, for load() on the same kind of machine.
    std::string save();
    // False, with an empty table, when the bytes are not whole.
    bool load(std::string_view bytes, std::int64_t now);

  private:
    struct tag_s;
    using row_t = std::pair<const std::string, tag_s>;  // the bytes of an EPC, and its tag
    struct tag_s {
        row_t* older = nullptr;  // in the list of the reader
        row_t* newer = nullptr;
        std::int64_t firstSeen = 0, lastSeen = 0;
        std::uint64_t reads = 0;
        antenna_levels_c levels;
        std::optional<std::uint16_t> bestAntenna;
        std::optional<std::int16_t> bestRssi;
    };
    // Finds a tag by its EPC without making a string.
    struct hash_s {
        using is_transparent = void;
        std::size_t operator()(std::string_view epc) const { return std::hash<std::string_view>()(epc); }
    };
    struct reader_s {
        std::string name;
        reader_clock_c clock;
        std::unordered_map<std::string, tag_s, hash_s, std::equal_to<>> tags;
        row_t* oldest = nullptr;  // the longest unseen, the first of the list
        row_t* newest = nullptr;
        std::int64_t resumedAt = 0;  // by `clock`; what was unseen before it does not count
        bool resuming = false;       // with the next report
        std::int64_t heardAt = 0;    // the last report, by `now`
    };

    static void append(reader_s* reader, row_t* row);
    static void takeOut(reader_s* reader, row_t* row);
    void departDue(std::size_t reader, std::int64_t clockTime, std::vector<presence_event_s>* events);
    void depart(std::size_t reader, std::int64_t at, std::vector<presence_event_s>* events);
    void makeRoom(std::vector<presence_event_s>* events);
    template <class Archive>
    bool keep(Archive& archive);
    template <class Archive>
    bool keepReader(Archive& archive, reader_s* reader);

    presence_rules_s rules;
    std::deque<reader_s> readers;
    presence_account_s counts;
};
