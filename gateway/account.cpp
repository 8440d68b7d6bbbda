// SPDX-License-Identifier: MIT
// Messages of one connection keep their order. Those of two connections may come mixed while the intake
// lags behind, so a lower number is a late report where it belongs into a recent gap, and else a restart.
#include "account.hpp"

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>

namespace {

constexpr std::size_t mostGaps = 64;             // that are remembered
constexpr std::int64_t lateWithin = 10'000'000;  // microseconds; two connections overlap for less
constexpr std::int64_t millisecond = 1'000;      // microseconds

void remember(std::deque<lost_range_s>* gaps, const lost_range_s& gap) {
    gaps->push_back(gap);
    if (gaps->size() > mostGaps) {
        gaps->pop_front();
    }
}

void addGap(source_account_s* source, std::uint64_t first, std::uint64_t next, std::int64_t now) {
    source->boot.missing += next - first;
    source->missing += next - first;
    ++source->gaps;
    remember(&source->lastGaps, {first, next - 1, now});
}

// Takes a late report out of its gap, of which up to two smaller ones stay. False when the number is
// not in one of the recent gaps.
bool takeLate(source_account_s* source, std::uint64_t number, std::int64_t now) {
    boot_account_s& boot = source->boot;
    const auto gap = std::ranges::find_if(boot.recentGaps, [&](const lost_range_s& range) {
        return range.first <= number && number <= range.last && now - range.at < lateWithin;
    });
    if (gap == boot.recentGaps.end()) {
        return false;
    }
    const lost_range_s whole = *gap;
    auto place = boot.recentGaps.erase(gap);
    if (number < whole.last) {
        place = boot.recentGaps.insert(place, {number + 1, whole.last, whole.at});
    }
    if (whole.first < number) {
        boot.recentGaps.insert(place, {whole.first, number - 1, whole.at});
    }
    --boot.missing;
    --source->missing;
    return true;
}

// The ranges as [first, last, time], the time in microseconds since 1970.
nlohmann::json rangesOf(const std::deque<lost_range_s>& gaps) {
    nlohmann::json list = nlohmann::json::array();
    for (const lost_range_s& gap : gaps) {
        list.push_back({gap.first, gap.last, gap.at});
    }
    return list;
}

std::deque<lost_range_s> rangesIn(const nlohmann::json& list) {
    std::deque<lost_range_s> gaps;
    std::ranges::transform(list, std::back_inserter(gaps), [](const nlohmann::json& gap) {
        return lost_range_s{gap.at(0), gap.at(1), gap.at(2)};
    });
    return gaps;
}

}  // namespace

number_e takeNumber(source_account_s* source, std::uint64_t number, std::int64_t now) {
    boot_account_s& boot = source->boot;
    if (!boot.anyNumber) {
        boot.anyNumber = true;
        boot.first = boot.next = number;
    }
    if (number < boot.next) {
        if (!takeLate(source, number, now)) {
            return number_e::restart;
        }
        ++boot.numbered;
        return number_e::late;
    }
    const bool isGap = number > boot.next;
    if (isGap && source->restartTold) {
        return number_e::restart;
    }
    if (isGap) {
        addGap(source, boot.next, number, now);
        // A gap before the first report of a life is not filled later; if it were, the first reports
        // after one more restart would look like late ones.
        if (boot.numbered > 0) {
            remember(&boot.recentGaps, source->lastGaps.back());
        }
    }
    boot.next = number + 1;
    ++boot.numbered;
    return isGap ? number_e::gap : number_e::follows;
}

void beginBoot(source_account_s* source, std::int64_t now) {
    boot_account_s& boot = source->boot;
    const bool follows = boot.anyNumber;
    source->restarts += boot.name != 0 ? 1 : 0;
    // A clock that was set back must not make the same name again.
    boot = {.name = std::max(now / millisecond, boot.name + 1), .anyNumber = follows};
    // The next heartbeat may still be the first of this life.
    source->lastUptime = -1;
    source->restartTold = false;
}

void takeUptime(source_account_s* source, std::int64_t uptime) {
    if (uptime < source->lastUptime) {
        source->restartTold = true;
    }
    source->lastUptime = uptime;
}

void to_json(nlohmann::json& document, const source_account_s& source) {
    const boot_account_s& boot = source.boot;
    document = {{"reader", source.reader},
                {"heard", source.heard},
                {"taken", source.taken},
                {"refused", source.refused},
                {"notReports", source.notReports},
                {"restarts", source.restarts},
                {"gaps", source.gaps},
                {"missing", source.missing},
                {"lastUptime", source.lastUptime},
                {"restartTold", source.restartTold},
                {"lastGaps", rangesOf(source.lastGaps)},
                {"boot",
                 {{"name", boot.name},
                  {"row", boot.row},
                  {"anyNumber", boot.anyNumber},
                  {"first", boot.first},
                  {"next", boot.next},
                  {"numbered", boot.numbered},
                  {"missing", boot.missing},
                  {"recentGaps", rangesOf(boot.recentGaps)}}}};
}

void from_json(const nlohmann::json& document, source_account_s& source) {
    document.at("reader").get_to(source.reader);
    document.at("heard").get_to(source.heard);
    document.at("taken").get_to(source.taken);
    document.at("refused").get_to(source.refused);
    document.at("notReports").get_to(source.notReports);
    document.at("restarts").get_to(source.restarts);
    document.at("gaps").get_to(source.gaps);
    document.at("missing").get_to(source.missing);
    document.at("lastUptime").get_to(source.lastUptime);
    document.at("restartTold").get_to(source.restartTold);
    source.lastGaps = rangesIn(document.at("lastGaps"));
    const nlohmann::json& boot = document.at("boot");
    boot.at("name").get_to(source.boot.name);
    boot.at("row").get_to(source.boot.row);
    boot.at("anyNumber").get_to(source.boot.anyNumber);
    boot.at("first").get_to(source.boot.first);
    boot.at("next").get_to(source.boot.next);
    boot.at("numbered").get_to(source.boot.numbered);
    boot.at("missing").get_to(source.boot.missing);
    source.boot.recentGaps = rangesIn(boot.at("recentGaps"));
}

void to_json(nlohmann::json& document, const sink_account_s& sink) {
    document = {{"name", sink.name},           {"taken", sink.taken},     {"confirmed", sink.confirmed},
                {"setAside", sink.setAside},   {"dropped", sink.dropped}, {"pending", sink.pending()},
                {"delivered", sink.delivered}, {"retried", sink.retried}};
}

void to_json(nlohmann::json& document, const presence_account_s& presence) {
    document = {{"present", presence.present},
                {"arrived", presence.arrived},
                {"moved", presence.moved},
                {"departed", presence.departed},
                {"early", presence.early}};
}
