// SPDX-License-Identifier: MIT
#include "run.hpp"

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

#include "delivery.hpp"
#include "link_profiles.hpp"
#include "population.hpp"
#include "run_state.hpp"
#include "status.hpp"

namespace rxe {
namespace {

constexpr std::int64_t POWER_UP = 1500;  // a tag is ready this long after its field rises
constexpr std::int64_t TRIGGER_POLL = 10000;
constexpr std::int64_t REST_POLL = 10000;  // between two looks for a channel that may be used
constexpr unsigned LONGEST_REPLY = 32 + 32 + MAX_EPC_BITS;  // PC, CRC, XPC words and EPC

// Whether the level of a port has been as wanted for `hold` ms, counted from
// `watched` at the earliest.
bool levelHolds(const engine_s& engine, std::size_t port, bool high, std::uint16_t hold,
                std::int64_t watched) {
    const gpi_s& gpi = engine.radio.world.gpis[port];
    return gpi.high == high && engine.radio.now - std::max(gpi.since, watched) >= hold * MILLISECOND;
}

// One GPI rule: the mask of a stop or start record with the hold times by port.
bool gpiFires(const engine_s& engine, std::uint8_t mask, const std::array<std::uint16_t, 4>& hold,
              std::int64_t watched) {
    for (std::size_t i = 0; i < hold.size(); ++i) {
        const bool takesPart = ((mask >> (i + 4)) & 1) != 0;
        const bool wantsHigh = ((mask >> i) & 1) != 0;
        if (takesPart && levelHolds(engine, i, wantsHigh, hold[i], watched)) {
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
    if (run.engine->radio.fault) {
        return CAUSE_ERROR;
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
    return gpiFires(*run.engine, stop.gpiBitMask, holdTimes(stop), run.begin) ? CAUSE_GPI : RUNNING;
}

// Microseconds that an olio may dwell, or no limit.
std::int64_t dwellLimit(const OLIO_s& olio) {
    const bool limited = olio.stopType == RXE_STOP_DWELL_TIME || olio.stopType > RXE_STOP_ROUNDS_AND_DWELL;
    return limited && olio.stopValue != 0 ? olio.stopValue * MILLISECOND
                                          : std::numeric_limits<std::int64_t>::max();
}

// Asked after each round, so every olio does at least one.
bool olioIsDone(const run_s& run, const OLIO_s& olio, std::uint32_t rounds) {
    if (run.engine->radio.now >= run.olioEnd) {
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
    const std::size_t port = (olio.stopType - 1U) / 2U - 1;
    return levelHolds(*run.engine, port, olio.stopType % 2 != 0, olio.stopValue, run.olioBegin);
}

void sendAntennaInfo(run_s* run, std::uint16_t olioId, const OLIO_s& olio) {
    run->engine->radio.onAir = olio.transmitPower;
    byte_writer_s writer = payloadWriter(run->engine);
    put(&writer, olioId, 2);
    put(&writer, olio.transmitAntenna, 2);
    put(&writer, olio.receiveAntenna, 2);
    put(&writer, static_cast<std::uint16_t>(olio.transmitPower), 2);
    deliver(run->engine, RXE_PACKET_ANTENNA_INFO, writer.size);
}

// What the carrier has been on for counts against its channel.
void endUse(run_s* run) {
    const std::int64_t now = run->engine->radio.now;
    if (run->carrierOn && now > run->carrierSince) {
        noteUse({run->channel.frequency, run->carrierSince, now}, &run->engine->radio.channelUses);
        run->carrierSince = now;
    }
}

// CW_ON or CW_OFF; those with a time have the engine's clock behind them.
void sendCarrier(const run_s& run, const planned_olio_s& planned, std::uint16_t rawType) {
    byte_writer_s writer = payloadWriter(run.engine);
    put(&writer, planned.id, 2);
    put(&writer, planned.olio.transmitAntenna, 2);
    put(&writer, run.channel.frequency, 4);
    if (rawType == RXE_PACKET_CW_ON_TIMED || rawType == RXE_PACKET_CW_OFF_TIMED) {
        put(&writer, static_cast<std::uint64_t>(run.engine->radio.now), 8);
    }
    deliver(run.engine, rawType, writer.size);
}

void carrierOff(run_s* run, std::size_t position) {
    if (!run->carrierOn) {
        return;
    }
    radio_s& radio = run->engine->radio;
    const planned_olio_s& planned = run->plan.olios[position];
    endUse(run);
    run->carrierOn = false;
    darken(radio.now, &radio.world, &run->olios[position].field);
    if (!run->carrierUntold) {
        sendCarrier(*run, planned, RXE_PACKET_CW_OFF);
    }
    sendCarrier(*run, planned, RXE_PACKET_CW_OFF_TIMED);
    radio.onAir = NOT_ON_AIR;
}

void doOlio(run_s* run, std::size_t position) {
    radio_s& radio = run->engine->radio;
    const planned_olio_s& planned = run->plan.olios[position];
    active_olio_s& olio = run->olios[position];
    const std::int64_t limit = dwellLimit(planned.olio);
    run->olioBegin = radio.now;
    run->olioEnd = limit > FOR_EVER - radio.now ? FOR_EVER : radio.now + limit;
    olio.field.since = radio.now;
    sendAntennaInfo(run, planned.id, planned.olio);
    std::uint32_t rounds = 0;
    do {
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

// The radio rests between two passes when the last one brought nothing: type 1
// no read at all, type 2 no tag that was new.
void restBetweenPasses(run_s* run) {
    const bool rests = (run->plan.txDelayType == 1 && run->passReads == 0) ||
                       (run->plan.txDelayType == 2 && run->passUniques == 0);
    if (rests) {
        run->engine->radio.onAir = NOT_ON_AIR;
        advance(run->engine, run->plan.txDelayMs * MILLISECOND);
    }
}

// What listens: the antenna that transmits, another port, another beam, or all
// beams of a polarisation.
void listenWith(const planned_olio_s& planned, carrier_s* carrier) {
    const std::uint16_t antenna = planned.olio.receiveAntenna;
    carrier->listening = carrier->direction;
    if (planned.beam && isPattern(antenna)) {
        carrier->allBeams = true;
        if (antenna > PATTERN_BASE) {
            carrier->listening.polarisation = (antenna - PATTERN_BASE) * 1000;
        }
    } else if (planned.beam) {
        carrier->listening = beamOf(antenna);
    } else if (antenna != carrier->antenna && antenna <= MAX_PORTS) {
        carrier->receiver = antenna;
        carrier->receiveLoss = planned.receiveLoss / 10.0;
    }
}

// What does not fit into any channel's time is done all the same, with hops in between.
void planTimes(const run_s& run, const planned_olio_s& planned, active_olio_s* olio) {
    const link_s& link = planned.link;
    olio->slotTime = queryTime(link) + collidedSlot(link) + commandTime(link, NAK);
    olio->replyTime = singleSlot(link, LONGEST_REPLY);
    const double slot = olio->slotTime + olio->replyTime;
    double selects = run.plan.delayAfterSelects;
    for (const planned_select_s& select : run.plan.selects) {
        selects += sendsSelect(planned, select) ? selectTime(link, select.select) : 0;
    }
    olio->selectsTime = everFits(run, selects + slot) ? selects : 0;
    const double accesses = accessTime(run.plan, planned);
    olio->accessTime = everFits(run, olio->selectsTime + slot + accesses) ? accesses : 0;
}

active_olio_s activate(const world_s& world, const plan_s& plan, const planned_olio_s& planned) {
    active_olio_s olio;
    carrier_s& carrier = olio.field.carrier;
    // A port that the reader has not got radiates no more than port 0 does.
    const bool fitted = planned.beam || planned.olio.transmitAntenna <= plan.antennaCount;
    carrier.antenna = fitted ? planned.olio.transmitAntenna : std::uint16_t{0};
    carrier.beam = planned.beam;
    carrier.direction = planned.beam ? beamOf(planned.olio.transmitAntenna) : beam_s{};
    carrier.power = planned.olio.transmitPower / 10.0;
    carrier.cableLoss = carrier.receiveLoss = planned.cableLoss / 10.0;
    listenWith(planned, &carrier);
    olio.field.changes = world.changes - 1;
    // A receiver made for strong neighbours hears weak tags less well.
    olio.sensitivity = receiverSensitivity(planned.link) + (plan.dynamicRange - 1) * 3.0;
    olio.wantsB = planned.inventory.target == 1;
    return olio;
}

// Every channel has its turn before one comes again, in an order of chance.
void shuffleChannels(run_s* run) {
    std::vector<planned_channel_s>& channels = run->plan.channels;
    for (auto left = static_cast<std::uint32_t>(channels.size()); left > 1; --left) {
        std::swap(channels[left - 1], channels[randomBelow(&run->engine->radio.random, left)]);
    }
}

void takePlan(run_s* run) {
    const world_s& world = run->engine->radio.world;
    run->plan = gatherPlan(world, &run->engine->params);
    run->nextChannel = 0;
    shuffleChannels(run);
    run->olios.clear();
    for (const planned_olio_s& planned : run->plan.olios) {
        run->olios.push_back(activate(world, run->plan, planned));
        planTimes(*run, planned, &run->olios.back());
    }
}

void doPasses(run_s* run) {
    run->begin = run->lastUnique = run->engine->radio.now;
    run->engine->radio.fault = false;
    while (!mustStop(run)) {
        if (run->plan.generation != run->engine->params.generation.load(std::memory_order_relaxed)) {
            takePlan(run);
        }
        if (run->plan.olios.empty()) {
            run->cause = CAUSE_NO_OLIOS;
        } else if (run->plan.inventoryMissing || run->plan.channels.empty()) {
            run->cause = CAUSE_MISCONFIGURED;
            sendApiError(run->engine, STATUS_MISCONFIGURED);
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
// and how many it has passed on: a record of the log that is no packet.
void logShadow(engine_s* engine) {
    byte_writer_s writer = payloadWriter(engine);
    put(&writer, engine->shadowAnswered.load(std::memory_order_relaxed), 4);
    put(&writer, engine->shadowWritten.load(std::memory_order_relaxed), 4);
    RXE_packet_s* const record = nextPacket(engine);
    record->type = TYPE_SHADOW_COUNTS;
    record->length = static_cast<std::uint16_t>(writer.size);
    logPacket(engine->radio.now, *record, &engine->log);
}

// `last`: no restart follows, so that the start is over for the host before
// the packet that tells it so.
void sendEnd(run_s* run, bool last) {
    engine_s* const engine = run->engine;
    engine->radio.onAir = NOT_ON_AIR;
    const START_INFO_s info{.duration = static_cast<std::uint64_t>(engine->radio.now - run->begin),
                            .tagReads = run->reads,
                            .rounds = static_cast<std::uint16_t>(std::min(run->rounds, 0xFFFFU)),
                            .stopCause = run->cause};
    deliver(engine, RXE_PACKET_START_INFO3, encodeStartInfo(info, payloadRoom(engine)));
    logShadow(engine);  // before the last packet: the host may end the log with it
    if (last) {
        engine->activity.store(activity_e::ENDING, std::memory_order_relaxed);
    }
    byte_writer_s writer = payloadWriter(engine);
    put(&writer, 0x0809, 2);
    put(&writer, run->cause, 2);
    deliver(engine, RXE_PACKET_END_OF_RUN, writer.size);
    flushLog(&engine->log);
}

// Sets the field to the channel. The power that it leaves of the olio's, in tenths of dBm.
std::int16_t tune(run_s* run, const planned_olio_s& planned, field_s* field) {
    const std::int16_t asked = planned.olio.transmitPower;
    const int most = run->channel.maxPower == 0 ? asked : run->channel.maxPower;
    const auto power = static_cast<std::int16_t>(std::min<int>(asked, most));
    if (power < asked) {
        byte_writer_s writer = payloadWriter(run->engine);
        put(&writer, planned.id, 2);
        put(&writer, run->channel.frequency, 4);
        put(&writer, static_cast<std::uint16_t>(power), 2);
        deliver(run->engine, RXE_PACKET_CHAN_PWR_LMT, writer.size);
    }
    if (field->carrier.power != power / 10.0 || field->carrier.kilohertz != run->channel.frequency) {
        field->carrier.power = power / 10.0;
        field->carrier.kilohertz = run->channel.frequency;
        field->changes = run->engine->radio.world.changes - 1;  // other tags are in reach
    }
    return power;
}

// Turns to the next channel that may be used for `least` microseconds, with the carrier off
// while there is none.
bool takeChannel(run_s* run, std::size_t position, std::int64_t least) {
    const radio_s& radio = run->engine->radio;
    const std::vector<planned_channel_s>& channels = run->plan.channels;
    for (;;) {
        for (std::size_t i = 0; i < channels.size(); ++i) {
            const planned_channel_s& channel = channels[run->nextChannel++ % channels.size()];
            if (channelIsFree(radio.channelUses, channel.frequency, radio.now, least)) {
                run->channel = channel;
                return true;
            }
        }
        if (mustStop(run) || radio.now >= run->olioEnd) {
            return false;
        }
        carrierOff(run, position);
        advance(run->engine, REST_POLL);
    }
}

bool triggerFires(const run_s& run, std::int64_t watched) {
    return gpiFires(*run.engine, run.plan.start.gpiBitMask, holdTimes(run.plan.start), watched);
}

// False when the host has stopped the wait. After a run the trigger has to be
// released before it can fire again.
bool waitForTrigger(const run_s& run, bool again) {
    const GPIO_START2_s& start = run.plan.start;
    const auto levelIsThere = [&] { return gpiFires(*run.engine, start.gpiBitMask, {}, 0); };
    while (!stopRequested(*run.engine) && again && levelIsThere()) {
        park(run.engine);
    }
    const std::int64_t since = run.engine->radio.now;
    while (!stopRequested(*run.engine) && !triggerFires(run, since)) {
        levelIsThere() ? advance(run.engine, TRIGGER_POLL) : park(run.engine);
    }
    return !stopRequested(*run.engine);
}

}  // namespace

bool fits(const run_s& run, double microseconds) {
    // Parts of a microsecond add up to one more at the most.
    return run.engine->radio.now + static_cast<std::int64_t>(microseconds) + 2 <= run.channelLimit;
}

bool everFits(const run_s& run, double microseconds) {
    return std::ranges::all_of(run.plan.channels, [&](const planned_channel_s& channel) {
        return static_cast<double>(longestStay(channel.frequency) - POWER_UP) > microseconds + 2;
    });
}

bool hop(run_s* run, std::size_t position, double least) {
    radio_s& radio = run->engine->radio;
    const planned_olio_s& planned = run->plan.olios[position];
    if (planned.inventory.session == 0) {  // whose flags are all A again
        run->olios[position].wantsB = planned.inventory.target == 1;
    }
    run->channelOver = false;
    if (run->accessing && run->carrierOn) {
        carrierOff(run, position);
    }
    run->carrierUntold = run->accessing;
    endUse(run);
    if (!takeChannel(run, position, POWER_UP + static_cast<std::int64_t>(least) + 2)) {
        return false;
    }
    const std::int16_t power = tune(run, planned, &run->olios[position].field);
    if (!run->carrierUntold) {
        sendCarrier(*run, planned, RXE_PACKET_CW_ON);
    }
    sendCarrier(*run, planned, RXE_PACKET_CW_ON_TIMED);
    run->carrierOn = true;
    run->carrierSince = radio.now;
    run->channelLimit = channelLimit(radio.channelUses, run->channel.frequency, radio.now);
    radio.onAir = power;
    if (planned.beam) {
        measureEcho(run->engine, run->channel.number, power);
    }
    advance(run->engine, POWER_UP);
    return true;
}

bool mustStop(run_s* run) {
    if (run->cause == RUNNING) {
        run->cause = causeToStop(*run);
    }
    return run->cause != RUNNING;
}

void waitOnAir(run_s* run, std::size_t position, std::int64_t end) {
    const radio_s& radio = run->engine->radio;
    while (radio.now < end && !stopRequested(*run->engine)) {
        if (radio.now >= run->channelLimit) {
            run->hopped = true;
            if (!hop(run, position, timeOfOneTag(run->olios[position]))) {
                return;
            }
        }
        advance(run->engine, std::min(end, run->channelLimit) - radio.now);
    }
}

void beginAccesses(run_s* run) {
    run->accessing = true;
}

void endAccesses(run_s* run, std::size_t position) {
    run->accessing = false;
    if (std::exchange(run->carrierUntold, false) && run->carrierOn) {
        sendCarrier(*run, run->plan.olios[position], RXE_PACKET_CW_ON);
    }
}

void runInventory(engine_s* engine, run_totals_s* totals) {
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
        const bool byRule = run.cause != CAUSE_HOST && run.cause < CAUSE_ERROR;
        last = !(byRule && triggered && run.plan.autorestart != 0);
        if (totals != nullptr) {
            *totals = {engine->radio.now - run.begin, run.reads, run.rounds};
        }
        sendEnd(&run, last);
        if (!last) {
            deliver(engine, RXE_PACKET_RESTART, 0);
        }
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
        setEpc(sgtin96(madeUp, serial), &tag);
        reportFake(&run, tag);
        // From the start of the run, so that the rate holds though a microsecond does not divide evenly.
        const auto next =
            run.begin + static_cast<std::int64_t>((serial + 1) * static_cast<std::uint64_t>(SECOND) / rate);
        advance(engine, next - engine->radio.now);
    }
    run.cause = CAUSE_HOST;
    sendEnd(&run, true);
}

}  // namespace rxe
