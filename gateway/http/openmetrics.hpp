// SPDX-License-Identifier: MIT
// Collected families as OpenMetrics 1.0 text, which the library of the metrics does not write: it knows the
// older text format of Prometheus.
#pragma once

#include <prometheus/metric_family.h>

#include <string>
#include <vector>

inline constexpr const char* openMetricsType = "application/openmetrics-text; version=1.0.0; charset=utf-8";

// Counters and gauges. The names of counters end in "_total", which OpenMetrics has only in the samples. A
// name that ends in _seconds, _bytes, _celsius or _ratio has it as its unit.
std::string openMetricsText(const std::vector<prometheus::MetricFamily>& families);

// Whether the header "Accept" of a request asks for OpenMetrics.
bool wantsOpenMetrics(const std::string& accept);
