// SPDX-License-Identifier: MIT
// What the rules look for. Each function is the condition of a rule and its sentence: a sentence
// about the facts when the condition holds, nothing otherwise.
#pragma once

#include <optional>
#include <string>

#include "facts.hpp"

namespace why {

using finding_t = std::optional<std::string>;

inline bool isUnheard(const facts_s& facts) {
    return facts.heard == 0;
}

// What became of the reads that the daemon has seen: fates.cpp.
finding_t sentAndHeard(const facts_s& facts);
finding_t sentToNobody(const facts_s& facts);
finding_t filtered(const facts_s& facts);
finding_t heldBack(const facts_s& facts);
finding_t superseded(const facts_s& facts);
finding_t notText(const facts_s& facts);
finding_t refused(const facts_s& facts);
finding_t noSocket(const facts_s& facts);
finding_t pending(const facts_s& facts);
finding_t shared(const facts_s& facts);
finding_t notDecoded(const facts_s& facts);

// Whether the radio runs, and where it transmits: reach.cpp.
finding_t stopped(const facts_s& facts);
finding_t ended(const facts_s& facts);
finding_t waiting(const facts_s& facts);
finding_t noReads(const facts_s& facts);
finding_t absent(const facts_s& facts);
finding_t onLostAntenna(const facts_s& facts);
finding_t hasLostAntenna(const facts_s& facts);
finding_t onIdleAntenna(const facts_s& facts);
finding_t hasIdleAntenna(const facts_s& facts);
finding_t onSilentAntenna(const facts_s& facts);
finding_t tooWeak(const facts_s& facts);
finding_t littlePower(const facts_s& facts);
finding_t nothing(const facts_s& facts);
// Whether an antenna of the mode gives the tag of the software radio enough power.
bool isInReach(const facts_s& facts);

// What keeps a tag quiet, or its reads within the radio: quiet.cpp.
finding_t wouldBeFiltered(const facts_s& facts);
finding_t notSelected(const facts_s& facts);
finding_t held(const facts_s& facts);
finding_t byReportFilter(const facts_s& facts);
finding_t byLevelFilter(const facts_s& facts);
finding_t byIdFilter(const facts_s& facts);
finding_t flagAtB(const facts_s& facts);
finding_t reportedBefore(const facts_s& facts);
finding_t maybeReported(const facts_s& facts);
finding_t maybeQuiet(const facts_s& facts);
finding_t maybeNotSelected(const facts_s& facts);
finding_t maybeBelowLevel(const facts_s& facts);

}  // namespace why
