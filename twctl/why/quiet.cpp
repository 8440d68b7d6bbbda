// SPDX-License-Identifier: MIT
// What keeps a tag from answering, or its reads within the radio.
#include <algorithm>
#include <array>

#include "air.hpp"
#include "findings.hpp"
#include "texts.hpp"

namespace why {

namespace {

// The radio runs, nothing was heard, and no scene tells more.
bool isGuess(const facts_s& facts) {
    return isUnheard(facts) && facts.isActive && !facts.scene;
}

// "0.2 s ago on antenna 1"
std::string whenAndWhere(const sight_s& sight) {
    constexpr double now = 0.05;
    return (sight.ago < now ? "just now" : secondsText(sight.ago) + " ago") + " on " +
           antennasText({sight.antenna});
}

// "the radio read it 0.2 s ago on antenna 1", when it suppressed the read for this cause while this
// program listened.
finding_t suppressed(const facts_s& facts, std::string_view by) {
    if (!isUnheard(facts) || !facts.scene || !facts.scene->suppressed) {
        return std::nullopt;
    }
    const sight_s& sight = *facts.scene->suppressed;
    return sight.by != by || sight.ago > facts.seconds ? finding_t()
                                                       : "the radio read it " + whenAndWhere(sight);
}

finding_t with(const finding_t& beginning, const std::string& end) {
    return beginning ? *beginning + end : finding_t();
}

// "a tag once from one start to the next for each antenna"
std::string howOften(const report_filter_s& filter) {
    return "a tag once " +
           (filter.seconds == withoutEnd ? "from one start to the next"
                                         : "in " + std::to_string(filter.seconds) + " s") +
           (filter.perAntenna ? " for each antenna" : "");
}

// The first antenna on which a tag that was read stays quiet: its flag is at B, the Query asks for
// A, and no Select sets the flag back. Null without one.
const antenna_s* quietAntenna(const facts_s& facts) {
    const auto antenna = std::ranges::find_if(facts.mode.antennas, [&](const antenna_s& each) {
        return each.query.target == "A" && !isSetAnew(each, facts);
    });
    return antenna == facts.mode.antennas.end() ? nullptr : &*antenna;
}

// The tag was not heard, although the software radio reaches it and the mode wants it.
bool mayBeRead(const facts_s& facts) {
    return isUnheard(facts) && facts.isActive && isInReach(facts) &&
           selectionOf(facts).asked != asked_e::no && !filterRefuses(facts);
}

// How long a tag that was read stays silent (EPC Gen2 v1.2.0, table 6.14). S0 does not last from one
// antenna to the next and hides no tag for long.
struct persistence_s {
    std::string_view session;
    const char* quiet;
};
constexpr std::array persistences{
    persistence_s{"S1", "for up to 5 s after a read, also on the other antennas"},
    persistence_s{"S2", "after a read, as long as it has power and for 2 s or more after that"},
    persistence_s{"S3", "after a read, as long as it has power and for 2 s or more after that"},
};

}  // namespace

finding_t wouldBeFiltered(const facts_s& facts) {
    return isUnheard(facts) && filterRefuses(facts)
               ? "the mode's filter refuses this EPC (" + filterText(*facts.mode.filter) + ")"
               : finding_t();
}

finding_t notSelected(const facts_s& facts) {
    const selection_s selection = selectionOf(facts);
    return isUnheard(facts) && selection.asked == asked_e::no ? finding_t(selection.text) : std::nullopt;
}

finding_t byReportFilter(const facts_s& facts) {
    return with(suppressed(facts, "report filter"),
                ", and its tag database has the tag as reported: the mode reports " +
                    howOften(facts.mode.reportFilter));
}

finding_t byLevelFilter(const facts_s& facts) {
    const std::string level = facts.mode.weakest ? " of " + dBmText(*facts.mode.weakest) : "";
    return with(suppressed(facts, "level filter"),
                ", weaker than the threshold" + level + " of the level filter");
}

finding_t byIdFilter(const facts_s& facts) {
    return with(suppressed(facts, "id filter"), ", and its id filters do not let this EPC pass");
}

// A read that was suppressed while this program listened says more than the flag that it has set.
finding_t flagAtB(const facts_s& facts) {
    const antenna_s* antenna = mayBeRead(facts) ? quietAntenna(facts) : nullptr;
    if (antenna == nullptr) {
        return std::nullopt;
    }
    const std::string& session = antenna->query.session;
    const std::optional<sight_s>& read = facts.scene->singulated;
    const auto flag = facts.scene->flags.find(session);
    if (flag == facts.scene->flags.end() || !flag->second || (read && read->ago <= facts.seconds)) {
        return std::nullopt;
    }
    const auto quiet = facts.scene->quiet.find(session);
    return (read ? "it was read " + whenAndWhere(*read) + ", and " : "") + "its flag of session " + session +
           " is at B " +
           (quiet == facts.scene->quiet.end() ? "as long as it has power"
                                              : "for another " + secondsText(quiet->second)) +
           ", while the query asks for tags at A";
}

finding_t reportedBefore(const facts_s& facts) {
    const report_filter_s& filter = facts.mode.reportFilter;
    if (!mayBeRead(facts) || byReportFilter(facts) || !filter.keys.empty() || !facts.scene->singulated) {
        return std::nullopt;
    }
    const sight_s& read = *facts.scene->singulated;
    return read.ago < static_cast<double>(filter.seconds)
               ? "it was read " + whenAndWhere(read) + ", and the mode reports " + howOften(filter)
               : finding_t();
}

finding_t maybeReported(const facts_s& facts) {
    const report_filter_s& filter = facts.mode.reportFilter;
    return isGuess(facts) && filter.seconds > 0 && filter.keys.empty()
               ? "the mode reports " + howOften(filter) + ", and the radio keeps all other reads to itself"
               : finding_t();
}

finding_t maybeQuiet(const facts_s& facts) {
    const antenna_s* antenna = isGuess(facts) ? quietAntenna(facts) : nullptr;
    if (antenna == nullptr) {
        return std::nullopt;
    }
    const std::string& session = antenna->query.session;
    const auto* row = std::ranges::find(persistences, session, &persistence_s::session);
    return row == persistences.end()
               ? finding_t()
               : "session " + session + " with target A keeps a tag quiet " + row->quiet;
}

finding_t maybeNotSelected(const facts_s& facts) {
    const selection_s selection = selectionOf(facts);
    return isGuess(facts) && selection.asked == asked_e::unknown ? finding_t(selection.text) : std::nullopt;
}

finding_t maybeBelowLevel(const facts_s& facts) {
    return isGuess(facts) && facts.mode.weakest
               ? "the radio ignores replies that are weaker than " + dBmText(*facts.mode.weakest)
               : finding_t();
}

}  // namespace why
