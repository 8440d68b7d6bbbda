// SPDX-License-Identifier: MIT
#include "round.hpp"

#include <algorithm>
#include <utility>

#include "accesses.hpp"
#include "carrier.hpp"
#include "clock.hpp"
#include "delivery.hpp"
#include "report.hpp"
#include "rules.hpp"
#include "timing.hpp"

namespace rxe {
namespace {

constexpr float captureRatio = 3.1623F;      // a reply 5 dB above the sum of the others is understood
constexpr std::uint32_t mostCapturedOf = 8;  // with more at once the sum always wins
constexpr std::uint32_t patience = 256;      // slots in a row without a read, then the reader gives up
// Of an inventory set: rounds ask for A and B in turn.
constexpr std::uint8_t targetAB = 2;
constexpr float noiseMargin = 3;  // dB below the sensitivity
// The least time of a round. One that calls no tag takes 0.25 to 1.4 ms of air, depending on the
// link. A radio that asked again at once would send its host up to 8,000 INV_BEGIN and INV_END
// packets a second; 200 rounds a second, whatever the link, find a new tag soon enough.
constexpr std::int64_t emptyRound = 5000;  // microseconds

// Sends INV_BEGIN, INV_END or TAG_CRC_ERROR, which have the same payload: olio and round.
void sendRoundPacket(run_s* run, std::uint16_t rawType, std::uint16_t olioId) {
    byte_writer_s writer = payloadWriter(run->host);
    put(&writer, olioId, 2);
    put(&writer, run->rounds, 4);
    deliver(run->host, run->radio->now, rawType, writer.size);
}

// Sends the olio's Selects; false when the run or the olio is over before all are sent.
bool sendSelects(round_s* round) {
    run_s* const run = round->run;
    bool any = false;
    for (const planned_select_s& planned : run->plan.selects) {
        if (!sendsSelect(*round->planned, planned)) {
            continue;
        }
        any = true;
        const double time = selectTime(round->planned->link, planned.select);
        if (!fits(*run, time) && !hop(run, round->position, time)) {
            return false;
        }
        pass(run->radio, run->host, time);
        if (planned.select.enable != 1) {  // a Challenge, which no tag of this field knows
            continue;
        }
        world_s& world = run->radio->world;
        for (const lit_tag_s& lit : round->olio->field.lit) {
            obeySelect(planned.select, run->radio->now, &world.tags[lit.index]);
        }
        // The last Select decides about truncation, and only for target SL (EPC Gen2 v2.0.1,
        // 6.3.2.12.1.1).
        round->truncating =
            planned.select.truncate != 0 && planned.select.target == targetSL ? &planned.select : nullptr;
    }
    if (any) {
        waitOnAir(run, round->position, run->radio->now + run->plan.delayAfterSelects);
    }
    return !any || run->carrierOn;
}

// Brings `count` tags, drawn from those that still wait, to the front of the
// part of `left` that has had its slot: left[waiting] and after.
void drawTags(round_s* round, std::uint32_t count) {
    std::vector<std::uint32_t>& left = round->run->left;
    std::uint32_t end = round->frame.waiting + count;
    for (; end > round->frame.waiting; --end) {
        std::swap(left[end - 1], left[randomBelow(&round->run->radio->random, end)]);
    }
}

// The tag at this position of `left` is not called again in this round. The order of the others
// does not matter, since each slot draws its tags.
void forget(round_s* round, std::uint32_t at) {
    std::vector<std::uint32_t>& left = round->run->left;
    left[at] = left.back();
    left.pop_back();
}

// Whether a frame of `bits` bits gets lost, by chance. Below a bit error rate of 1e-9 nothing is
// drawn.
bool lost(run_s* run, double ber, unsigned bits) {
    return ber > 1e-9 && unitInterval(nextRandom(&run->radio->random)) > frameSuccess(ber, bits);
}

// The signal of the tag left[at] in its slot; false when the tag stays silent.
bool listen(round_s* round, std::uint32_t at, sighting_s* sighting) {
    run_s* const run = round->run;
    radio_s& radio = *run->radio;
    lit_tag_s& lit = sighting->lit;
    lit = round->olio->field.lit[run->left[at]];
    // With many tags none is in the cache: both lines are fetched at once.
    __builtin_prefetch(&radio.world.tags[lit.index].banks);
    const air_s& air = radio.world.air;
    if (!lit.atEdge && air.fadeDb > 0) {
        lit.fade = static_cast<float>(air.fadeDb * normal(&radio.random));
    }
    if (!stillLit(radio.world, round->olio->field.carrier, radio.now, &lit)) {
        return false;
    }
    sighting->level = lit.path.atReader + 2 * lit.fade;
    return true;
}

// Whether a level, dBm, is so weak that the decoder takes it for noise.
bool isNoise(const round_s& round, float level) {
    return level < static_cast<float>(round.olio->sensitivity) - noiseMargin;
}

// Whether the reader notices the reply: it is above the noise, and the level that would be
// reported reaches the host's RSSI threshold. Notes that the threshold has held a tag back.
bool notices(const round_s& round, const sighting_s& sighting) {
    if (isNoise(round, sighting.level)) {
        return false;
    }
    if (sighting.level >= static_cast<float>(round.run->plan.rssiThreshold)) {
        return true;
    }
    radio_s& radio = *round.run->radio;
    noteSuppressed(suppressor_e::LEVEL_FILTER, round.planned->olio.transmitAntenna, sighting.lit.index,
                   radio.now, &radio.world);
    return false;
}

// Index in `left` of the one of `count` colliding replies that is understood, or left.size().
std::uint32_t captured(const round_s& round, std::uint32_t count) {
    const std::vector<std::uint32_t>& left = round.run->left;
    const std::vector<lit_tag_s>& lit = round.olio->field.lit;
    // Levels of the last look, without this moment's fading: it decides rarely, and a draw
    // for each of the tags would cost more than the slot.
    std::uint32_t strongest = round.frame.waiting;
    float sum = 0;
    for (std::uint32_t at = round.frame.waiting; at < round.frame.waiting + count; ++at) {
        sum += lit[left[at]].milliwatts;
        strongest = lit[left[at]].milliwatts > lit[left[strongest]].milliwatts ? at : strongest;
    }
    const float best = lit[left[strongest]].milliwatts;
    return best > captureRatio * (sum - best) ? strongest : static_cast<std::uint32_t>(left.size());
}

// Waits as long as the scenario's limit of tags a second asks for.
void keepPaceOfRadio(run_s* run, std::size_t position) {
    const double most = run->radio->scenario.tagsPerSecond;
    if (most > 0) {
        const auto due = run->lastRead + static_cast<std::int64_t>(static_cast<double>(second) / most);
        waitOnAir(run, position, due);
    }
    run->lastRead = run->radio->now;
}

// The tag's reply. A tag that the Select matched cuts it short when the Query asks for SL or ~SL
// (EPC Gen2 v2.0.1, 6.3.2.12.1.1).
void takeReply(const round_s& round, sighting_s* sighting) {
    const tag_s& tag = round.run->radio->world.tags[sighting->lit.index];
    sighting->reply = backscatterOf(tag);
    if (round.truncating != nullptr && round.planned->inventory.sel >= 2 && matches(*round.truncating, tag)) {
        truncate(*round.truncating, &round.run->scratch, &sighting->reply);
    }
}

// A slot in which the reply of one tag, left[at], is understood.
outcome_e acknowledge(round_s* round, std::uint32_t at) {
    run_s* const run = round->run;
    radio_s& radio = *run->radio;
    const link_s& link = round->planned->link;
    sighting_s sighting;
    if (!listen(round, at, &sighting) || !notices(*round, sighting)) {
        pass(run->radio, run->host, emptySlot(link));
        return outcome_e::EMPTY;
    }
    const float margin = sighting.level - static_cast<float>(round->olio->sensitivity);
    const double ber = !radio.world.air.errors || margin > safeMargin ? 0 : bitErrorRate(margin);
    if (lost(run, ber, rn16Bits)) {
        pass(run->radio, run->host, collidedSlot(link));
        return outcome_e::COLLIDED;
    }
    takeReply(*round, &sighting);
    // The reader has the RN16 now. It leaves the tag for another channel when the rest of the
    // slot and the accesses do not fit.
    const unsigned bits = sighting.reply.replyBits;
    if (!fits(*run, singleSlot(link, bits) + round->olio->accessTime)) {
        pass(run->radio, run->host, collidedSlot(link));
        return outcome_e::POSTPONED;
    }
    pass(run->radio, run->host, singleSlot(link, bits));
    if (lost(run, ber, bits) ||
        !stillLit(radio.world, round->olio->field.carrier, radio.now, &sighting.lit)) {
        pass(run->radio, run->host, commandTime(link, nakCommand));
        sendRoundPacket(run, RXE_PACKET_TAG_CRC_ERROR, round->planned->id);
        return outcome_e::BROKEN_EPC;
    }
    forget(round, at);  // also a tag that falls silent in an access is not called again in this round
    takeReply(*round, &sighting);  // an event during `pass` may have moved what it points to
    // ACCESS_INFO does not name its tag. Without the tag's report in front of it, it would seem to
    // belong to the tag reported before, so a read that a filter holds back gets no accesses.
    const bool reported = reportTag(run, round->position, sighting);
    if (!reported || doAccesses(run, round->position, sighting.lit)) {
        // The next command to the others tells the tag that its turn is over.
        setInventoried(round->planned->inventory.session, !round->olio->wantsB, radio.now,
                       &radio.world.tags[sighting.lit.index]);
    }
    keepPaceOfRadio(run, round->position);
    return outcome_e::WHOLE_EPC;
}

// The round ends when every tag that was called has been read. A real reader needs a few more
// empty slots to notice; published rates leave those out. A round without any reply ends
// when Q has come down to 0.
bool goesOn(const round_s& round, outcome_e last, std::uint32_t slotsWithoutRead) {
    if (last == outcome_e::WHOLE_EPC && round.run->left.empty()) {
        return false;
    }
    return !(last == outcome_e::EMPTY && round.q == 0) && slotsWithoutRead < patience;
}

// How a frame, or the round, ends. CUT: the run or the olio is over. CHANNEL: the round needs
// another channel. HOPPED: an access has hopped to another channel, so the tags that are left have
// to be called again.
enum class ending_e : std::uint8_t { WHOLE, CUT, CHANNEL, HOPPED };

// Slot after slot, until the round is over or needs another channel. The next frame begins when
// all slots are over or Q has changed.
ending_e doSlots(round_s* round) {
    run_s* const run = round->run;
    adaptive_q_s* const adaptive = &round->olio->q;
    for (std::uint32_t withoutRead = 0;;) {
        // A slot is begun only when its longest form without a read fits.
        run->channelOver = !fits(*run, round->olio->slotTime);
        if (run->channelOver) {
            return ending_e::CHANNEL;
        }
        const outcome_e outcome = doSlot(round);
        withoutRead = outcome == outcome_e::WHOLE_EPC ? 0 : withoutRead + 1;
        if (outcome == outcome_e::EMPTY) {
            noteEmpty(adaptive);
        } else if (outcome == outcome_e::COLLIDED) {
            noteCollision(adaptive);
        }
        if (mustStop(run) || run->radio->now > run->olioEnd || !run->carrierOn) {
            return ending_e::CUT;
        }
        run->channelOver = outcome == outcome_e::POSTPONED;
        if (run->channelOver) {
            return ending_e::CHANNEL;
        }
        // A hop clears the flags of session 0 alone: in the others a round whose last tag was read
        // ends as usual.
        if (std::exchange(run->hopped, false) &&
            (round->planned->inventory.session == 0 || !run->left.empty())) {
            round->truncating = nullptr;
            return ending_e::HOPPED;
        }
        if (!goesOn(*round, outcome, withoutRead)) {
            return ending_e::WHOLE;
        }
        if (adaptive->q() != round->q || round->frame.next == round->frame.slots) {
            openFrame(round, commandTime(round->planned->link, queryAdjustCommand));
        }
    }
}

}  // namespace

round_s beginRound(run_s* run, std::size_t position) {
    round_s round;
    round.run = run;
    round.planned = &run->plan.olios[position];
    round.olio = &run->olios[position];
    round.position = position;
    return round;
}

// Tags that are too weak for the decoder even with fading are left out.
void gather(round_s* round) {
    run_s* const run = round->run;
    const radio_s& radio = *run->radio;
    const INVENTORY_OP_s& set = round->planned->inventory;
    const float lift = 2 * fadeReach(radio.world.air);
    const std::vector<lit_tag_s>& lit = round->olio->field.lit;
    run->left.clear();
    for (std::uint32_t i = 0; i < lit.size(); ++i) {
        if (!isNoise(*round, lit[i].path.atReader + lift) &&
            takesPart(radio.world.tags[lit[i].index], set.sel, set.session, round->olio->wantsB, radio.now)) {
            run->left.push_back(i);
        }
    }
}

void openFrame(round_s* round, double command) {
    round->command = command;
    round->q = round->olio->q.q();
    round->frame = {.slots = 1U << round->q, .waiting = static_cast<std::uint32_t>(round->run->left.size())};
}

outcome_e doSlot(round_s* round) {
    run_s* const run = round->run;
    pass(run->radio, run->host, round->command);
    round->command = commandTime(round->planned->link, queryRep(round->planned->inventory.session));
    const std::uint32_t count = drawSlot(&round->frame, &run->radio->random);
    if (count == 0) {
        pass(run->radio, run->host, emptySlot(round->planned->link));
        return outcome_e::EMPTY;
    }
    // When all waiting tags answer at once, and too many to be understood, none has to be picked.
    if (count <= mostCapturedOf || round->frame.waiting != 0) {
        drawTags(round, count);
    }
    if (count == 1) {
        return acknowledge(round, round->frame.waiting);
    }
    const std::uint32_t winner =
        count <= mostCapturedOf ? captured(*round, count) : static_cast<std::uint32_t>(run->left.size());
    if (winner < run->left.size()) {
        const outcome_e outcome = acknowledge(round, winner);
        if (outcome != outcome_e::EMPTY) {
            return outcome;
        }
        return outcome_e::COLLIDED;
    }
    pass(run->radio, run->host, collidedSlot(round->planned->link));
    return outcome_e::COLLIDED;
}

void doRound(run_s* run, std::size_t position) {
    round_s round = beginRound(run, position);
    radio_s& radio = *run->radio;
    const INVENTORY_OP_s& set = round.planned->inventory;
    ++run->rounds;
    sendRoundPacket(run, RXE_PACKET_INV_BEGIN, round.planned->id);
    lookAround(run->carrierSince, radio.now, &radio.world, &round.olio->field, &radio.random);
    const bool selected = sendSelects(&round);
    gather(&round);
    if (!round.olio->qKnown) {
        round.olio->q.value = set.initialQ;
        round.olio->qKnown = true;
    }
    const std::int64_t begin = radio.now;
    const bool anyone = !run->left.empty();
    ending_e ending = ending_e::CUT;
    // On a new channel the reader asks again for those that are left; tags of
    // session 0 have forgotten that they were read, and so the round is over.
    const auto goesOnAnew = [&] {
        return set.session != 0 && (ending == ending_e::CHANNEL || ending == ending_e::HOPPED);
    };
    for (bool first = true; selected && (first || goesOnAnew()); first = false) {
        if (!first && ending == ending_e::CHANNEL && !hop(run, position, timeOfOneTag(*round.olio))) {
            ending = ending_e::CUT;
            break;
        }
        openFrame(&round, queryTime(round.planned->link));
        run->hopped = false;
        ending = doSlots(&round);
    }
    if (ending == ending_e::WHOLE) {
        round.olio->q.value = set.initialQ;  // Q has come down as the tags became fewer
        round.olio->wantsB = set.target == targetAB ? !round.olio->wantsB : round.olio->wantsB;
    }
    sendRoundPacket(run, RXE_PACKET_INV_END, round.planned->id);
    // Without a tag the radio waits before it asks again; see emptyRound.
    const std::int64_t end = std::min(begin + emptyRound, run->channelLimit);
    if (!anyone && radio.now < end && !mustStop(run)) {
        advance(run->radio, run->host, end - radio.now);
    }
}

}  // namespace rxe
