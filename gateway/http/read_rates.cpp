// SPDX-License-Identifier: MIT
#include "read_rates.hpp"

#include <spdlog/fmt/fmt.h>

#include <algorithm>
#include <limits>
#include <utility>

namespace {

// In place of an antenna's number.
constexpr int noAntenna = std::numeric_limits<int>::max() - 1;
constexpr int otherAntenna = std::numeric_limits<int>::max();

std::string antennaText(int antenna) {
    return antenna == noAntenna ? "none" : antenna == otherAntenna ? "other" : std::to_string(antenna);
}

}  // namespace

read_rates_c::series_s& read_rates_c::seriesOf(std::size_t reader, std::optional<int> antenna) {
    const int wanted = antenna.value_or(noAntenna);
    if (const auto known = series.find({reader, wanted}); known != series.end()) {
        return known->second;
    }
    if (!antenna) {
        return series[{reader, noAntenna}];
    }
    std::size_t& count = antennasOf[reader];
    if (count >= mostAntennas) {
        return series[{reader, otherAntenna}];
    }
    ++count;
    return series[{reader, wanted}];
}

void read_rates_c::take(std::size_t reader, std::optional<int> antenna) {
    series_s& own = seriesOf(reader, antenna);
    ++own.open;
    ++own.total;
}

bool read_rates_c::closeUntil(std::int64_t at) {
    const std::int64_t now = at - at % step;
    if (end == 0) {
        end = now;
    }
    if (now <= end) {
        // A clock that was set back by hours would stop the rates for hours.
        end = end - now > step * static_cast<std::int64_t>(intervals) ? now : end;
        return false;
    }
    const auto count = std::min<std::int64_t>((now - end) / step, intervals);
    for (std::int64_t i = 0; i < count; ++i, ++ended) {
        for (auto& [name, own] : series) {
            own.counts[ended % intervals] = i + 1 == count ? std::exchange(own.open, 0) : 0;
        }
    }
    end = now;
    return true;
}

void read_rates_c::writeAll(std::string* out) const {
    const auto place = std::back_inserter(*out);
    const std::size_t count = std::min(ended, intervals);
    fmt::format_to(place, R"({{"step":{},"end":{},"series":[)", step, end);
    bool isFirst = true;
    for (const auto& [name, own] : series) {
        fmt::format_to(place, R"({}{{"reader":{},"antenna":"{}","counts":[)",
                       std::exchange(isFirst, false) ? "" : ",", name.first, antennaText(name.second));
        for (std::size_t i = ended - count; i < ended; ++i) {
            fmt::format_to(place, "{}{}", i == ended - count ? "" : ",", own.counts[i % intervals]);
        }
        out->append("]}");
    }
    out->append("]}");
}

void read_rates_c::writeLast(std::string* out) const {
    const auto place = std::back_inserter(*out);
    fmt::format_to(place, R"({{"end":{},"counts":[)", end);
    bool isFirst = true;
    for (const auto& [name, own] : series) {
        const std::uint32_t count = ended == 0 ? 0 : own.counts[(ended - 1) % intervals];
        if (count > 0) {
            fmt::format_to(place, R"({}[{},"{}",{}])", std::exchange(isFirst, false) ? "" : ",", name.first,
                           antennaText(name.second), count);
        }
    }
    out->append("]}");
}

std::map<read_rates_c::name_s, std::uint64_t> read_rates_c::totals() const {
    std::map<name_s, std::uint64_t> all;
    for (const auto& [name, own] : series) {
        all[{name.first, antennaText(name.second)}] = own.total;
    }
    return all;
}
