// SPDX-License-Identifier: MIT
// The state of a run, shared by the files that make it up: the walk through the olios
// (run), start and stop (rules), channels (carrier), inventory rounds (round), accesses
// and reports. Radio thread only; times are microseconds of the engine's clock.
//
// An olio's `position` is its index in plan.olios and in run_s::olios. Its id is another
// number, the one by which the host knows it.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "delivery.hpp"
#include "field.hpp"
#include "host.hpp"
#include "plan.hpp"
#include "radio.hpp"
#include "slots.hpp"

namespace rxe {

// An olio at work: the tags that it reaches and what its rounds carry over to the next.
// It lasts from one gathering of the plan to the next.
struct active_olio_s {
    field_s field;
    // The weakest backscatter that the receiver decodes with this link, dBm.
    double sensitivity = -84;
    // The adaptive Q where the last round left it. Before the first round `qKnown` is false, and
    // the inventory set's initial Q is taken.
    adaptive_q_s q;
    bool qKnown = false;
    // The next round asks for tags whose flag is B.
    bool wantsB = false;

    // What has to fit into a channel's time before it is begun, microseconds; 0 when no channel
    // may be used for that long, so that it is done with hops in between.
    // The Selects in front of a round, with the delay after them.
    double selectsTime = 0;
    // The longest slot in which no tag is acknowledged. Always fits.
    double slotTime = 0;
    // What the longest EPC takes beyond that.
    double replyTime = 0;
    // The accesses of one tag.
    double accessTime = 0;
};

// How long a channel has to last so that one tag can be read there, microseconds.
inline double timeOfOneTag(const active_olio_s& olio) {
    return olio.slotTime + olio.replyTime + olio.accessTime;
}

// One run. `radio` and `host` are constant; the rest changes during it.
struct run_s {
    radio_s* radio = nullptr;
    host_s* host = nullptr;
    // Gathered before the run and, when a parameter has been written, between two passes.
    plan_s plan = {};
    // By position in plan.olios.
    std::vector<active_olio_s> olios = {};
    // When the run began, with a start trigger when that fired.
    std::int64_t begin = 0;
    // When a tag that was new to the database was last read, for the rule "no more unique tags".
    std::int64_t lastUnique = 0;
    // When the last read ended, for a scenario that limits the rate.
    std::int64_t lastRead = 0;

    // --- The carrier and its channel; carrier.cpp writes these.
    bool carrierOn = false;
    // From when on the carrier's time on this channel is not yet counted against it.
    std::int64_t carrierSince = 0;
    // When the carrier has to leave the channel.
    std::int64_t channelLimit = forEver;
    // The next piece of work does not fit into what is left of the channel's time; also
    // written by round.cpp.
    bool channelOver = false;
    // A hop has come since the frame began, so its tags have to be asked anew. round.cpp
    // clears it.
    bool hopped = false;
    // The accesses of a tag are under way. A CW_ON is held back until they end; then
    // `carrierUntold` is set.
    bool accessing = false;
    bool carrierUntold = false;
    // The channel that is on the air, or was last.
    planned_channel_s channel = {};
    // Counts the turns of channels in this plan; modulo their number, the index of the next.
    std::size_t nextChannel = 0;

    // The turn of the olio that is at work. It may go on until `olioEnd`, forEver for no limit.
    std::int64_t olioBegin = 0;
    std::int64_t olioEnd = 0;

    // --- Counts, since the run began.
    // Reads that were reported.
    std::uint32_t reads = 0;
    // Inventory rounds; the number in INV_BEGIN and INV_END.
    std::uint32_t rounds = 0;
    // Passes through the olios.
    std::uint32_t loops = 0;
    // In this pass: reads, reported or not, and tags that were new to the database.
    std::uint32_t passReads = 0;
    std::uint32_t passUniques = 0;
    // How often each access has succeeded, by id; at its stop count it is over.
    std::array<std::uint32_t, RXE_MAX_ACCESSES + 1> accessDone{};
    // Why the run ends; RUNNING while it does not.
    stop_cause_e cause = RUNNING;

    // --- Room that is kept from round to round, to save allocations.
    // Positions in field.lit of the tags that the round has called and not yet read.
    std::vector<std::uint32_t> left = {};
    // A truncated EPC, or the words that an access has read.
    std::vector<std::uint8_t> scratch = {};
};

// Microseconds, the unit of all times here.
constexpr std::int64_t millisecond = 1000;
constexpr std::int64_t second = 1000000;

}  // namespace rxe
