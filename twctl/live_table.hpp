// SPDX-License-Identifier: MIT
// "twctl watch --live": a row for each tag, drawn over and over on a terminal.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "tag_record.hpp"

using clock_point = std::chrono::steady_clock::time_point;

// Reads a second over the last `rateSeconds` whole and begun seconds.
inline constexpr int rateSeconds = 5;
struct rate_s {
    std::array<std::uint64_t, rateSeconds> reads{};  // by second, modulo rateSeconds
    std::int64_t newest = 0;                         // second of the newest, counted from the table's start
};

struct live_tag_s {
    std::uint64_t reads = 0;
    std::vector<std::string> texts;  // of its last report, in the order of the table's columns
    clock_point lastSeen;
    rate_s rate;
};

// A column whose cells are those of the last report of a tag.
struct live_column_s {
    std::string name;
    bool shown;  // a column that nobody has chosen shows once a report has something for it
};
std::vector<live_column_s> usualLiveColumns();

struct live_table_s {
    std::vector<live_column_s> columns = usualLiveColumns();
    clock_point began = std::chrono::steady_clock::now();
    std::unordered_map<std::string, live_tag_s> tags;  // by EPC
    std::uint64_t reads = 0;
    rate_s rate;
};

// Counts a report, as as many reads as it tells, or one. Of more than 20,000 tags
// those unseen for longest are forgotten.
void countReport(live_table_s* table, const tag_record_s& record, clock_point now);

// A line of sums, a heading and a row for each of the `most` tags read most
// often, those seen last first among equals.
std::vector<std::string> tableLines(const live_table_s& table, clock_point now, std::size_t most);

// Draws over what was drawn last, as much as the terminal on standard output has
// room for. `drawn` counts the lines that stand there. Returns 0 or the errno of
// the write.
int drawTable(const live_table_s& table, clock_point now, std::size_t* drawn);
