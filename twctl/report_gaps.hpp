// SPDX-License-Identifier: MIT
// Which reports never came. The daemon numbers its reports from 0 since its start, so that a
// number which is left out stands for a report that did not come here.
//
// Messages of one connection keep their order. Those of two connections (the daemon connects again
// when it starts, and when data_analytics returns to OFF) may come mixed while this program lags
// behind, so a lower number is a late report where it belongs into a gap, and else a restart.
#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "account_reply.hpp"

// Both numbers belong to it.
struct number_range_s {
    std::uint64_t first, last;
};

// The reports of one daemon process.
struct report_run_s {
    std::uint64_t first, last;            // the numbers of the first report that came, and of the last
    std::uint64_t missing = 0, gaps = 0;  // reports that never came, and in how many gaps
    number_range_s around{};              // from the first missing number to the last one
    std::deque<number_range_s> recent{};  // the last gaps, for late reports
};

// In the order in which they came; a new run begins where the daemon has restarted.
using report_gaps_t = std::vector<report_run_s>;

// Takes the number of the next report. Returns a sentence about it, empty when it follows the last.
std::string takeNumber(report_gaps_t* runs, std::uint64_t number);

// Whether a report of the last run is missing, which is the run that the daemon's account tells of.
bool hasGaps(const report_gaps_t& runs);

// Sentences about everything that is missing, and about the restarts; none when all came.
std::vector<std::string> describeGaps(const report_gaps_t& runs);

// A sentence about how many of the last run's missing reports the daemon held back, for which
// hasGaps() must hold. `before` is the daemon's account from before the first report came, if known.
std::string describeHeldBack(const report_gaps_t& runs, std::optional<account_numbers_s> before,
                             const account_numbers_s& now);
