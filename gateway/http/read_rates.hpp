// SPDX-License-Identifier: MIT
// How many reports came by antenna, in intervals of the last minutes and in all. A unit without threads and
// clocks.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>

class read_rates_c {
  public:
    static constexpr std::int64_t step = 2'000;      // ms
    static constexpr std::size_t intervals = 300;    // that are kept
    static constexpr std::size_t mostAntennas = 64;  // of a reader that have a series of their own

    // A report of the reader with this index. The interval is the one that is open.
    void take(std::size_t reader, std::optional<int> antenna);

    // Ends the open interval when its time is over; `at` in ms since 1970. Whether it has ended. After
    // a pause of the caller several end at once: the reports belong to the last of them.
    bool closeUntil(std::int64_t at);

    // The history as {"step":..., "end":..., "series":[...]}.
    void writeAll(std::string* out) const;
    // The interval that has ended last as {"end":..., "counts":[...]}.
    void writeLast(std::string* out) const;

    // By reader and antenna, in ascending order: "1", "2", "none", "other".
    struct name_s {
        std::size_t reader;
        std::string antenna;
        auto operator<=>(const name_s&) const = default;
    };
    // Reports since the start.
    std::map<name_s, std::uint64_t> totals() const;

  private:
    struct series_s {
        std::uint64_t total = 0;
        std::uint32_t open = 0;
        std::array<std::uint32_t, intervals> counts{};  // a ring
    };
    series_s& seriesOf(std::size_t reader, std::optional<int> antenna);

    std::map<std::pair<std::size_t, int>, series_s> series;  // by reader and antenna, or one of the two below
    std::map<std::size_t, std::size_t> antennasOf;           // how many of a reader have a series
    std::size_t ended = 0;                                   // intervals, since the start
    std::int64_t end = 0;                                    // of the last interval that has ended; 0: none
};
