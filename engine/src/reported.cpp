// SPDX-License-Identifier: MIT
#include "reported.hpp"

#include <algorithm>

namespace rxe {
namespace {

constexpr std::uint32_t FOR_EVER = 0xFFFFFFFF;
constexpr std::int64_t MICROSECONDS = 1000000;
constexpr std::uint8_t PER_OLIO = 1;

bool bitAt(const std::uint8_t* bytes, std::size_t bit) {
    return ((bytes[bit / 8] >> (7 - bit % 8)) & 1) != 0;
}

bool matches(const REPORT_FILTER_ID_s& filter, const tag_s& tag) {
    if (filter.bitPointer + filter.bitLength > tag.epcBits) {
        return false;
    }
    for (std::size_t bit = 0; bit < filter.bitLength; ++bit) {
        if (bitAt(filter.mask, bit) != bitAt(tag.epc.data(), filter.bitPointer + bit)) {
            return false;
        }
    }
    return true;
}

}  // namespace

void clearReported(std::size_t tagCount, reported_s* reported) {
    reported->seen.assign(tagCount, false);
    reported->lastReport.clear();
}

bool noteSeen(std::uint32_t tag, reported_s* reported) {
    const bool isNew = !reported->seen[tag];
    reported->seen[tag] = true;
    return isNew;
}

bool passesIdFilters(const std::vector<REPORT_FILTER_ID_s>& filters, const tag_s& tag) {
    return filters.empty() || std::ranges::any_of(filters, [&](const REPORT_FILTER_ID_s& filter) {
               return matches(filter, tag);
           });
}

bool passesLastReport(const REPORT_FILTER_LAST_REPORT_s& filter, std::uint32_t tag, std::uint16_t olioId,
                      std::int64_t now, reported_s* reported) {
    if (filter.enable == 0) {
        return true;
    }
    const std::uint64_t key = filter.type == PER_OLIO ? std::uint64_t{olioId} << 32 | tag : tag;
    const auto [entry, isNew] = reported->lastReport.try_emplace(key, now);
    if (isNew) {
        return true;
    }
    if (filter.duration == FOR_EVER || now - entry->second < filter.duration * MICROSECONDS) {
        return false;
    }
    entry->second = now;
    return true;
}

}  // namespace rxe
