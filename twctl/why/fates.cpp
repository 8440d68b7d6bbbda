// SPDX-License-Identifier: MIT
// What became of the reads of the tag that reached the daemon.
#include <string_view>

#include "fates.hpp"
#include "findings.hpp"
#include "rules.hpp"
#include "texts.hpp"

namespace why {

namespace {

using vocabulary::fate_e;

// Some of the reads: how many, and the last of them.
struct share_s {
    std::size_t count = 0;
    const packet_s* last = nullptr;
};

template <class Fits>
share_s shareOf(const facts_s& facts, Fits fits) {
    share_s share;
    for (const packet_s& packet : facts.packets) {
        if (fits(packet)) {
            ++share.count;
            share.last = &packet;
        }
    }
    return share;
}

std::string_view nameOf(fate_e fate) {
    return vocabulary::fates[static_cast<std::size_t>(fate)].name;
}

share_s withFate(const facts_s& facts, std::string_view name) {
    return shareOf(facts, [&](const packet_s& packet) { return packet.fate == name; });
}

share_s sent(const facts_s& facts, bool heard) {
    return shareOf(facts, [&](const packet_s& packet) {
        return packet.fate == nameOf(fate_e::sent) && (packet.listeners > 0) == heard;
    });
}

// The subject of a sentence: "the read was", "all 37 reads were", "1 read was".
std::string readsWere(const facts_s& facts, std::size_t count) {
    if (facts.packets.size() == 1) {
        return "the read was";
    }
    return (count == facts.packets.size() ? "all " : "") + std::to_string(count) +
           (count == 1 ? " read was" : " reads were");
}

finding_t endedAs(const facts_s& facts, fate_e fate, const std::string& predicate) {
    const share_s share = withFate(facts, nameOf(fate));
    return share.count == 0 ? finding_t() : readsWere(facts, share.count) + " " + predicate;
}

// "1 read was sent, as event 5021 in form OFF"
std::string sentText(const facts_s& facts, const share_s& share) {
    const packet_s& last = *share.last;
    return readsWere(facts, share.count) + " sent, " + (share.count > 1 ? "the last " : "") +
           (last.eventNum ? "as event " + std::to_string(*last.eventNum) + " " : "") + "in form " + last.form;
}

std::string keysText(const facts_s& facts) {
    return "the additional keys (" + listed(facts.mode.reportFilter.keys) + ") of the report filter";
}

}  // namespace

bool isReported(const facts_s& facts) {
    return sent(facts, true).count > 0;
}

finding_t sentAndHeard(const facts_s& facts) {
    const share_s share = sent(facts, true);
    if (share.count == 0) {
        return std::nullopt;
    }
    const std::uint64_t listeners = share.last->listeners;
    const bool isLocal = share.last->form == "OFF" && !facts.consumer.empty();
    return sentText(facts, share) + ", to " + std::to_string(listeners) +
           (listeners == 1 ? " subscriber" : " subscribers") + (isLocal ? " (" + facts.consumer + ")" : "");
}

finding_t sentToNobody(const facts_s& facts) {
    const share_s share = sent(facts, false);
    return share.count == 0
               ? finding_t()
               : sentText(facts, share) + ", and nobody was connected" +
                     (facts.areKept ? "; up to 2,048 messages wait until the consumer is back" : "");
}

finding_t filtered(const facts_s& facts) {
    const share_s share = withFate(facts, nameOf(fate_e::filtered));
    return share.count == 0
               ? finding_t()
               : endedAs(facts, fate_e::filtered, "refused by the mode's filter (" + share.last->rule + ")");
}

finding_t heldBack(const facts_s& facts) {
    const share_s share = withFate(facts, nameOf(fate_e::heldBack));
    return share.count == 0
               ? finding_t()
               : endedAs(facts, fate_e::heldBack,
                         "held back by " + keysText(facts) + ", until " + timeOfDay(share.last->until));
}

finding_t superseded(const facts_s& facts) {
    return endedAs(facts, fate_e::superseded,
                   "dropped when the next tag came: accesses were not done yet, and " + keysText(facts) +
                       " held the report back");
}

finding_t notText(const facts_s& facts) {
    return endedAs(facts, fate_e::notText, "dropped, since a text in the report is not UTF-8");
}

finding_t refused(const facts_s& facts) {
    return endedAs(facts, fate_e::refused,
                   "dropped: 2,048 messages wait already for a consumer that is away or too slow");
}

finding_t noSocket(const facts_s& facts) {
    return endedAs(facts, fate_e::noSocket, "dropped while the form of the reports was being changed");
}

finding_t pending(const facts_s& facts) {
    const share_s share = withFate(facts, vocabulary::pendingFate);
    if (share.count == 0) {
        return std::nullopt;
    }
    return "the last read is not decided yet: " +
           (share.last->until.empty()
                ? "its report waits for more data of the tag"
                : keysText(facts) + " hold it back until " + timeOfDay(share.last->until));
}

finding_t shared(const facts_s& facts) {
    const bool isSpread = facts.subscribers > 1 && facts.form != "OFF";
    return isSpread && isReported(facts)
               ? "the reports are spread over " + std::to_string(facts.subscribers) +
                     " subscribers, and one of them gets all reports of this tag"
               : finding_t();
}

finding_t notDecoded(const facts_s& facts) {
    const bool one = facts.undecoded == 1;
    return facts.undecoded == 0 ? finding_t()
                                : std::to_string(facts.undecoded) + (one ? " tag packet" : " tag packets") +
                                      " of the radio could not be decoded, so it is not known of which " +
                                      (one ? "tag" : "tags");
}

finding_t held(const facts_s& facts) {
    return !isUnheard(facts) || !facts.held
               ? finding_t()
               : "it was reported before, and " + keysText(facts) + " hold it back for another " +
                     secondsText(facts.held->seconds);
}

}  // namespace why
