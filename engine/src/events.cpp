// SPDX-License-Identifier: MIT
#include "events.hpp"

#include <algorithm>
#include <cstdio>

#include "delivery.hpp"
#include "engine.hpp"
#include "health.hpp"
#include "population.hpp"
#include "random.hpp"

namespace rxe {
namespace {

constexpr std::size_t MAX_HAPPENINGS = 8;
constexpr std::int64_t HOUR = 3600000000;  // microseconds

bool comesLater(const moment_s& a, const moment_s& b) {
    return a.due != b.due ? a.due > b.due : a.order > b.order;
}

void schedule(moment_s moment, timeline_s* timeline) {
    moment.order = ++timeline->made;
    timeline->moments.push_back(moment);
    std::ranges::push_heap(timeline->moments, comesLater);
}

moment_s takeFirst(timeline_s* timeline) {
    std::ranges::pop_heap(timeline->moments, comesLater);
    const moment_s first = timeline->moments.back();
    timeline->moments.pop_back();
    return first;
}

// Scheduled are only times that can be reached.
void scheduleChange(std::int64_t due, timeline_s* timeline) {
    if (due != FOR_EVER) {
        schedule({.due = due, .kind = moment_e::CHANGE}, timeline);
    }
}

// Arrival `number` of a group is late by a part of its jitter that is the same
// in every run with this seed.
void scheduleArrival(const scenario_s& scenario, std::size_t group, std::uint64_t number,
                     timeline_s* timeline) {
    const arrivals_s& arrivals = scenario.groups[group].arrivals;
    const std::uint64_t draw = mix64(scenario.seed ^ mix64(std::uint64_t{group} << 40 ^ ~number));
    const auto late = static_cast<std::int64_t>(unitInterval(draw) * static_cast<double>(arrivals.jitter));
    schedule({.due = arrivals.first + static_cast<std::int64_t>(number) * arrivals.every + late,
              .kind = moment_e::ARRIVAL,
              .index = group,
              .number = number},
             timeline);
}

void arrive(engine_s* engine, const moment_s& moment) {
    radio_s& radio = engine->radio;
    const tag_group_s& group = engine->scenario.groups[moment.index];
    for (std::uint64_t i = 0; i < group.count; ++i) {
        const std::uint64_t number = moment.number * group.count + i;
        addTag(makeTag(engine->scenario, moment.index, number, moment.due), radio.now, &radio.world);
    }
    if (group.arrivals.stay != FOR_EVER) {
        scheduleChange(moment.due + group.arrivals.stay, &radio.timeline);
    }
    if (group.arrivals.limit == 0 || moment.number + 1 < group.arrivals.limit) {
        scheduleArrival(engine->scenario, moment.index, moment.number + 1, &radio.timeline);
    }
}

// --- One function for each kind of event.

// The rest of a line that names a port: "antenna 2 lost".
std::string portLine(const char* what, const event_s& event, const char* how) {
    return what + std::to_string(event.port) + how;
}

void sendBytes(engine_s* engine, std::uint16_t rawType, std::span<const std::uint8_t> bytes) {
    byte_writer_s writer = payloadWriter(engine);
    putBytes(&writer, bytes);
    deliver(engine, rawType, writer.size);
}

void applyGpi(engine_s* engine, const event_s& event) {
    gpi_s& gpi = engine->radio.world.gpis[event.port - 1U];
    std::uint8_t inputs = 0;
    getParam(&engine->params, RXE_PARAM_GPIO_DIR, &inputs);
    if (((inputs >> (event.port - 1U)) & 1) == 0) {
        noteHappening(engine, portLine("port ", event, " is an output, and a level came from outside"));
        return;
    }
    if (gpi.high == event.flag) {
        return;  // no edge
    }
    gpi = {event.flag, engine->radio.now};
    const std::array<std::uint8_t, 2> payload{static_cast<std::uint8_t>(event.port),
                                              static_cast<std::uint8_t>(event.flag ? 1 : 0)};
    sendBytes(engine, RXE_PACKET_GPIO_INFO, payload);
}

void applyAntenna(engine_s* engine, const event_s& event) {
    antenna_s& antenna = engine->radio.world.antennas[event.port];
    if (antenna.connected == event.flag) {
        return;
    }
    antenna.connected = event.flag;
    ++engine->radio.world.changes;
    noteHappening(engine, portLine("antenna ", event, event.flag ? " back" : " lost"));
}

void applyPaFailure(engine_s* engine, const event_s& event) {
    engine->radio.world.antennas[event.port].paFailed = event.flag;
    ++engine->radio.world.changes;
    if (!event.flag) {
        noteHappening(engine, portLine("PA of port ", event, " good again"));
        return;
    }
    const bool high = event.value == 1;
    noteHappening(engine, portLine("PA of port ", event, high ? " gives too much" : " gives too little"));
    const auto port = static_cast<std::uint8_t>(event.port);
    sendBytes(engine, high ? RXE_PACKET_FWD_PWR_HI_ALARM : RXE_PACKET_FWD_PWR_LO_ALARM, {&port, 1});
}

void applyPaTemp(engine_s* engine, const event_s& event) {
    setTemperature(engine, true, event.value);
}

void applyAmbTemp(engine_s* engine, const event_s& event) {
    setTemperature(engine, false, event.value);
}

void applyFail(engine_s* engine, const event_s& event) {
    addFailure({event.operation, event.parameter, event.value, event.after, event.count}, &engine->failures);
}

void applyEnter(engine_s* engine, const event_s& event) {
    radio_s& radio = engine->radio;
    const std::int64_t stay = event.tag.leaves;  // made as if it entered at 0
    tag_s tag = event.tag;
    tag.enters = tag.placedAt = radio.now;
    tag.leaves = stay > FOR_EVER - radio.now ? FOR_EVER : radio.now + stay;
    scheduleChange(tag.leaves, &radio.timeline);
    addTag(std::move(tag), radio.now, &radio.world);
}

// The tag that an event is for; a line in the error log when it is not there.
std::int64_t tagOf(engine_s* engine, const event_s& event) {
    const std::int64_t index = findTag(engine->radio.world, event.bytes, engine->radio.now);
    if (index < 0) {
        noteHappening(engine, "an event for a tag that is not in the field");
    }
    return index;
}

void applyMove(engine_s* engine, const event_s& event) {
    if (const std::int64_t index = tagOf(engine, event); index >= 0) {
        moveTag(static_cast<std::uint32_t>(index), event.place, event.velocity, engine->radio.now,
                &engine->radio.world);
    }
}

void applyLeave(engine_s* engine, const event_s& event) {
    if (const std::int64_t index = tagOf(engine, event); index >= 0) {
        removeTag(static_cast<std::uint32_t>(index), engine->radio.now, &engine->radio.world);
    }
}

// Tags read elsewhere take nine tenths of the database, rounded up, or all of
// it and one more has found no room. What is in it stays.
void applyDatabase(engine_s* engine, const event_s& event) {
    reported_s& reported = engine->radio.reported;
    const std::size_t capacity = engine->radio.world.dbCapacity;
    const std::size_t wanted = event.flag ? capacity : (capacity * 9 + 9) / 10;
    reported.elsewhere += wanted - std::min(wanted, usedRoom(reported));
    noteHappening(engine, event.flag ? "tag database full" : "tag database nearly full");
    warnOfDatabase(engine, event.flag);
}

void applyFault(engine_s* engine, const event_s&) {
    noteHappening(engine, "radio fault");
    engine->radio.fault = true;
}

void applyPacket(engine_s* engine, const event_s& event) {
    sendBytes(engine, event.rawType, event.bytes);
}

struct event_row_s {
    event_e kind;
    void (*apply)(engine_s* engine, const event_s& event);
};

constexpr std::array eventRows{
    event_row_s{event_e::GPI, applyGpi},
    event_row_s{event_e::ANTENNA, applyAntenna},
    event_row_s{event_e::PA_FAILURE, applyPaFailure},
    event_row_s{event_e::PA_TEMP, applyPaTemp},
    event_row_s{event_e::AMB_TEMP, applyAmbTemp},
    event_row_s{event_e::FAIL, applyFail},
    event_row_s{event_e::TAG_ENTER, applyEnter},
    event_row_s{event_e::TAG_MOVE, applyMove},
    event_row_s{event_e::TAG_LEAVE, applyLeave},
    event_row_s{event_e::DATABASE, applyDatabase},
    event_row_s{event_e::FAULT, applyFault},
    event_row_s{event_e::PACKET, applyPacket},
};

void applyEvent(engine_s* engine, const event_s& event) {
    std::ranges::find(eventRows, event.kind, &event_row_s::kind)->apply(engine, event);
}

void applyMoment(engine_s* engine, const moment_s& moment) {
    timeline_s& timeline = engine->radio.timeline;
    if (moment.kind == moment_e::ARRIVAL) {
        arrive(engine, moment);
    } else if (moment.kind == moment_e::CHANGE) {  // a tag enters or leaves, as its times say
        ++engine->radio.world.changes;
    } else {
        const timed_event_s timed = timeline.events[moment.index];
        applyEvent(engine, timed.event);
        if (timed.every != 0) {
            schedule({.due = moment.due + timed.every, .kind = moment_e::EVENT, .index = moment.index},
                     &timeline);
        }
    }
}

void takePosted(engine_s* engine) {
    if (!engine->events.waiting.load(std::memory_order_relaxed)) {
        return;
    }
    timeline_s& timeline = engine->radio.timeline;
    for (event_s& event : takeEvents(&engine->events)) {
        if (event.due <= engine->radio.now) {
            applyEvent(engine, event);
            continue;
        }
        schedule({.due = event.due, .kind = moment_e::EVENT, .index = timeline.events.size()}, &timeline);
        timeline.events.push_back({std::move(event)});
    }
}

}  // namespace

void beginTimeline(engine_s* engine) {
    timeline_s& timeline = engine->radio.timeline;
    const scenario_s& scenario = engine->scenario;
    timeline = {};
    timeline.events = scenario.events;
    for (std::size_t i = 0; i < timeline.events.size(); ++i) {
        schedule({.due = timeline.events[i].event.due, .kind = moment_e::EVENT, .index = i}, &timeline);
    }
    for (std::size_t i = 0; i < scenario.groups.size(); ++i) {
        const arrivals_s& arrivals = scenario.groups[i].arrivals;
        if (arrivals.every != 0) {
            scheduleArrival(scenario, i, 0, &timeline);
            continue;
        }
        scheduleChange(arrivals.first, &timeline);
        if (arrivals.stay != FOR_EVER) {
            scheduleChange(arrivals.first + arrivals.stay, &timeline);
        }
    }
    takeEvents(&engine->events);  // those of the last connection
    engine->radio.nextEvent = 0;
}

std::int64_t applyDueEvents(engine_s* engine) {
    radio_s& radio = engine->radio;
    takePosted(engine);
    // What happened by itself when a log was written is in the log, what came between
    // two runs too: the scenario's events and the temperatures would bring it twice.
    if (radio.replay.active()) {
        return radio.now + HOUR;
    }
    while (!radio.timeline.moments.empty() && radio.timeline.moments.front().due <= radio.now) {
        applyMoment(engine, takeFirst(&radio.timeline));
    }
    const std::int64_t step = stepHealth(engine);
    return radio.timeline.moments.empty() ? step : std::min(step, radio.timeline.moments.front().due);
}

std::string whatHappened(const timeline_s& timeline) {
    std::string text;
    for (const std::string& line : timeline.happened) {
        text += "; " + line;
    }
    return text;
}

void noteHappening(engine_s* engine, std::string line) {
    std::array<char, 32> time{};
    std::snprintf(time.data(), time.size(), "%.3f s: ", static_cast<double>(engine->radio.now) * 1e-6);
    std::deque<std::string>& happened = engine->radio.timeline.happened;
    happened.push_back(time.data() + std::move(line));
    if (happened.size() > MAX_HAPPENINGS) {
        happened.pop_front();
    }
}

}  // namespace rxe
