// SPDX-License-Identifier: MIT
#include "fault.hpp"

#include <algorithm>
#include <array>

#include "table_names.hpp"

namespace {

// The names of --fault; README.md explains each.
struct fault_name_s {
    std::string_view name;
    fault_e kind;
};

constexpr std::array faults{
    fault_name_s{"none", fault_e::none},
    fault_name_s{"silent", fault_e::silent},
    fault_name_s{"close", fault_e::close},
    fault_name_s{"garbage", fault_e::garbage},
    fault_name_s{"truncated", fault_e::truncated},
    fault_name_s{"no-marker", fault_e::noMarker},
    fault_name_s{"trailing", fault_e::trailing},
    fault_name_s{"result-code", fault_e::resultCode},
    fault_name_s{"bare-error", fault_e::bareError},
    fault_name_s{"missing-result-code", fault_e::missingResultCode},
    fault_name_s{"missing-value", fault_e::missingValue},
    fault_name_s{"double-value", fault_e::doubleValue},
};

}  // namespace

bool findFault(std::string_view name, fault_e* kind) {
    const auto found = std::ranges::find(faults, name, &fault_name_s::name);
    if (found == faults.end()) {
        return false;
    }
    *kind = found->kind;
    return true;
}

std::string faultNames() {
    return tableNames(faults);
}

fault_e nextFault(fault_plan_s* plan, std::string_view command) {
    if (plan->kind == fault_e::none || (!plan->query.empty() && plan->query != command)) {
        return fault_e::none;
    }
    // Number of the request among those that match, from 0.
    const auto number = plan->seen++;
    if (number < plan->after || (plan->count != 0 && number - plan->after >= plan->count)) {
        return fault_e::none;
    }
    return plan->kind;
}
