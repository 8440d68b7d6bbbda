// SPDX-License-Identifier: MIT
#include "live_table.hpp"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <tuple>

namespace {

constexpr std::size_t mostTags = 20'000;

std::int64_t secondOf(const live_table_s& table, clock_point now) {
    return std::chrono::duration_cast<std::chrono::seconds>(now - table.began).count();
}

// Empties the seconds since the newest one.
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

// The current second has only begun, and at first there are fewer than rateSeconds.
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

void forgetOldest(live_table_s* table) {
    std::vector<clock_point> seen;
    for (const auto& [epc, tag] : table->tags) {
        seen.push_back(tag.lastSeen);
    }
    const auto middle = seen.begin() + static_cast<std::ptrdiff_t>(seen.size() / 2);
    std::ranges::nth_element(seen, middle);
    std::erase_if(table->tags, [&](const auto& entry) { return entry.second.lastSeen < *middle; });
}

std::string numberText(const std::optional<std::int64_t>& value) {
    return value ? std::to_string(*value) : "-";
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

std::string rowText(int epcWidth, const char* epc, const std::string& reads, const std::string& antenna,
                    const std::string& rssi, const std::string& seen, const std::string& rate) {
    char text[320];
    std::snprintf(text, sizeof text, "%-*.*s %8s %8s %6s %10s %9s", epcWidth, 160, epc, reads.c_str(),
                  antenna.c_str(), rssi.c_str(), seen.c_str(), rate.c_str());
    return text;
}

std::string rateText(double rate) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f", rate);
    return text;
}

struct terminal_size_s {
    std::size_t rows = 24, columns = 80;
};

terminal_size_s terminalSize() {
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_row == 0 || size.ws_col == 0) {
        return {};
    }
    return {size.ws_row, size.ws_col};
}

}  // namespace

void countReport(live_table_s* table, const tag_record_s& record, clock_point now) {
    const std::uint64_t reads =
        record.reads && *record.reads > 0 ? static_cast<std::uint64_t>(*record.reads) : 1;
    const std::int64_t second = secondOf(*table, now);
    live_tag_s& tag = table->tags[record.epc];
    tag.reads += reads;
    tag.antenna = record.antenna;
    tag.rssi = record.rssi;
    tag.lastSeen = now;
    count(&tag.rate, second, reads);
    table->reads += reads;
    count(&table->rate, second, reads);
    if (table->tags.size() > mostTags) {
        forgetOldest(table);
    }
}

std::vector<std::string> tableLines(const live_table_s& table, clock_point now, std::size_t most) {
    using entry_t = std::unordered_map<std::string, live_tag_s>::value_type;
    std::vector<const entry_t*> entries;
    std::size_t epcWidth = 24;
    for (const entry_t& entry : table.tags) {
        entries.push_back(&entry);
        epcWidth = std::max(epcWidth, entry.first.size());
    }
    const auto shown = std::min(most, entries.size());
    const auto isBefore = [](const entry_t* a, const entry_t* b) {
        return std::tuple(b->second.reads, b->second.lastSeen, a->first) <
               std::tuple(a->second.reads, a->second.lastSeen, b->first);
    };
    std::ranges::partial_sort(entries, entries.begin() + static_cast<std::ptrdiff_t>(shown), isBefore);

    const int width = static_cast<int>(std::min<std::size_t>(epcWidth, 160));
    std::vector<std::string> lines;
    lines.push_back(std::to_string(table.tags.size()) + " tags, " + std::to_string(table.reads) + " reads, " +
                    rateText(perSecond(table.rate, table, now)) + " reads/s");
    lines.push_back(rowText(width, "tag", "reads", "antenna", "RSSI", "last seen", "reads/s"));
    for (std::size_t i = 0; i < shown; ++i) {
        const auto& [epc, tag] = *entries[i];
        lines.push_back(rowText(width, epc.c_str(), std::to_string(tag.reads), numberText(tag.antenna),
                                numberText(tag.rssi), ageText(now - tag.lastSeen),
                                rateText(perSecond(tag.rate, table, now))));
    }
    return lines;
}

int drawTable(const live_table_s& table, clock_point now, std::size_t* drawn) {
    constexpr std::size_t linesAbove = 3;  // sums, heading, and the cursor's own line
    const terminal_size_s size = terminalSize();
    const std::size_t room = size.rows > linesAbove ? size.rows - linesAbove : 1;
    std::string text;
    if (*drawn > 0) {
        text = "\x1b[" + std::to_string(std::min(*drawn, size.rows - 1)) + "A\r";
    }
    const std::vector<std::string> lines = tableLines(table, now, room);
    for (const std::string& line : lines) {
        text += line.substr(0, size.columns) + "\x1b[K\n";
    }
    text += "\x1b[J";
    *drawn = lines.size();
    errno = 0;
    const bool written =
        std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
    return written ? 0 : (errno != 0 ? errno : EIO);
}
