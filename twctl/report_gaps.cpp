// SPDX-License-Identifier: MIT
// A gap is counted when the report behind it comes, so what is missing at the very end of a watch
// does not count.
#include "report_gaps.hpp"

#include <algorithm>

namespace {

// Gaps of a run that are remembered for late reports. They come while two connections overlap,
// which is soon over.
constexpr std::size_t mostRecent = 64;

// "report 41", "reports 37 to 48"
std::string rangeText(const number_range_s& range) {
    const std::string first = std::to_string(range.first);
    return range.first == range.last ? "report " + first
                                     : "reports " + first + " to " + std::to_string(range.last);
}

void addGap(report_run_s* run, const number_range_s& gap) {
    run->around = {run->missing == 0 ? gap.first : run->around.first, gap.last};
    run->missing += gap.last - gap.first + 1;
    ++run->gaps;
    run->recent.push_back(gap);
    if (run->recent.size() > mostRecent) {
        run->recent.pop_front();
    }
}

// Takes a late report out of its gap, of which up to two smaller ones stay. False when the number
// is not in one of the recent gaps.
bool takeLate(report_run_s* run, std::uint64_t number) {
    const auto gap = std::ranges::find_if(run->recent, [number](const number_range_s& range) {
        return range.first <= number && number <= range.last;
    });
    if (gap == run->recent.end()) {
        return false;
    }
    const number_range_s whole = *gap;
    auto place = run->recent.erase(gap);
    --run->missing;
    --run->gaps;
    if (number < whole.last) {
        place = run->recent.insert(place, {number + 1, whole.last});
        ++run->gaps;
    }
    if (whole.first < number) {
        run->recent.insert(place, {whole.first, number - 1});
        ++run->gaps;
    }
    return true;
}

std::string restartText(std::uint64_t number, std::uint64_t last) {
    return "the daemon has restarted: report " + std::to_string(number) + " came after report " +
           std::to_string(last);
}

std::string missingText(const report_run_s& run) {
    const number_range_s& around = run.around;
    if (run.missing == around.last - around.first + 1) {
        return rangeText(around) + " never came";
    }
    return std::to_string(run.missing) + " of the " + rangeText(around) + " never came, in " +
           std::to_string(run.gaps) + (run.gaps == 1 ? " gap" : " gaps");
}

}  // namespace

std::string takeNumber(report_gaps_t* runs, std::uint64_t number) {
    if (runs->empty()) {
        runs->push_back({.first = number, .last = number});
        return "";
    }
    report_run_s& run = runs->back();
    const std::uint64_t last = run.last;
    if (number > last) {
        run.last = number;
        if (number == last + 1) {
            return "";
        }
        addGap(&run, {last + 1, number - 1});
        return rangeText(run.recent.back()) + " never came";
    }
    if (takeLate(&run, number)) {
        return "report " + std::to_string(number) + " came late";
    }
    runs->push_back({.first = number, .last = number});
    return restartText(number, last);
}

bool hasGaps(const report_gaps_t& runs) {
    return !runs.empty() && runs.back().missing > 0;
}

std::vector<std::string> describeGaps(const report_gaps_t& runs) {
    std::vector<std::string> lines;
    for (std::size_t i = 0; i < runs.size(); ++i) {
        if (i > 0) {
            lines.push_back(restartText(runs[i].first, runs[i - 1].last));
        }
        if (runs[i].missing > 0) {
            lines.push_back(missingText(runs[i]));
        }
    }
    return lines;
}

// The two accounts tell how many numbers were used without a report between them. Some of these
// numbers may lie in front of the first report that came or behind the last one, and so outside of
// the gaps; each such number makes the figure less certain by one.
std::string describeHeldBack(const report_gaps_t& runs, std::optional<account_numbers_s> before,
                             const account_numbers_s& now) {
    const report_run_s& run = runs.back();
    const bool sameProcess = !before || before->since == now.since;
    if (now.next <= run.last || (!sameProcess && runs.size() == 1)) {
        return "the daemon has restarted since and cannot tell how many of them it held back";
    }
    // Without an earlier account that holds for this run, the daemon's start is the earlier moment.
    // The first report is older than an account when it waited in a queue meanwhile.
    if (!before || !sameProcess || run.first < before->next) {
        before = account_numbers_s{};
    }
    const std::uint64_t heldBack = now.heldBack - before->heldBack;
    const std::uint64_t outside = before->pending + (run.first - before->next) + (now.next - 1 - run.last);
    const std::uint64_t most = std::min(heldBack, run.missing);
    const std::uint64_t least = std::min(heldBack > outside ? heldBack - outside : 0, most);
    const std::string number = most == 0       ? "none"
                               : least == most ? std::to_string(most)
                               : least == 0    ? "up to " + std::to_string(most)
                                               : std::to_string(least) + " to " + std::to_string(most);
    return "the daemon held back " + number + " of them";
}
