// SPDX-License-Identifier: MIT
// What the rules look for. Each function is the condition of a rule and its sentence: a sentence
// about the facts when the condition holds, nothing otherwise.
#pragma once

#include <optional>
#include <string>

#include "facts.hpp"

namespace why {

using finding_t = std::optional<std::string>;

// The tag was not heard while this program listened.
inline bool isUnheard(const facts_s& facts) {
    return facts.heard == facts.heardBefore;
}

// What became of the reads that the daemon has seen: fates.cpp.
// Reads whose reports left while somebody was subscribed.
finding_t sentAndHeard(const facts_s& facts);
// Reads whose reports left while nobody was.
finding_t sentToNobody(const facts_s& facts);
// Reads that the mode's tag filter refused, with its rule.
finding_t filtered(const facts_s& facts);
// Reads whose reports additional keys held back, until when.
finding_t heldBack(const facts_s& facts);
// The same for reports whose accesses were not done when the next tag came.
finding_t superseded(const facts_s& facts);
// Reads whose reports had a text that is not UTF-8.
finding_t notText(const facts_s& facts);
// Reads whose reports the full queue of a local consumer refused.
finding_t refused(const facts_s& facts);
// Reads whose reports came while the form was being changed.
finding_t noSocket(const facts_s& facts);
// The last read does not have its fate yet.
finding_t pending(const facts_s& facts);
// Reports are spread over several subscribers, and one gets those of this tag.
finding_t shared(const facts_s& facts);
// Packets of tags that nobody knows, since they could not be decoded.
finding_t notDecoded(const facts_s& facts);

// Whether the radio runs, and where it transmits: reach.cpp.
// The radio does not run, and no stop condition explains it.
finding_t stopped(const facts_s& facts);
// It does not run any more, and the mode has a stop condition.
finding_t ended(const facts_s& facts);
// It runs and waits for the start trigger of the mode.
finding_t waiting(const facts_s& facts);
// A reader of its own reads no tag at all, for a second or longer.
finding_t noReads(const facts_s& facts);
// The software radio's scene does not have the tag.
finding_t absent(const facts_s& facts);
// A disconnected antenna would reach the tag: known from the scene.
finding_t onLostAntenna(const facts_s& facts);
// An antenna of the mode is disconnected: without a scene.
finding_t hasLostAntenna(const facts_s& facts);
// An antenna that the mode does not use would reach it: from the scene.
finding_t onIdleAntenna(const facts_s& facts);
// An antenna is connected and not used: without a scene.
finding_t hasIdleAntenna(const facts_s& facts);
// A connected antenna that would reach it reads nothing, and why.
finding_t onSilentAntenna(const facts_s& facts);
// No antenna in use gives the tag enough power: from the scene, dB that are missing.
finding_t tooWeak(const facts_s& facts);
// An antenna transmits less than 27 dBm, the usual power: without a scene.
finding_t littlePower(const facts_s& facts);
// What was looked at; always.
finding_t nothing(const facts_s& facts);
// Whether an antenna of the mode gives the tag of the software radio enough power.
bool isInReach(const facts_s& facts);

// What keeps a tag quiet, or its reads within the radio: quiet.cpp.
// Not heard, and the mode's tag filter refuses this EPC.
finding_t wouldBeFiltered(const facts_s& facts);
// Not heard, and Select and Query of the mode surely leave it out, bit by bit.
finding_t notSelected(const facts_s& facts);
// Not heard, and the daemon has a key of it that is quiet.
finding_t held(const facts_s& facts);
// The radio read it while this program listened, and kept it back as reported already.
finding_t byReportFilter(const facts_s& facts);
// The same for a reply that was weaker than the threshold.
finding_t byLevelFilter(const facts_s& facts);
// The same for an id filter in the engine, which only a service engineer sets.
finding_t byIdFilter(const facts_s& facts);
// Its inventoried flag is at B, and the Query asks for A: from the scene.
finding_t flagAtB(const facts_s& facts);
// It was read before, within the time for which the mode reports a tag once.
finding_t reportedBefore(const facts_s& facts);
// The mode reports a tag once: without a scene.
finding_t maybeReported(const facts_s& facts);
// The session keeps a read tag quiet, for as long as the standard says: without a scene.
finding_t maybeQuiet(const facts_s& facts);
// A Select looks at memory that the EPC does not tell.
finding_t maybeNotSelected(const facts_s& facts);
// The mode has a level filter: without a scene.
finding_t maybeBelowLevel(const facts_s& facts);

}  // namespace why
