// SPDX-License-Identifier: MIT
// Widths are counted in bytes, so a text that is not ASCII, such as the name of a port, shifts
// its row.
#include "live_table.hpp"

#include <algorithm>
#include <cstdio>
#include <tuple>

#include "decoding.hpp"
#include "terminal.hpp"

namespace {

// Above it half of the tags go at once, so that the search for the oldest ones is rare.
constexpr std::size_t mostTags = 20'000;

// Whole seconds since the table began.
std::int64_t secondOf(const live_table_s& table, clock_point now) {
    return std::chrono::duration_cast<std::chrono::seconds>(now - table.began).count();
}

// Makes `second` the newest: the sums of the seconds after the last newest one begin at 0.
void advance(rate_s* rate, std::int64_t second) {
    for (std::int64_t s = std::max(rate->newest + 1, second - rateSeconds + 1); s <= second; ++s) {
        rate->reads[static_cast<std::size_t>(s % rateSeconds)] = 0;
    }
    rate->newest = std::max(rate->newest, second);
}

void count(rate_s* rate, std::int64_t second, std::uint64_t reads) {
    advance(rate, second);
    rate->reads[static_cast<std::size_t>(second % rateSeconds)] += reads;
}

// The mean over the time that the sums stand for: the current second has only begun, and a
// young table has fewer than rateSeconds of them. At least one second, so that the first
// reports do not show an absurd rate.
double perSecond(rate_s rate, const live_table_s& table, clock_point now) {
    advance(&rate, secondOf(table, now));
    std::uint64_t reads = 0;
    for (const std::uint64_t n : rate.reads) {
        reads += n;
    }
    const double whole = std::chrono::duration<double>(now - table.began).count();
    const double begun = whole - static_cast<double>(secondOf(table, now));
    return static_cast<double>(reads) / std::clamp(whole, 1.0, rateSeconds - 1 + begun);
}

// Drops the tags that were last seen before the median of all.
void forgetOldest(live_table_s* table) {
    std::vector<clock_point> seen;
    for (const auto& [epc, tag] : table->tags) {
        seen.push_back(tag.lastSeen);
    }
    const auto middle = seen.begin() + static_cast<std::ptrdiff_t>(seen.size() / 2);
    std::ranges::nth_element(seen, middle);
    std::erase_if(table->tags, [&](const auto& entry) { return entry.second.lastSeen < *middle; });
}

// "0.3 s", "47 s", "12 min"
std::string ageText(std::chrono::duration<double> age) {
    char text[32];
    const double seconds = age.count();
    if (seconds < 10) {
        std::snprintf(text, sizeof text, "%.1f s", seconds);
    } else if (seconds < 100) {
        std::snprintf(text, sizeof text, "%.0f s", seconds);
    } else {
        std::snprintf(text, sizeof text, "%.0f min", seconds / 60);
    }
    return text;
}

// Characters. An EPC of 496 bits has 124 digits.
constexpr std::size_t widestCell = 40, widestTag = 160;

// A cell of the table, filled up in front; a text that is too wide is cut.
std::string cell(const std::string& text, std::size_t width) {
    return " " + std::string(width - std::min(width, text.size()), ' ') + text.substr(0, width);
}

// The fixed cells of a row, and those of the chosen columns.
struct row_s {
    std::string tag, reads, seen, rate;
    const std::vector<std::string>& cells;
};

std::string rowText(const live_table_s& table, const std::vector<std::size_t>& widths, const row_s& row) {
    const std::string tag = row.tag.substr(0, widths.front());
    std::string text = tag + std::string(widths.front() - tag.size(), ' ') + cell(row.reads, 8);
    for (std::size_t i = 0; i < table.columns.size(); ++i) {
        if (table.columns[i].shown) {
            text += cell(i < row.cells.size() && !row.cells[i].empty() ? row.cells[i] : "-", widths[i + 1]);
        }
    }
    return text + cell(row.seen, 10) + cell(row.rate, 9);
}

// "RSSI" is written as people write it.
std::vector<std::string> headings(const live_table_s& table) {
    std::vector<std::string> names;
    for (const live_column_s& column : table.columns) {
        names.push_back(column.name == "rssi" ? "RSSI" : column.name);
    }
    return names;
}

std::string rateText(double rate) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f", rate);
    return text;
}

}  // namespace

std::vector<live_column_s> usualLiveColumns() {
    std::vector<live_column_s> columns{{"antenna", true}, {"rssi", true}};
    const columns_t& usual = usualColumns();
    for (auto name = std::ranges::find(usual, "azimuth"); name != usual.end(); ++name) {
        columns.push_back({*name, false});
    }
    return columns;
}

void countReport(live_table_s* table, const tag_record_s& record, clock_point now) {
    const std::uint64_t reads =
        record.reads && *record.reads > 0 ? static_cast<std::uint64_t>(*record.reads) : 1;
    const std::int64_t second = secondOf(*table, now);
    live_tag_s& tag = table->tags[record.epc];
    tag.reads += reads;
    tag.lastSeen = now;
    tag.texts.clear();
    for (live_column_s& column : table->columns) {
        tag.texts.push_back(decodeTextFrame(columnText(record, column.name)));
        column.shown |= !tag.texts.back().empty();
    }
    count(&tag.rate, second, reads);
    table->reads += reads;
    count(&table->rate, second, reads);
    if (table->tags.size() > mostTags) {
        forgetOldest(table);
    }
}

std::vector<std::string> tableLines(const live_table_s& table, clock_point now, std::size_t most) {
    using entry_t = std::unordered_map<std::string, live_tag_s>::value_type;
    const std::vector<std::string> names = headings(table);
    std::vector<const entry_t*> entries;
    std::vector<std::size_t> widths{24};  // of the tag, then of each column
    for (const std::string& name : names) {
        widths.push_back(std::max<std::size_t>(name.size(), 6));
    }
    for (const entry_t& entry : table.tags) {
        entries.push_back(&entry);
        widths[0] = std::clamp(entry.first.size(), widths[0], widestTag);
        for (std::size_t i = 0; i < entry.second.texts.size(); ++i) {
            widths[i + 1] = std::max(widths[i + 1], std::min(entry.second.texts[i].size(), widestCell));
        }
    }
    const auto shown = std::min(most, entries.size());
    const auto isBefore = [](const entry_t* a, const entry_t* b) {
        return std::tuple(b->second.reads, b->second.lastSeen, a->first) <
               std::tuple(a->second.reads, a->second.lastSeen, b->first);
    };
    std::ranges::partial_sort(entries, entries.begin() + static_cast<std::ptrdiff_t>(shown), isBefore);

    std::vector<std::string> lines;
    lines.push_back(std::to_string(table.tags.size()) + " tags, " + std::to_string(table.reads) + " reads, " +
                    rateText(perSecond(table.rate, table, now)) + " reads/s");
    lines.push_back(rowText(table, widths, {"tag", "reads", "last seen", "reads/s", names}));
    for (std::size_t i = 0; i < shown; ++i) {
        const auto& [epc, tag] = *entries[i];
        lines.push_back(rowText(table, widths,
                                {epc, std::to_string(tag.reads), ageText(now - tag.lastSeen),
                                 rateText(perSecond(tag.rate, table, now)), tag.texts}));
    }
    return lines;
}

int drawTable(const live_table_s& table, clock_point now, std::size_t* drawn) {
    constexpr std::size_t linesAbove = 3;  // sums, heading, and the cursor's own line
    const std::size_t rows = terminalSize().rows;
    return drawLines(tableLines(table, now, rows > linesAbove ? rows - linesAbove : 1), drawn);
}
