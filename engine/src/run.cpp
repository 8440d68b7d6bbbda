// SPDX-License-Identifier: MIT
#include "run.hpp"

#include <algorithm>
#include <utility>

#include "accesses.hpp"
#include "carrier.hpp"
#include "clock.hpp"
#include "delivery.hpp"
#include "olios.hpp"
#include "population.hpp"
#include "report.hpp"
#include "round.hpp"
#include "rules.hpp"
#include "run_state.hpp"
#include "status.hpp"

namespace rxe {
namespace {

constexpr unsigned longestReply = 32 + 32 + maxEpcBits;  // PC, CRC, XPC words and EPC

// ANTENNA_INFO, which begins the turn of an olio; from here on its power counts as transmitted.
void sendAntennaInfo(run_s* run, std::uint16_t olioId, const OLIO_s& olio) {
    run->radio->onAir = olio.transmitPower;
    byte_writer_s writer = payloadWriter(run->host);
    put(&writer, olioId, 2);
    put(&writer, olio.transmitAntenna, 2);
    put(&writer, olio.receiveAntenna, 2);
    put(&writer, static_cast<std::uint16_t>(olio.transmitPower), 2);
    deliver(run->host, run->radio->now, RXE_PACKET_ANTENNA_INFO, writer.size);
}

// The turn of one olio: rounds until its own rule or a stop rule ends it, or no channel is free.
void doOlio(run_s* run, std::size_t position) {
    radio_s& radio = *run->radio;
    const planned_olio_s& planned = run->plan.olios[position];
    active_olio_s& olio = run->olios[position];
    const std::int64_t limit = dwellLimit(planned.olio);
    run->olioBegin = radio.now;
    run->olioEnd = limit > forEver - radio.now ? forEver : radio.now + limit;
    olio.field.since = radio.now;
    sendAntennaInfo(run, planned.id, planned.olio);
    std::uint32_t rounds = 0;
    do {
        // A new channel for the olio, for each round if the host asks for it, and when the time is over.
        const bool hops = rounds == 0 || run->plan.hopPerRound || run->channelOver ||
                          !fits(*run, olio.selectsTime + olio.slotTime);
        if (hops && !hop(run, position, olio.selectsTime + timeOfOneTag(olio))) {
            break;
        }
        doRound(run, position);
        ++rounds;
    } while (!mustStop(run) && !olioIsDone(*run, planned.olio, rounds));
    carrierOff(run, position);
    olio.field.lit.clear();
}

// The transmit delay between two passes: with type 1 after a pass without a read, with type 2
// after one without a new tag.
void restBetweenPasses(run_s* run) {
    const bool rests = (run->plan.txDelayType == 1 && run->passReads == 0) ||
                       (run->plan.txDelayType == 2 && run->passUniques == 0);
    if (rests) {
        run->radio->onAir = notOnAir;
        advance(run->radio, run->host, run->plan.txDelayMs * millisecond);
    }
}

// How long the parts of a round take. Selects and accesses that fit into no channel's time count
// as 0: they are done all the same, with hops in between.
void planTimes(const run_s& run, const planned_olio_s& planned, active_olio_s* olio) {
    const link_s& link = planned.link;
    olio->slotTime = queryTime(link) + collidedSlot(link) + commandTime(link, nakCommand);
    olio->replyTime = singleSlot(link, longestReply);
    const double slot = olio->slotTime + olio->replyTime;
    double selects = run.plan.delayAfterSelects;
    for (const planned_select_s& select : run.plan.selects) {
        selects += sendsSelect(planned, select) ? selectTime(link, select.select) : 0;
    }
    olio->selectsTime = everFits(run, selects + slot) ? selects : 0;
    const double accesses = accessTime(run.plan, planned);
    olio->accessTime = everFits(run, olio->selectsTime + slot + accesses) ? accesses : 0;
}

// Puts the channels into random order. All have had their turn before one comes again (47 CFR
// 15.247).
void shuffleChannels(run_s* run) {
    std::vector<planned_channel_s>& channels = run->plan.channels;
    for (auto left = static_cast<std::uint32_t>(channels.size()); left > 1; --left) {
        std::swap(channels[left - 1], channels[randomBelow(&run->radio->random, left)]);
    }
}

// Gathers the parameters anew. The olios forget their Q and flags, so that a changed olio begins
// like a new one.
void takePlan(run_s* run) {
    const world_s& world = run->radio->world;
    run->plan = gatherPlan(world, &run->host->params);
    run->nextChannel = 0;
    shuffleChannels(run);
    run->olios.clear();
    for (const planned_olio_s& planned : run->plan.olios) {
        run->olios.push_back(activate(world, run->plan, planned));
        planTimes(*run, planned, &run->olios.back());
    }
}

// Passes through the olios until a rule ends the run. A parameter that was written takes
// effect between two passes.
void doPasses(run_s* run) {
    run->begin = run->lastUnique = run->radio->now;
    run->radio->fault = false;
    while (!mustStop(run)) {
        if (run->plan.generation != run->host->params.generation.load(std::memory_order_relaxed)) {
            takePlan(run);
        }
        // After an error the loop below does nothing, and the run ends with this cause.
        if (run->plan.olios.empty()) {
            run->cause = CAUSE_NO_OLIOS;
        } else if (run->plan.inventoryMissing || run->plan.channels.empty()) {
            run->cause = CAUSE_MISCONFIGURED;
            sendApiError(run->host, run->radio->now, STATUS_MISCONFIGURED);
        }
        run->passReads = run->passUniques = 0;
        for (std::size_t i = 0; i < run->plan.olios.size() && !mustStop(run); ++i) {
            doOlio(run, i);
        }
        ++run->loops;
        if (!mustStop(run) && run->plan.stop.olioLoops != 0 && run->loops >= run->plan.stop.olioLoops) {
            run->cause = CAUSE_LOOPS;
        }
        if (run->cause == RUNNING) {
            restBetweenPasses(run);
        }
    }
}

// How many writes the library has answered from its shadow since RXE_connect
// and how many it has passed on: a record of the log that is not a packet.
void logShadow(host_s* host, std::int64_t now) {
    byte_writer_s writer = payloadWriter(host);
    put(&writer, host->shadowAnswered.load(std::memory_order_relaxed), 4);
    put(&writer, host->shadowWritten.load(std::memory_order_relaxed), 4);
    RXE_packet_s* const record = nextPacket(host);
    record->type = typeShadowCounts;
    record->length = static_cast<std::uint16_t>(writer.size);
    logPacket(now, *record, &host->log);
}

// `last`: no restart follows, so that the start is over for the host before
// the packet that tells it so.
void sendEnd(run_s* run, bool last) {
    radio_s& radio = *run->radio;
    host_s* const host = run->host;
    radio.onAir = notOnAir;
    const START_INFO_s info{.duration = static_cast<std::uint64_t>(radio.now - run->begin),
                            .tagReads = run->reads,
                            .rounds = static_cast<std::uint16_t>(std::min(run->rounds, 0xFFFFU)),
                            .stopCause = run->cause};
    deliver(host, radio.now, RXE_PACKET_START_INFO3, encodeStartInfo(info, payloadRoom(host)));
    logShadow(host, radio.now);  // before the last packet: the host may end the log with it
    if (last) {
        host->activity.store(activity_e::ENDING, std::memory_order_relaxed);
    }
    sendEndOfRun(host, radio.now, run->cause);
    flushLog(&host->log);
}

}  // namespace

void runInventory(radio_s* radio, host_s* host, run_totals_s* totals) {
    for (bool again = false, last = false; !last; again = true) {
        run_s run{.radio = radio, .host = host};
        radio->run = &run;
        takePlan(&run);
        run.begin = radio->now;
        const bool triggered = run.plan.start.gpiBitMask >> 4 != 0;
        if (triggered && !waitForTrigger(run, again)) {
            run.cause = CAUSE_HOST;
            run.begin = radio->now;
        } else {
            doPasses(&run);
        }
        // After an error in the host's parameters a restart would end the same way.
        const bool byRule = run.cause != CAUSE_HOST && run.cause < CAUSE_ERROR;
        last = !(byRule && triggered && run.plan.autorestart != 0);
        if (totals != nullptr) {
            *totals = {radio->now - run.begin, run.reads, run.rounds};
        }
        radio->run = nullptr;
        sendEnd(&run, last);
        if (!last) {
            deliver(host, radio->now, RXE_PACKET_RESTART, 0);
        }
    }
}

void runFakeTags(radio_s* radio, host_s* host, std::uint16_t rate) {
    run_s run{.radio = radio, .host = host};
    takePlan(&run);
    run.begin = radio->now;
    OLIO_s olio{};
    olio.transmitAntenna = olio.receiveAntenna = 1;
    sendAntennaInfo(&run, 1, olio);
    const sgtin_s madeUp{.companyPrefix = "9999999", .itemReference = "999999", .filter = 0};
    for (std::uint64_t serial = 0; !stopRequested(*host); ++serial) {
        tag_s tag;
        // The tag is not in the world: antennas, filters and the database have no part in it.
        setEpc(sgtin96(madeUp, serial), &tag);
        reportFake(&run, tag);
        // From the start of the run, so that the rate holds though a microsecond does not divide evenly.
        const auto next =
            run.begin + static_cast<std::int64_t>((serial + 1) * static_cast<std::uint64_t>(second) / rate);
        advance(radio, host, next - radio->now);
    }
    run.cause = CAUSE_HOST;
    sendEnd(&run, true);
}

}  // namespace rxe
