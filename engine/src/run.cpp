// SPDX-License-Identifier: MIT
#include "run.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <utility>

#include "air.hpp"
#include "delivery.hpp"

namespace rxe {
namespace {

// Why a run ended, as START_INFO3 tells it.
enum stop_cause_e : std::uint16_t {
    RUNNING = 0,
    CAUSE_HOST = 1,
    CAUSE_LOOPS = 2,
    CAUSE_DURATION = 4,
    CAUSE_TAG_COUNT = 8,
    CAUSE_GPI = 16,
    CAUSE_NO_OLIOS = 64,
    CAUSE_MISCONFIGURED = 1024,
};

constexpr std::int64_t MILLISECOND = 1000;  // in microseconds, as all times here
constexpr std::int64_t SECOND = 1000000;
constexpr std::int64_t EMPTY_ROUND = 5000;       // a query and its slots without an answer
constexpr std::int64_t ACCESS_TIME = 3000;       // a request for a handle and one access
constexpr std::int64_t MAX_ON_CHANNEL = 400000;  // 47 CFR 15.247: 0.4 s on a channel
constexpr std::int64_t TRIGGER_POLL = 10000;

struct run_s {
    engine_s* engine = nullptr;
    plan_s plan;
    std::vector<std::vector<heard_tag_s>> heard;  // by position in plan.olios
    std::int64_t begin = 0;
    std::int64_t lastUnique = 0;  // when a tag was read for the first time
    std::int64_t channelSince = 0;
    planned_channel_s channel;  // on air
    std::uint32_t reads = 0;    // reported
    std::uint32_t rounds = 0;
    std::uint32_t loops = 0;      // passes through the olios
    std::uint32_t passReads = 0;  // in this pass, reported or not
    std::uint32_t passUniques = 0;
    stop_cause_e cause = RUNNING;
};

// One GPI rule: the mask of a stop or start record with the hold times by port.
// Levels are those of the scenario, steady since before the watch began.
bool gpiFires(const engine_s& engine, std::uint8_t mask, const std::array<std::uint16_t, 4>& hold,
              std::int64_t watched) {
    for (std::size_t i = 0; i < hold.size(); ++i) {
        const bool takesPart = ((mask >> (i + 4)) & 1) != 0;
        const bool wantsHigh = ((mask >> i) & 1) != 0;
        if (takesPart && engine.scenario.gpiHigh[i] == wantsHigh && watched >= hold[i] * MILLISECOND) {
            return true;
        }
    }
    return false;
}

std::array<std::uint16_t, 4> holdTimes(const auto& record) {
    return {record.holdTime1, record.holdTime2, record.holdTime3, record.holdTime4};
}

bool noMoreUniques(const run_s& run) {
    const int seconds = run.plan.stop.tagCount - RXE_NO_MORE_UNIQUE_TAGS_BASE;
    return seconds > 0 && run.engine->radio.now - run.lastUnique >= seconds * SECOND;
}

// Looked at between two slots, so a rule fires at most one read late.
stop_cause_e causeToStop(const run_s& run) {
    const PER_RADIO_STOP2_s& stop = run.plan.stop;
    const std::int64_t elapsed = run.engine->radio.now - run.begin;
    if (stopRequested(*run.engine)) {
        return CAUSE_HOST;
    }
    if (stop.duration != 0 && elapsed >= stop.duration * MILLISECOND) {
        return CAUSE_DURATION;
    }
    if (stop.tagCount != 0 && stop.tagCount <= RXE_NO_MORE_UNIQUE_TAGS_BASE && run.reads >= stop.tagCount) {
        return CAUSE_TAG_COUNT;
    }
    if (noMoreUniques(run)) {
        return CAUSE_TAG_COUNT;
    }
    return gpiFires(*run.engine, stop.gpiBitMask, holdTimes(stop), elapsed) ? CAUSE_GPI : RUNNING;
}

bool mustStop(run_s* run) {
    if (run->cause == RUNNING) {
        run->cause = causeToStop(*run);
    }
    return run->cause != RUNNING;
}

// Microseconds that an olio may dwell, or no limit.
std::int64_t dwellLimit(const OLIO_s& olio) {
    const bool limited = olio.stopType == RXE_STOP_DWELL_TIME || olio.stopType > RXE_STOP_ROUNDS_AND_DWELL;
    return limited && olio.stopValue != 0 ? olio.stopValue * MILLISECOND
                                          : std::numeric_limits<std::int64_t>::max();
}

// Asked after each round, so every olio does at least one.
bool olioIsDone(const engine_s& engine, const OLIO_s& olio, std::uint32_t rounds, std::int64_t dwelled) {
    if (dwelled >= dwellLimit(olio)) {
        return true;
    }
    if (olio.stopType == RXE_STOP_INVENTORY_ROUNDS) {
        return rounds >= olio.stopValue;
    }
    if (olio.stopType == RXE_STOP_DWELL_TIME) {
        return olio.stopValue == 0;
    }
    if (olio.stopType > RXE_STOP_ROUNDS_AND_DWELL) {
        return rounds >= olio.stopType - std::uint32_t{RXE_STOP_ROUNDS_AND_DWELL};
    }
    const std::size_t port = (olio.stopType - 1U) / 2U;
    const bool wantsHigh = olio.stopType % 2 != 0;
    return engine.scenario.gpiHigh[port - 1] == wantsHigh && dwelled >= olio.stopValue * MILLISECOND;
}

void sendAntennaInfo(run_s* run, std::uint16_t olioId, const OLIO_s& olio) {
    byte_writer_s writer = payloadWriter(run->engine);
    put(&writer, olioId, 2);
    put(&writer, olio.transmitAntenna, 2);
    put(&writer, olio.receiveAntenna, 2);
    put(&writer, static_cast<std::uint16_t>(olio.transmitPower), 2);
    deliver(run->engine, TYPE_ANTENNA_INFO, writer.size);
}

void hop(run_s* run, std::uint16_t olioId, std::uint16_t antenna) {
    const auto count = static_cast<std::uint32_t>(run->plan.channels.size());
    run->channel = run->plan.channels[randomBelow(&run->engine->radio.random, count)];
    run->channelSince = run->engine->radio.now;
    byte_writer_s writer = payloadWriter(run->engine);
    put(&writer, olioId, 2);
    put(&writer, antenna, 2);
    put(&writer, run->channel.frequency, 4);
    deliver(run->engine, TYPE_CW_ON, writer.size);
}

void sendRoundPacket(run_s* run, std::uint16_t rawType, std::uint16_t olioId) {
    byte_writer_s writer = payloadWriter(run->engine);
    put(&writer, olioId, 2);
    put(&writer, run->rounds, 4);
    deliver(run->engine, rawType, writer.size);
}

struct tag_packet_s {
    std::uint16_t rawType;
    std::uint32_t fields;  // 0: those that the host has asked for
};

constexpr std::array tagPackets{
    tag_packet_s{TYPE_TAG_CUSTOM, 0},
    tag_packet_s{TYPE_TAG_SHORT, RXE_FIELD_EPC},
    tag_packet_s{TYPE_TAG_LONG, RXE_FIELD_EPC | RXE_FIELD_PC | RXE_FIELD_CRC | RXE_FIELD_ANTENNA_ID |
                                    RXE_FIELD_RSSI | RXE_FIELD_CHANNEL_ID | RXE_FIELD_TAG_COUNT},
    tag_packet_s{TYPE_TAG_COMPLETE, ALL_FIELDS},
};

void sendTag(run_s* run, const tag_read_s& read) {
    for (const tag_packet_s& packet : tagPackets) {
        if (wanted(*run->engine, packet.rawType)) {
            const std::uint32_t fields = packet.fields == 0 ? run->plan.fields : packet.fields;
            deliver(run->engine, packet.rawType, encodeTag(read, fields, payloadRoom(run->engine)));
        }
    }
    ++run->reads;
}

// The accesses of the olio in id order; the first one that fails ends them, as
// the tag has then left the open state.
void doAccesses(run_s* run, const OLIO_s& olio, const tag_s& tag) {
    for (const planned_access_s& planned : run->plan.accesses) {
        if (((olio.accessBitMask >> (planned.id - 1)) & 1) == 0) {
            continue;
        }
        advance(run->engine, ACCESS_TIME);
        const access_answer_s answer = answerAccess(tag, planned.access);
        deliver(run->engine, TYPE_ACCESS_INFO,
                encodeAccess(planned.id, answer.result, answer.data, payloadRoom(run->engine)));
        if (answer.result != RXE_ACCESS_RESULT_OK) {
            return;
        }
    }
}

void readTag(run_s* run, const planned_olio_s& planned, const heard_tag_s& heard) {
    radio_s& radio = run->engine->radio;
    const tag_s& tag = radio.tags[heard.tag];
    ++run->passReads;
    if (noteSeen(heard.tag, &radio.reported)) {
        ++run->passUniques;
        run->lastUnique = radio.now;
    }
    if (!passesIdFilters(run->plan.idFilters, tag) ||
        !passesLastReport(run->plan.lastReport, heard.tag, planned.id, radio.now, &radio.reported)) {
        return;
    }
    // A dB of noise either way, as a receiver's own.
    const int noisy = heard.rssi + static_cast<int>(randomBelow(&radio.random, 3)) - 1;
    const auto rssi = static_cast<std::int8_t>(std::clamp(noisy, -128, 127));
    const auto seen = static_cast<std::uint64_t>(radio.now);
    sendTag(run, {.epc = tag.epc.data(),
                  .epcBits = tag.epcBits,
                  .firstSeen = seen,
                  .lastSeen = seen,
                  .roSpec = planned.id,
                  .specIndex = 1,
                  .invParam = planned.olio.inventoryIndex,
                  .antenna = planned.olio.transmitAntenna,
                  .channel = run->channel.number,
                  .rssiLin = std::pow(10.0F, static_cast<float>(rssi) / 10.0F),
                  .phase = backscatterPhase(heard.metres, run->channel.frequency),
                  .pc = tag.pc,
                  .crc = tag.crc,
                  .azimuth = heard.azimuth,
                  .elevation = heard.elevation,
                  .locationX = heard.x,
                  .locationY = heard.y,
                  .rssi = rssi,
                  .azimuthConf = 100,
                  .elevationConf = 100,
                  .locConf = 100});
    doAccesses(run, planned.olio, tag);
}

void doRound(run_s* run, const planned_olio_s& planned, std::vector<heard_tag_s>* heard,
             std::int64_t olioEnd) {
    radio_s& radio = run->engine->radio;
    const auto readTime =
        static_cast<std::int64_t>(std::lround(SECOND / run->engine->scenario.tagsPerSecond));
    ++run->rounds;
    sendRoundPacket(run, TYPE_INV_BEGIN, planned.id);
    if (heard->empty()) {
        advance(run->engine, EMPTY_ROUND);
    }
    for (std::size_t left = heard->size(); left > 0; --left) {
        advance(run->engine, readTime);
        if (mustStop(run) || radio.now > olioEnd) {
            break;
        }
        std::swap((*heard)[left - 1], (*heard)[randomBelow(&radio.random, static_cast<std::uint32_t>(left))]);
        readTag(run, planned, (*heard)[left - 1]);
    }
    sendRoundPacket(run, TYPE_INV_END, planned.id);
}

void doOlio(run_s* run, std::size_t position) {
    const radio_s& radio = run->engine->radio;
    const planned_olio_s& planned = run->plan.olios[position];
    const std::int64_t begin = radio.now;
    const std::int64_t limit = dwellLimit(planned.olio);
    const std::int64_t end = limit > std::numeric_limits<std::int64_t>::max() - begin ? limit : begin + limit;
    sendAntennaInfo(run, planned.id, planned.olio);
    std::uint32_t rounds = 0;
    do {
        if (rounds == 0 || run->plan.hopPerRound || radio.now - run->channelSince >= MAX_ON_CHANNEL) {
            hop(run, planned.id, planned.olio.transmitAntenna);
        }
        doRound(run, planned, &run->heard[position], end);
        ++rounds;
    } while (!mustStop(run) && !olioIsDone(*run->engine, planned.olio, rounds, radio.now - begin));
}

// The radio rests between two passes when the last one brought nothing: type 1
// no read at all, type 2 no tag that was new.
void restBetweenPasses(run_s* run) {
    const bool rests = (run->plan.txDelayType == 1 && run->passReads == 0) ||
                       (run->plan.txDelayType == 2 && run->passUniques == 0);
    if (rests) {
        advance(run->engine, run->plan.txDelayMs * MILLISECOND);
    }
}

void takePlan(run_s* run) {
    run->plan = gatherPlan(&run->engine->params);
    run->heard.clear();
    for (const planned_olio_s& planned : run->plan.olios) {
        run->heard.push_back(heardTags(run->engine->radio.tags, planned, run->plan.rssiThreshold));
    }
}

void doPasses(run_s* run) {
    run->begin = run->lastUnique = run->engine->radio.now;
    while (!mustStop(run)) {
        if (run->plan.generation != run->engine->params.generation.load(std::memory_order_relaxed)) {
            takePlan(run);
        }
        if (run->plan.olios.empty()) {
            run->cause = CAUSE_NO_OLIOS;
        } else if (run->plan.inventoryMissing || run->plan.channels.empty()) {
            run->cause = CAUSE_MISCONFIGURED;
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

// `last`: no restart follows, so that the start is over for the host before
// the packet that tells it so.
void sendEnd(run_s* run, bool last) {
    engine_s* const engine = run->engine;
    const START_INFO_s info{.duration = static_cast<std::uint64_t>(engine->radio.now - run->begin),
                            .tagReads = run->reads,
                            .rounds = static_cast<std::uint16_t>(std::min(run->rounds, 0xFFFFU)),
                            .stopCause = run->cause};
    deliver(engine, TYPE_START_INFO3, encodeStartInfo(info, payloadRoom(engine)));
    if (last) {
        engine->activity.store(activity_e::ENDING, std::memory_order_relaxed);
    }
    byte_writer_s writer = payloadWriter(engine);
    put(&writer, 0x0809, 2);
    put(&writer, run->cause, 2);
    deliver(engine, TYPE_END_OF_RUN, writer.size);
    flushLog(&engine->log);
}

bool triggerFires(const run_s& run, std::int64_t watched) {
    return gpiFires(*run.engine, run.plan.start.gpiBitMask, holdTimes(run.plan.start), watched);
}

// False when the host has stopped the wait. After a run the trigger has to be
// released before it can fire again.
bool waitForTrigger(const run_s& run, bool again) {
    constexpr std::int64_t longEnough = std::numeric_limits<std::int64_t>::max();
    while (!stopRequested(*run.engine) &&
           (again ? triggerFires(run, longEnough) : !triggerFires(run, longEnough))) {
        park(run.engine);
    }
    const std::int64_t since = run.engine->radio.now;
    while (!stopRequested(*run.engine) && !triggerFires(run, run.engine->radio.now - since)) {
        advance(run.engine, TRIGGER_POLL);
    }
    return !stopRequested(*run.engine);
}

}  // namespace

void runInventory(engine_s* engine) {
    for (bool again = false, last = false; !last; again = true) {
        run_s run;
        run.engine = engine;
        takePlan(&run);
        run.begin = engine->radio.now;
        const bool triggered = run.plan.start.gpiBitMask >> 4 != 0;
        if (triggered && !waitForTrigger(run, again)) {
            run.cause = CAUSE_HOST;
            run.begin = engine->radio.now;
        } else {
            doPasses(&run);
        }
        // After an error of the host's making a new try would end the same way.
        const bool byRule = run.cause != CAUSE_HOST && run.cause < CAUSE_NO_OLIOS;
        last = !(byRule && triggered && run.plan.autorestart != 0);
        sendEnd(&run, last);
    }
}

void runFakeTags(engine_s* engine, std::uint16_t rate) {
    run_s run;
    run.engine = engine;
    takePlan(&run);
    run.begin = engine->radio.now;
    OLIO_s olio{};
    olio.transmitAntenna = olio.receiveAntenna = 1;
    sendAntennaInfo(&run, 1, olio);
    const sgtin_s madeUp{.companyPrefix = "9999999", .itemReference = "999999", .filter = 0};
    for (std::uint64_t serial = 0; !stopRequested(*engine); ++serial) {
        tag_s tag;
        const auto epc = sgtin96(madeUp, serial);
        std::copy(epc.begin(), epc.end(), tag.epc.begin());
        finishTag(&tag);
        sendTag(&run, {.epc = tag.epc.data(),
                       .epcBits = tag.epcBits,
                       .antenna = 1,
                       .pc = tag.pc,
                       .crc = tag.crc,
                       .rssi = -50});
        // From the start of the run, so that the rate holds though a microsecond does not divide evenly.
        const auto next = run.begin + static_cast<std::int64_t>((serial + 1) * SECOND / rate);
        advance(engine, next - engine->radio.now);
    }
    run.cause = CAUSE_HOST;
    sendEnd(&run, true);
}

}  // namespace rxe
