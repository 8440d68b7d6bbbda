// SPDX-License-Identifier: MIT
#include "scenario_failing.hpp"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace rxe {
namespace {

// Whether the row is for this call.
bool concerns(const failing_s& row, std::string_view operation, int parameter) {
    return (row.operation.empty() || row.operation == operation) &&
           (row.parameter < 0 || row.parameter == parameter);
}

// The caller holds the lock.
void store(std::vector<failing_s> rows, failures_s* failures) {
    failures->left = std::move(rows);
    failures->any.store(!failures->left.empty(), std::memory_order_relaxed);
}

}  // namespace

void presetFailures(const std::vector<failing_s>& rows, failures_s* failures) {
    const std::lock_guard lock(failures->mutex);
    if (failures->asked != rows) {
        failures->asked = rows;
        store(rows, failures);
    }
}

void forgetFailures(failures_s* failures) {
    const std::lock_guard lock(failures->mutex);
    failures->asked.clear();
    store({}, failures);
}

void addFailure(const failing_s& row, failures_s* failures) {
    const std::lock_guard lock(failures->mutex);
    std::vector<failing_s> rows = failures->left;
    if (row.status == RXE_OK) {
        std::erase_if(rows, [&](const failing_s& other) {
            return other.operation == row.operation && other.parameter == row.parameter;
        });
    } else {
        rows.push_back(row);
    }
    store(std::move(rows), failures);
}

std::string tellFailures(failures_s* failures) {
    const std::lock_guard lock(failures->mutex);
    nlohmann::json told = nlohmann::json::array();
    for (const failing_s& row : failures->left) {
        nlohmann::json& each = told.emplace_back(
            nlohmann::json{{"status", row.status}, {"after", row.after}, {"count", row.count}});
        if (!row.operation.empty()) {
            each["operation"] = row.operation;
        }
        if (row.parameter >= 0) {
            each["parameter"] = row.parameter;
        }
    }
    return nlohmann::json{{"failing", told}}.dump();
}

RXE_API_STATUS failureOf(std::string_view operation, int parameter, failures_s* failures) {
    if (!failures->any.load(std::memory_order_relaxed)) {
        return RXE_OK;
    }
    const std::lock_guard lock(failures->mutex);
    for (std::size_t i = 0; i < failures->left.size(); ++i) {
        failing_s& row = failures->left[i];
        if (!concerns(row, operation, parameter)) {
            continue;
        }
        if (row.after > 0) {
            --row.after;
            continue;
        }
        const auto status = static_cast<RXE_API_STATUS>(row.status);
        if (row.count == 1) {  // the last one; `row` is gone after this
            failures->left.erase(failures->left.begin() + static_cast<std::ptrdiff_t>(i));
            failures->any.store(!failures->left.empty(), std::memory_order_relaxed);
        } else if (row.count > 1) {
            --row.count;
        }
        return status;
    }
    return RXE_OK;
}

}  // namespace rxe
