// SPDX-License-Identifier: MIT
// Whether the radio runs, and whether it reaches the tag.
#include <algorithm>
#include <limits>

#include "findings.hpp"
#include "texts.hpp"

namespace why {

namespace {

// While the radio waits for its trigger it sends a sign of life five times a second; when it
// transmits, several packets for each round.
bool isWaiting(const facts_s& facts) {
    constexpr double mostPackets = 8;  // a second
    return facts.isActive && isUnheard(facts) && !facts.mode.start.empty() && facts.reads == 0 &&
           static_cast<double>(facts.radioPackets) <= mostPackets * std::max(facts.seconds, 1.0);
}

bool hasEnded(const facts_s& facts) {
    return !facts.isActive && !facts.mode.stops.empty() && (facts.wasActive || facts.hasRead);
}

// ---------------------------------------------------------------- antennas by their state

numbers_t antennasOf(const mode_s& mode) {
    numbers_t numbers;
    for (const antenna_s& antenna : mode.antennas) {
        numbers.insert(antenna.number);
    }
    return numbers;
}

// The reader's antennas that the mode uses or not and that are connected or not.
numbers_t portsThatAre(const facts_s& facts, bool used, bool connected) {
    const numbers_t ofMode = antennasOf(facts.mode);
    numbers_t numbers;
    for (const auto& [port, isConnected] : facts.ports) {
        if (ofMode.contains(port) == used && isConnected == connected) {
            numbers.insert(port);
        }
    }
    return numbers;
}

// ---------------------------------------------------------------- the tag in the scene

// What a mode and the reader do with an antenna.
enum class state_e { works, silent, lost, idle, neither };

state_e stateOf(const reach_s& reach) {
    return reach.used && reach.connected ? (reach.silent.empty() ? state_e::works : state_e::silent)
           : reach.used                  ? state_e::lost
           : reach.connected             ? state_e::idle
                                         : state_e::neither;
}

// The antenna of such a state that reaches the tag best, if one gives it enough power.
const reach_s* reachOf(const facts_s& facts, state_e state) {
    const reach_s* best = nullptr;
    for (const reach_s& reach : facts.scene->antennas) {
        if (stateOf(reach) == state && reach.margin >= 0 &&
            (best == nullptr || reach.margin > best->margin)) {
            best = &reach;
        }
    }
    return best;
}

// The tag is in the scene, was not heard, and no antenna that works reaches it. Then an antenna that
// the mode uses is a better explanation than one that it does not.
bool isOutOfReach(const facts_s& facts) {
    return isUnheard(facts) && facts.scene && facts.scene->present &&
           reachOf(facts, state_e::works) == nullptr;
}

const reach_s* missedReach(const facts_s& facts) {
    for (const state_e state : {state_e::lost, state_e::silent, state_e::idle}) {
        if (const reach_s* reach = isOutOfReach(facts) ? reachOf(facts, state) : nullptr; reach != nullptr) {
            return reach;
        }
    }
    return nullptr;
}

// The antenna that would reach the tag best, when it is in this state.
const reach_s* missedReach(const facts_s& facts, state_e state) {
    const reach_s* reach = missedReach(facts);
    return reach != nullptr && stateOf(*reach) == state ? reach : nullptr;
}

double powerOf(const mode_s& mode, std::uint32_t number) {
    const auto antenna = std::ranges::find(mode.antennas, number, &antenna_s::number);
    return antenna == mode.antennas.end() ? 0 : antenna->power;
}

}  // namespace

bool isInReach(const facts_s& facts) {
    return facts.scene && facts.scene->present && reachOf(facts, state_e::works) != nullptr;
}

finding_t stopped(const facts_s& facts) {
    return facts.isActive || hasEnded(facts) ? finding_t() : "the radio does not run";
}

finding_t ended(const facts_s& facts) {
    return hasEnded(facts)
               ? "the radio does not run any more: its mode ends a run " + listed(facts.mode.stops, " or ")
               : finding_t();
}

finding_t waiting(const facts_s& facts) {
    return isWaiting(facts)
               ? "the radio waits for its start trigger (" + facts.mode.start + ") and does not transmit"
               : finding_t();
}

// With a report filter in the radio no news is no sign of anything.
finding_t noReads(const facts_s& facts) {
    const bool everyRead = facts.mode.reportFilter.seconds == 0 || !facts.mode.reportFilter.keys.empty();
    const bool isSilent =
        facts.isActive && isUnheard(facts) && facts.reads == 0 && facts.seconds >= 1 && !facts.scene;
    return isSilent && everyRead && !isWaiting(facts)
               ? "not a single tag was read in " + secondsText(facts.seconds)
               : finding_t();
}

finding_t absent(const facts_s& facts) {
    return isUnheard(facts) && facts.scene && !facts.scene->present
               ? finding_t("the software radio's scene does not have this tag now")
               : std::nullopt;
}

finding_t onLostAntenna(const facts_s& facts) {
    const reach_s* reach = missedReach(facts, state_e::lost);
    return reach == nullptr ? finding_t()
                            : antennasText({reach->antenna}) + ", which would reach the tag, is disconnected";
}

finding_t hasLostAntenna(const facts_s& facts) {
    const numbers_t lost = portsThatAre(facts, true, false);
    return !isUnheard(facts) || facts.scene || lost.empty()
               ? finding_t()
               : antennasText(lost) + " of the mode " + isOrAre(lost.size()) + " disconnected";
}

finding_t onIdleAntenna(const facts_s& facts) {
    const reach_s* reach = missedReach(facts, state_e::idle);
    return reach == nullptr
               ? finding_t()
               : antennasText({reach->antenna}) + " would reach the tag, and the mode does not use it";
}

finding_t hasIdleAntenna(const facts_s& facts) {
    const numbers_t idle = portsThatAre(facts, false, true);
    return !isUnheard(facts) || facts.scene || idle.empty()
               ? finding_t()
               : antennasText(idle) + " " + isOrAre(idle.size()) + " connected and not used by the mode";
}

finding_t onSilentAntenna(const facts_s& facts) {
    const reach_s* reach = missedReach(facts, state_e::silent);
    return reach == nullptr
               ? finding_t()
               : antennasText({reach->antenna}) + " would reach the tag, and reads nothing: " + reach->silent;
}

finding_t tooWeak(const facts_s& facts) {
    if (!isOutOfReach(facts) || missedReach(facts) != nullptr || facts.scene->antennas.empty()) {
        return std::nullopt;
    }
    const auto rate = [](const reach_s& reach) {
        return stateOf(reach) == state_e::works ? reach.margin : std::numeric_limits<double>::lowest();
    };
    const reach_s& best = *std::ranges::max_element(facts.scene->antennas, {}, rate);
    return stateOf(best) != state_e::works
               ? finding_t("no antenna of the mode works")
               : "of the antennas in use " + std::to_string(best.antenna) + " reaches the tag best, and " +
                     shortNumber(-best.margin) + " dB are missing: it transmits " +
                     dBmText(powerOf(facts.mode, best.antenna)) + ", of which " + dBmText(best.power) +
                     " arrive";
}

finding_t littlePower(const facts_s& facts) {
    constexpr double usualPower = 27;  // dBm, the default of the mode language
    if (!isUnheard(facts) || facts.scene || facts.mode.antennas.empty()) {
        return std::nullopt;
    }
    const auto weakest = std::ranges::min_element(facts.mode.antennas, {}, &antenna_s::power);
    return weakest->power < usualPower
               ? antennasText({weakest->number}) + " transmits " + dBmText(weakest->power) + " only"
               : finding_t();
}

finding_t nothing(const facts_s& facts) {
    constexpr std::size_t mostPorts = 16;  // more are beams of an array reader
    const numbers_t working = facts.ports.empty() ? antennasOf(facts.mode) : portsThatAre(facts, true, true);
    const std::string antennas =
        working.size() > mostPorts
            ? "it uses " + std::to_string(working.size()) + " beams"
            : antennasText(working) + " " + isOrAre(working.size()) + " connected and used";
    return "nothing was found that keeps the tag away: the radio runs, " + antennas +
           ", and neither the filter nor the selects of the mode refuse the EPC";
}

}  // namespace why
