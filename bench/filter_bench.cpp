// SPDX-License-Identifier: MIT
// The cost of the tag filter for each tag, by kind, as a ratio to that without a filter (which still
// writes the EPC in hexadecimal). Kinds run in turn in one process; the figure is the median of the
// ratios of neighbouring rounds.
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "apply/apply.hpp"
#include "filter_expression.hpp"
#include "radio.hpp"

namespace {

constexpr int tags = 2000;
constexpr int rounds = 200;
constexpr std::array<std::uint8_t, 12> epc{0x30, 0x74, 0x25, 0x7B, 0xF7, 0x19,
                                           0x4E, 0x40, 0x00, 0x00, 0x1A, 0x85};

tagFilter_s pattern(filter_match_e match, std::size_t from, std::size_t length) {
    tagFilter_s filter;
    filter.enabled = 1;
    filter.match = match;
    filter.patternLength = static_cast<std::uint8_t>(length);
    std::copy_n(epc.begin() + static_cast<std::ptrdiff_t>(from), length, filter.pattern.begin());
    return filter;
}

tagFilter_s expression(const char* text) {
    tagFilter_s filter;
    filter.enabled = 1;
    filter.match = filter_match_e::REGEX;
    compileFilterExpression(text, &filter.regex);
    return filter;
}

struct kind_s {
    const char* name;
    tagFilter_s filter;
};

double nanosecondsForEachTag(const tagFilter_s& filter) {
    mode_configuration.tagFilter = filter;
    publishReportPlan(mode_configuration, toldAccesses);
    takeReportPlan();
    std::string idHex;
    int passed = 0;
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < tags; ++i) {
        idHex.clear();
        passed += compareTagFilter(epc.data(), epc.size(), &idHex);
    }
    const std::chrono::duration<double, std::nano> took = std::chrono::steady_clock::now() - start;
    if (passed != tags) {
        std::fprintf(stderr, "the filter dropped a tag that it must let pass\n");
        std::exit(2);
    }
    return took.count() / tags;
}

double median(std::vector<double> values) {
    std::ranges::sort(values);
    return values[values.size() / 2];
}

}  // namespace

int main() {
    const std::array kinds{
        kind_s{"prefix of 4 bytes", pattern(filter_match_e::PREFIX, 0, 4)},
        kind_s{"suffix of 4 bytes", pattern(filter_match_e::SUFFIX, 8, 4)},
        kind_s{"regex 3074.*", expression("3074.*")},
        kind_s{"regex [0-9a-f]{20}1a85", expression("[0-9a-f]{20}1a85")},
    };
    const tagFilter_s none;
    for (const kind_s& kind : kinds) {
        std::vector<double> ratios;
        std::vector<double> costs;
        for (int round = 0; round < rounds; ++round) {
            const double bare = nanosecondsForEachTag(none);
            costs.push_back(nanosecondsForEachTag(kind.filter));
            ratios.push_back(costs.back() / bare);
        }
        std::printf("%-24s ratio %7.2f to no filter  %6.0f ns a tag\n", kind.name, median(ratios),
                    median(costs));
    }
    return 0;
}
