// SPDX-License-Identifier: MIT
// The radio's tag database: which tags it has seen since RXE_resetDb, when it
// last reported them, and the filters that decide on the next report. Radio
// thread only.
#ifndef ENGINE_REPORTED_HPP
#define ENGINE_REPORTED_HPP

#include <cstdint>
#include <unordered_map>
#include <vector>

#include "plan.hpp"
#include "population.hpp"

namespace rxe {

struct reported_s {
    std::vector<bool> seen;  // by index into the population
    // Microseconds of the engine's clock, by tag index, and in the upper 32
    // bits by olio id when the filter works per olio.
    std::unordered_map<std::uint64_t, std::int64_t> lastReport;
};

void clearReported(std::size_t tagCount, reported_s* reported);

// Marks the tag as seen and says whether it was new.
bool noteSeen(std::uint32_t tag, reported_s* reported);

// True when no id filter is enabled or one of them matches the EPC.
bool passesIdFilters(const std::vector<REPORT_FILTER_ID_s>& filters, const tag_s& tag);

// True when the read may be reported now, which is then noted.
bool passesLastReport(const REPORT_FILTER_LAST_REPORT_s& filter, std::uint32_t tag, std::uint16_t olioId,
                      std::int64_t now, reported_s* reported);

}  // namespace rxe

#endif
