// SPDX-License-Identifier: MIT
// The mode's tag filter: which EPCs are reported.
#include <algorithm>

#include "filter_expression.hpp"
#include "mode/record.hpp"
#include "radio.hpp"
#include "radio/report_plan.hpp"
#include "util.hpp"

namespace {

// Whether the EPC begins or ends with the pattern. A pattern that is longer than the EPC does not
// match, an empty one always matches.
bool matchesPattern(const tagFilter_s& filter, const std::uint8_t* epc, unsigned byteCount) {
    const unsigned length = filter.patternLength;
    if (length > byteCount) {
        return false;
    }
    const std::uint8_t* from = filter.match == filter_match_e::PREFIX ? epc : epc + (byteCount - length);
    return std::equal(from, from + length, filter.pattern.begin());
}

}  // namespace

int compareTagFilter(const std::uint8_t* epc, unsigned byteCount, std::string* idHex) {
    if (idHex == nullptr) {
        return 0;
    }
    const tagFilter_s& filter = reportPlan().filter;
    if (filter.enabled == 0) {
        appendHex(epc, byteCount, idHex);
        return 1;
    }
    const bool include = filter.operation == filter_operation_e::INCLUDE;
    if (filter.match == filter_match_e::REGEX) {
        appendHex(epc, byteCount, idHex);
        return matchesFilterExpression(filter.regex, *idHex) == include ? 1 : 0;
    }
    if (matchesPattern(filter, epc, byteCount) != include) {
        return 0;
    }
    appendHex(epc, byteCount, idHex);
    return 1;
}
