// SPDX-License-Identifier: MIT
// What a run knows of itself, shared by the files that make it up: the walk
// through the olios (run), the inventory rounds (round), accesses and reports.
// Radio thread only.
#ifndef ENGINE_RUN_STATE_HPP
#define ENGINE_RUN_STATE_HPP

#include <array>
#include <cstdint>
#include <vector>

#include "engine.hpp"
#include "field.hpp"
#include "gen2.hpp"
#include "plan.hpp"
#include "slots.hpp"

namespace rxe {

// Why a run ended, as START_INFO3 tells it.
enum stop_cause_e : std::uint16_t {
    RUNNING = 0,
    CAUSE_HOST = 1,
    CAUSE_LOOPS = 2,
    CAUSE_DURATION = 4,
    CAUSE_TAG_COUNT = 8,
    CAUSE_GPI = 16,
    CAUSE_ERROR = 32,
    CAUSE_NO_OLIOS = 64,
    CAUSE_MISCONFIGURED = 1024,
};

// An olio at work: what it lights and what its rounds carry over to the next.
struct active_olio_s {
    field_s field;
    double sensitivity = -84;  // of the receiver with this link, dBm
    adaptive_q_s q;            // where the last round left it
    bool qKnown = false;
    bool wantsB = false;  // the flag that the next round asks for
    // What has to fit into a channel's time before it is begun, microseconds.
    double selectsTime = 0;  // the Selects in front of a round; as accessTime
    double slotTime = 0;     // the longest slot that acknowledges nobody
    double replyTime = 0;    // what the longest EPC takes beyond that
    double accessTime = 0;   // the accesses of one tag; 0 when no channel may be used for that long
};

// How long a channel has to last so that one tag can be read there.
inline double timeOfOneTag(const active_olio_s& olio) {
    return olio.slotTime + olio.replyTime + olio.accessTime;
}

struct run_s {
    engine_s* engine = nullptr;
    plan_s plan;
    std::vector<active_olio_s> olios;  // by position in plan.olios
    std::int64_t begin = 0;
    std::int64_t lastUnique = 0;  // when a tag was read for the first time
    std::int64_t lastRead = 0;
    bool carrierOn = false;
    std::int64_t carrierSince = 0;
    std::int64_t channelLimit = FOR_EVER;  // when the channel has been used for as long as it may be
    bool channelOver = false;  // what comes next does not fit into what is left of the channel's time
    bool hopped = false;       // since the frame began; its tags have to be asked anew
    // The accesses of a tag are under way: no CW_ON stands between them, and one is owed behind them.
    bool accessing = false;
    bool carrierUntold = false;
    std::int64_t olioBegin = 0;
    std::int64_t olioEnd = 0;
    planned_channel_s channel;  // on air
    std::size_t nextChannel = 0;
    std::uint32_t reads = 0;  // reported
    std::uint32_t rounds = 0;
    std::uint32_t loops = 0;      // passes through the olios
    std::uint32_t passReads = 0;  // in this pass, reported or not
    std::uint32_t passUniques = 0;
    // How often each access has succeeded, by id, against its stop count.
    std::array<std::uint32_t, RXE_MAX_ACCESSES + 1> accessDone{};
    stop_cause_e cause = RUNNING;

    std::vector<std::uint32_t> left;    // of a round: positions in field.lit that have not been read
    std::vector<std::uint8_t> scratch;  // a truncated EPC, words read
};

// What one tag gave in one slot.
struct sighting_s {
    lit_tag_s lit;
    float level = -200;  // dBm at the reader, with this moment's fading
    backscatter_s reply;
};

constexpr std::int64_t MILLISECOND = 1000;  // in microseconds, as all times here
constexpr std::int64_t SECOND = 1000000;

// --- run.cpp
// Whether a rule ends the run now; the first one that fires stays the cause.
bool mustStop(run_s* run);
// Whether something that takes so many microseconds fits into what is left of the channel's time.
bool fits(const run_s& run, double microseconds);
// Whether each of the channels may be used for that long once it has rested, the tags' waking included.
bool everFits(const run_s& run, double microseconds);
// The carrier goes off and comes again on another channel that may be used for `least`
// microseconds, and the tags wake up. While there is none it stays off; false when the run or
// the olio is over before one may.
bool hop(run_s* run, std::size_t position, double least);
// Lets the time pass until `end` with the carrier on, by hops when the channel is used up before.
void waitOnAir(run_s* run, std::size_t position, std::int64_t end);
// The accesses of a tag begin, with CW_ON held back, and are over.
void beginAccesses(run_s* run);
void endAccesses(run_s* run, std::size_t position);

// --- round.cpp
// One inventory round with the selects in front of it.
void doRound(run_s* run, std::size_t position);

// POSTPONED: the reader has heard a tag and leaves it for a channel with more time.
enum class outcome_e : std::uint8_t { EMPTY, WHOLE_EPC, COLLIDED, BROKEN_EPC, POSTPONED };

// Whether the olio sends this Select or Challenge, and how long that takes, microseconds.
bool sendsSelect(const planned_olio_s& planned, const planned_select_s& select);
double selectTime(const link_s& link, const SELECT_OP_s& select);

// A round and the frame that it is at. doRound goes through these steps, a frame after the
// other as Q adapts itself; gen2_rates_bench through one frame, for published ones end there.
struct round_s {
    run_s* run = nullptr;
    const planned_olio_s* planned = nullptr;
    active_olio_s* olio = nullptr;
    std::size_t position = 0;
    const SELECT_OP_s* truncating = nullptr;
    frame_s frame;
    unsigned q = 0;
    double command = 0;  // what opens the next slot, microseconds
};
round_s beginRound(run_s* run, std::size_t position);
// Finds the tags that the Query calls.
void gather(round_s* round);
// A frame for those that are left begins, by this command.
void openFrame(round_s* round, double command);
outcome_e doSlot(round_s* round);

// --- report.cpp
// Counts the read and reports it when no filter holds it back; says whether it was.
bool reportTag(run_s* run, std::size_t position, const sighting_s& sighting);
// A read of a tag that is only made up.
void reportFake(run_s* run, const tag_s& tag);

// --- accesses.cpp
// How long the accesses of the olio on one tag take at most, microseconds. Of a read to the end
// of a bank only a word counts, for nobody knows its length.
double accessTime(const plan_s& plan, const planned_olio_s& planned);
// The accesses of the olio in id order on a tag that has been acknowledged.
// The first that fails ends them. Whether the tag is still in the dialogue, and
// so turns its flag at the next command: not without power, nor after a wrong
// password.
bool doAccesses(run_s* run, std::size_t position, lit_tag_s lit);

// Lets a duration of the air, in microseconds with a fraction, pass.
void pass(run_s* run, double microseconds);

}  // namespace rxe

#endif
