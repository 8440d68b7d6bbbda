// SPDX-License-Identifier: MIT
// The metrics, by the conventions of Prometheus: base units, counters that end in _total, and no label whose
// values have no bound. docs/gateway-http.md has the table of their names.
#pragma once

#include <prometheus/metric_family.h>

#include <vector>

#include "picture.hpp"

// What the server counts of itself.
struct http_numbers_s {
    std::uint64_t requests = 0;     // that were answered, whatever the answer
    std::uint64_t refused = 0;      // of them: with a status of 400 or above
    std::uint64_t connections = 0;  // now
    std::uint64_t streams = 0;      // now
    std::uint64_t cut = 0;          // connections that were closed before their time
};

std::vector<prometheus::MetricFamily> collectMetrics(const picture_numbers_s& picture,
                                                     const http_numbers_s& http);
