// SPDX-License-Identifier: MIT
// The table of the rules, and how it is gone through.
#include "rules.hpp"

#include <algorithm>
#include <optional>

#include "findings.hpp"
#include "texts.hpp"

namespace why {

namespace {

// How sure a rule is.
enum class rank_e {
    decided,   // what became of a read that the daemon has seen
    certain,   // enough by itself to keep the tag away
    part,      // true of this reader, and takes part if the tag is there
    possible,  // cannot be seen from here; told when nothing above is certain
    fallback,  // told when there is nothing else to tell
};

struct rule_s {
    std::string_view word;
    rank_e rank;
    finding_t (*find)(const facts_s& facts);
    const char* remedy;
};

// For rules with two rows.
constexpr const char* lostRemedy = "check its cable; twctl status antennas shows when it is back";
constexpr const char* idleRemedy = "add it to \"antennas\" of the mode";
constexpr const char* powerRemedy = "raise \"transmitPower\", or bring tag and antenna closer together";
constexpr const char* filterRemedy = "change or remove \"filter\" of the mode";
constexpr const char* keysRemedy = "wait, or shorten \"duration\" of \"reportFilter\"";
constexpr const char* everyReadRemedy =
    "twctl stop and twctl start have it reported once more, \"reportFilter\": {} in the mode every read";
constexpr const char* selectRemedy = "change \"selects\" or \"query\" of the mode";
constexpr const char* levelRemedy = "lower \"threshold\" of \"rssiFilter\"";
constexpr const char* sessionRemedy = "wait, or use session S0 or target AB in \"query\"";

// By rank; within a rank in the order in which they are told.
constexpr rule_s rules[] = {
    {"reported", rank_e::decided, sentAndHeard,
     "if your program does not show it, look at its connection, its queue and its own filters"},
    {"unheard", rank_e::decided, sentToNobody,
     "start the consumer before the radio, where this form goes: twctl watch tags for OFF, with --tcp for "
     "the "
     "others"},
    {"filtered", rank_e::decided, filtered, filterRemedy},
    {"heldBack", rank_e::decided, heldBack, keysRemedy},
    {"superseded", rank_e::decided, superseded, keysRemedy},
    {"notText", rank_e::decided, notText,
     "look for other bytes in \"userDefined\" and \"antennaPortNames\" of the mode"},
    {"refused", rank_e::decided, refused, "start the consumer again, or make it faster"},
    {"noSocket", rank_e::decided, noSocket, "change data_analytics while the radio is stopped"},
    {"pending", rank_e::decided, pending, "ask again when the next tag was read"},
    {"share", rank_e::decided, shared, "watch the shares of all subscribers, or set twctl subscribers 1"},
    {"notDecoded", rank_e::decided, notDecoded, "check with twctl version that library and firmware fit"},

    {"stopped", rank_e::certain, stopped, "twctl start"},
    {"ended", rank_e::certain, ended, "twctl start, or change \"radioStopConditions\" of the mode"},
    {"waiting", rank_e::certain, waiting, "twctl watch gpio shows whether the input changes"},
    {"absent", rank_e::certain, absent, "check the EPC, and \"tags\" of the scenario"},
    {"filter", rank_e::certain, wouldBeFiltered, filterRemedy},
    {"select", rank_e::certain, notSelected, selectRemedy},
    {"held", rank_e::certain, held, keysRemedy},
    {"lostAntenna", rank_e::certain, onLostAntenna, lostRemedy},
    {"idleAntenna", rank_e::certain, onIdleAntenna, idleRemedy},
    {"silentAntenna", rank_e::certain, onSilentAntenna, "twctl status shows the alarms of the radio"},
    {"tooWeak", rank_e::certain, tooWeak, powerRemedy},
    {"reportFilter", rank_e::certain, byReportFilter, everyReadRemedy},
    {"levelFilter", rank_e::certain, byLevelFilter, levelRemedy},
    {"idFilter", rank_e::certain, byIdFilter, "twctl configrxe custom id_filter 0 disable turns them off"},
    {"session", rank_e::certain, flagAtB, sessionRemedy},

    {"reportFilter", rank_e::part, reportedBefore, everyReadRemedy},
    {"noReads", rank_e::part, noReads, "check antennas, cables and power with a tag at 30 cm"},
    {"lostAntenna", rank_e::part, hasLostAntenna, lostRemedy},
    {"idleAntenna", rank_e::part, hasIdleAntenna, idleRemedy},

    {"select", rank_e::possible, maybeNotSelected, selectRemedy},
    {"reportFilter", rank_e::possible, maybeReported, everyReadRemedy},
    {"session", rank_e::possible, maybeQuiet, sessionRemedy},
    {"tooWeak", rank_e::possible, littlePower, powerRemedy},
    {"levelFilter", rank_e::possible, maybeBelowLevel, levelRemedy},

    {"nothing", rank_e::fallback, nothing,
     "try the tag alone at 30 cm with 27 dBm, without filter, selects and reportFilter"},
};
static_assert(std::ranges::is_sorted(rules, {}, &rule_s::rank));

}  // namespace

std::vector<reason_s> explain(const facts_s& facts) {
    std::vector<reason_s> reasons;
    // What became of earlier reads does not say why the tag is not heard now.
    bool certain = false, explained = false;
    for (const rule_s& rule : rules) {
        if ((rule.rank == rank_e::possible && certain) || (rule.rank == rank_e::fallback && explained)) {
            continue;
        }
        if (const finding_t text = rule.find(facts)) {
            reasons.push_back({rule.word, *text, rule.remedy});
            const bool isOfNow = rule.rank != rank_e::decided || !isUnheard(facts) || facts.undecoded > 0;
            certain |= isOfNow && rule.rank <= rank_e::certain;
            explained |= isOfNow;
        }
    }
    return reasons;
}

std::string summary(const facts_s& facts) {
    const bool traced = !facts.since.empty();
    const std::string time = traced              ? " since " + timeOfDay(facts.since)
                             : facts.seconds > 0 ? " in " + secondsText(facts.seconds)
                                                 : "";
    if (facts.heard == 0) {
        return "not heard" + time;
    }
    numbers_t antennas;
    std::set<std::string> tags;
    std::optional<int> best;
    for (const packet_s& packet : facts.packets) {
        antennas.insert(packet.antenna);
        tags.insert(packet.epc);
        best = packet.rssi ? std::max(best.value_or(*packet.rssi), *packet.rssi) : best;
    }
    const std::string pause = traced && isUnheard(facts) && facts.seconds > 0
                                  ? ", but not in the last " + secondsText(facts.seconds)
                                  : "";
    const bool once = facts.heard == 1;
    const bool isMore = facts.heard > facts.packets.size();
    const std::string who = tags.size() > 1 ? std::to_string(tags.size()) + " tags were heard " : "heard ";
    return who + (once ? "once" : std::to_string(facts.heard) + " times") + time + ", on " +
           antennasText(antennas) + (best ? (once ? " at " : ", at best ") + dBmText(*best) : "") + pause +
           (isMore ? "; below are the last " + std::to_string(facts.packets.size()) : "");
}

}  // namespace why
