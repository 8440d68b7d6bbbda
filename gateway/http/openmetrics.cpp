// SPDX-License-Identifier: MIT
#include "openmetrics.hpp"

#include <spdlog/fmt/fmt.h>

#include <array>
#include <cmath>
#include <string_view>

namespace {

using prometheus::MetricFamily;
using prometheus::MetricType;

constexpr std::string_view total = "_total";
constexpr std::array<std::string_view, 4> units{"seconds", "bytes", "celsius", "ratio"};

std::string escaped(std::string_view text) {
    std::string out;
    for (const char c : text) {
        out += c == '\n' ? "\\n" : c == '"' ? "\\\"" : c == '\\' ? "\\\\" : std::string(1, c);
    }
    return out;
}

std::string valueText(double value) {
    return std::isnan(value)   ? "NaN"
           : std::isinf(value) ? (value > 0 ? "+Inf" : "-Inf")
                               : fmt::format("{}", value);
}

std::string labelText(const std::vector<prometheus::ClientMetric::Label>& labels) {
    std::string text;
    for (const auto& label : labels) {
        text += (text.empty() ? "{" : ",") + label.name + "=\"" + escaped(label.value) + "\"";
    }
    return text.empty() ? text : text + "}";
}

void write(const MetricFamily& family, std::string* out) {
    const bool isCounter = family.type == MetricType::Counter;
    std::string_view name = family.name;
    if (isCounter && name.ends_with(total)) {
        name.remove_suffix(total.size());
    }
    *out += fmt::format("# TYPE {} {}\n", name, isCounter ? "counter" : "gauge");
    for (const std::string_view unit : units) {
        if (name.ends_with("_" + std::string(unit))) {
            *out += fmt::format("# UNIT {} {}\n", name, unit);
        }
    }
    *out += fmt::format("# HELP {} {}\n", name, escaped(family.help));
    for (const prometheus::ClientMetric& metric : family.metric) {
        *out += fmt::format("{}{}{} {}\n", name, isCounter ? total : "", labelText(metric.label),
                            valueText(isCounter ? metric.counter.value : metric.gauge.value));
    }
}

}  // namespace

std::string openMetricsText(const std::vector<MetricFamily>& families) {
    std::string text;
    for (const MetricFamily& family : families) {
        write(family, &text);
    }
    return text + "# EOF\n";
}

bool wantsOpenMetrics(const std::string& accept) {
    return accept.find("application/openmetrics-text") != accept.npos;
}
