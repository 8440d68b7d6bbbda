// SPDX-License-Identifier: MIT
#include "radio/report_plan.hpp"

#include <algorithm>
#include <atomic>
#include <memory>
#include <utility>

#include "engine_io/olios.hpp"
#include "json_values.hpp"
#include "mode/accessors.hpp"
#include "mode/defaults.hpp"
#include "mode/record.hpp"
#include "radio.hpp"
#include "radio_state.hpp"
#include "reader_facts.hpp"

const report_plan_s* radio::planInForce = nullptr;

namespace {

// A plan. The main thread offers it, the engine thread puts it in force and later retires it, the
// main thread frees it.
struct plan_node_s {
    report_plan_s plan;
    plan_node_s* next = nullptr;  // among the retired
};

// The newest plan that the engine thread has not taken yet, or null. Both threads
// exchange it.
std::atomic<plan_node_s*> offered{nullptr};
// Plans that are not in force any more. The engine thread adds one, the main thread takes and frees
// all.
std::atomic<plan_node_s*> retired{nullptr};

// The newest plan, in force or not. Main thread.
report_plan_s newestPlan;
bool isPlanMade = false;

void freeRetired() {
    for (plan_node_s* node = retired.exchange(nullptr, std::memory_order_acquire); node != nullptr;) {
        const std::unique_ptr<plan_node_s> last(node);
        node = node->next;
    }
}

planned_text_s plannedText(const std::string& text) {
    planned_text_s planned{.plain = text, .json = {}, .error = {}};
    planned.json = json_text::jsonString(text, &planned.error);
    return planned;
}

void planTexts(const mode_configuration_s& mode, report_plan_s* plan) {
    plan->macText = plannedText(readerNames().rdr_mac);
    plan->hostNameText = plannedText(readerNames().rdr_hostname);
    plan->userDefinedText = plannedText(mode.userDefined);
    plan->noName = plannedText({});
    const std::size_t ports = std::min<std::size_t>(mode.antennaPortNames.size(), getMaxAnts());
    for (std::size_t port = 0; port < ports; ++port) {
        plan->portNames.push_back(plannedText(mode.antennaPortNames[port]));
    }
    const mode_type_s* type = findModeType(mode.modeType);
    plan->tail = "\",\"type\":\"" + std::string(type == nullptr ? std::string_view() : type->word) + "\"}";
}

std::size_t roomOf(const planned_text_s& text) {
    return std::max(text.json.size(), text.plain.size());
}

// An upper bound of the bytes of a report without late members. It allows for two URIs of a
// kilobyte in which each byte is escaped to six characters.
std::size_t roomFor(const report_plan_s& plan) {
    constexpr std::size_t roomOfUris = std::size_t{2} * 6 * 1024;
    constexpr std::size_t roomOfEpc = 520;
    constexpr std::size_t roomOfTime = 128;
    std::size_t room = roomOfUris + roomOfEpc + roomOfTime + plan.tail.size();
    for (const planned_member_s& member : plan.members) {
        room += member.start.size() + json_text::numberRoom;
    }
    std::size_t longestName = 0;
    for (const planned_text_s& name : plan.portNames) {
        longestName = std::max(longestName, roomOf(name));
    }
    return room + longestName + roomOf(plan.macText) + roomOf(plan.hostNameText) +
           roomOf(plan.userDefinedText);
}

// Words to read or write, 0 to 255. In a read the high byte has the count too.
std::uint8_t wordCountOf(const ACCESS_OP_s& op) {
    return static_cast<std::uint8_t>(op.wordCount & 0xFF);
}

std::string memoryKey(const ACCESS_OP_s& op) {
    std::string key;
    if (op.membank < EPC_GEN2_MB_strings.size()) {
        key = EPC_GEN2_MB_strings[op.membank];
    }
    const unsigned count = wordCountOf(op);
    if (count != 0 || op.wordPointer != 0) {
        key += '[' + std::to_string(op.wordPointer);
        if (count > 1) {
            key += '-' + std::to_string(op.wordPointer + count - 1);
        }
        key += ']';
    }
    return key;
}

void planAccesses(const mode_configuration_s& mode, const told_accesses_s& told, report_plan_s* plan) {
    plan->readsAsMetadata = isTagDataMemoryEnabled(&mode);
    plan->restartsSlots = !mode.uniqueAccesses.empty();
    plan->accesses = plan->readsAsMetadata || plan->restartsSlots;
    plan->enabledAccesses = told.accessParamsEnabledCount;
    plan->accessesOfOlio = told.enabledAccessOpsPerOlio;
    for (std::size_t id = 1; id < told.enabledAccessOps.size(); ++id) {
        const ACCESS_OP_s& op = told.enabledAccessOps[id];
        if (op.enable == 0) {
            continue;
        }
        const unsigned blockSize =
            op.type == RXE_ACCESS_BLOCK_WRITE ? std::max<unsigned>(mode.blockSize, 1) : 1;
        plan->access[id] = {.enable = op.enable,
                            .type = op.type,
                            .words = wordCountOf(op),
                            .parts = static_cast<std::uint8_t>(wordCountOf(op) / blockSize),
                            .memoryKey = memoryKey(op)};
        plan->accessMask |= id <= 64 ? std::uint64_t{1} << (id - 1) : 0;
    }
}

report_plan_s makePlan(const mode_configuration_s& mode, const told_accesses_s& told) {
    report_plan_s plan;
    plan.modeType = mode.modeType;
    plan.arrayReader = thisModel().arrayReader;
    copyTagFilter(&mode.tagFilter, &plan.filter);
    plan.filterRule = ruleOf(mode.tagFilter);
    plan.members = plannedMembers(mode);
    plan.switches = static_cast<const report_switches_s&>(mode);
    plan.userDefined = !mode.userDefined.empty();
    plan.portName = !mode.antennaPortNames.empty();
    planTexts(mode, &plan);
    planAccesses(mode, told, &plan);
    plan.room = roomFor(plan);
    return plan;
}

// Not inlined: it runs rarely, and the code that runs for each packet stays short.
[[gnu::noinline]] const report_plan_s& planOfEmptyMode() {
    static const report_plan_s plan = makePlan({}, {});
    return plan;
}

[[gnu::noinline]] void exchangePlan() {
    static plan_node_s* current = nullptr;  // engine thread
    plan_node_s* const before = std::exchange(current, offered.exchange(nullptr, std::memory_order_acq_rel));
    radio::planInForce = &current->plan;
    if (before != nullptr) {
        before->next = retired.load(std::memory_order_relaxed);
        while (!retired.compare_exchange_weak(before->next, before, std::memory_order_release,
                                              std::memory_order_relaxed)) {
        }
    }
}

// Offers a copy of the newest plan.
void offerPlan() {
    auto fresh = std::make_unique<plan_node_s>();
    fresh->plan = newestPlan;
    freeRetired();
    // A plan that the engine thread has not taken comes back and is freed here.
    const std::unique_ptr<plan_node_s> unseen(offered.exchange(fresh.release(), std::memory_order_acq_rel));
}

}  // namespace

void publishReportPlan(const mode_configuration_s& mode, const told_accesses_s& accesses) {
    auto traces = std::move(newestPlan.traces);
    newestPlan = makePlan(mode, accesses);
    newestPlan.traces = std::move(traces);
    isPlanMade = true;
    offerPlan();
}

void publishTraces(const std::vector<std::shared_ptr<tag_trace_s>>& traces) {
    if (!isPlanMade) {
        newestPlan = planOfEmptyMode();
    }
    newestPlan.traces = traces;
    offerPlan();
}

void takeReportPlan() {
    if (offered.load(std::memory_order_relaxed) != nullptr) {
        exchangePlan();
    } else if (radio::planInForce == nullptr) {
        radio::planInForce = &planOfEmptyMode();
    }
}
