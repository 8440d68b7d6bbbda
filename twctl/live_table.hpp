// SPDX-License-Identifier: MIT
// "twctl watch --live": a table with a row for each tag, drawn again and again on a terminal.
// Nothing here reads a socket or waits: the caller counts reports and says when to draw.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "tag_record.hpp"

// Ages and rates follow a clock that is never set.
using clock_point = std::chrono::steady_clock::time_point;

// Reads per second over the last `rateSeconds` seconds, of which the newest has only begun.
inline constexpr int rateSeconds = 5;
struct rate_s {
    std::array<std::uint64_t, rateSeconds> reads{};  // by second, modulo rateSeconds
    std::int64_t newest = 0;                         // second of the newest, counted from the table's start
};

// One tag since the table began.
struct live_tag_s {
    std::uint64_t reads = 0;
    // What its last report says in each column of the table; empty where it says nothing.
    std::vector<std::string> texts;
    clock_point lastSeen;
    rate_s rate;
};

// A column. Its cells show the last report of each tag.
struct live_column_s {
    std::string name;
    bool shown;  // a column that was not asked for shows once a report has a value for it
};

// "antenna" and "rssi", then the columns of bearing and location, which are hidden at first.
std::vector<live_column_s> usualLiveColumns();

// All that the table shows. Its columns do not change once a report has been counted.
struct live_table_s {
    // As many texts in each tag, in this order.
    std::vector<live_column_s> columns = usualLiveColumns();
    clock_point began = std::chrono::steady_clock::now();
    std::unordered_map<std::string, live_tag_s> tags;  // by EPC
    // Of all tags, also of those that are forgotten.
    std::uint64_t reads = 0;
    rate_s rate;
};

// Counts a report as the number of reads that it tells, or as one. When there are more than
// 20,000 tags the half that was not seen for the longest time is forgotten.
void countReport(live_table_s* table, const tag_record_s& record, clock_point now);

// A line of sums, a heading, and a row for each of the `most` tags that were read most often;
// among equals the tag that was seen last comes first.
std::vector<std::string> tableLines(const live_table_s& table, clock_point now, std::size_t most);

// Draws over the last drawing, with as many rows as the terminal on standard output has room
// for. `*drawn` is the number of lines that stand there, 0 at first. Returns 0 or the errno of
// the write.
int drawTable(const live_table_s& table, clock_point now, std::size_t* drawn);
