// SPDX-License-Identifier: MIT
// Each event changes the world and sends the packet that tells of it, if there is one. An event
// without a packet leaves a line in the error log.
#include "events.hpp"

#include <algorithm>

#include "delivery.hpp"
#include "health.hpp"
#include "population.hpp"
#include "tag_answer.hpp"

namespace rxe {
namespace {

constexpr std::int64_t hour = 3600000000;  // microseconds

// The tags of one arrival come; their leaving and the next arrival are scheduled.
void arrive(radio_s* radio, const moment_s& moment) {
    const tag_group_s& group = radio->scenario.groups[moment.index];
    for (std::uint64_t i = 0; i < group.count; ++i) {
        const std::uint64_t number = moment.number * group.count + i;
        addTag(makeTag(radio->scenario, moment.index, number, moment.due), radio->now, &radio->world);
    }
    if (group.arrivals.stay != forEver) {
        scheduleChange(moment.due + group.arrivals.stay, &radio->timeline);
    }
    if (group.arrivals.limit == 0 || moment.number + 1 < group.arrivals.limit) {
        scheduleArrival(radio->scenario, moment.index, moment.number + 1, &radio->timeline);
    }
}

// --- One function for each kind of event.

// A line for the error log that names a port: "antenna 2 lost".
std::string portLine(const char* what, const event_s& event, const char* how) {
    return what + std::to_string(event.port) + how;
}

void sendBytes(host_s* host, std::int64_t now, std::uint16_t rawType, std::span<const std::uint8_t> bytes) {
    byte_writer_s writer = payloadWriter(host);
    putBytes(&writer, bytes);
    deliver(host, now, rawType, writer.size);
}

// A port that is an output keeps its level.
void applyGpi(radio_s* radio, host_s* host, const event_s& event) {
    gpi_s& gpi = radio->world.gpis[event.port - 1U];
    std::uint8_t inputs = 0;
    getParam(&host->params, RXE_PARAM_GPIO_DIR, &inputs);
    if (((inputs >> (event.port - 1U)) & 1) == 0) {
        noteHappening(radio->now, portLine("port ", event, " is an output, and a level came from outside"),
                      &radio->timeline);
        return;
    }
    if (gpi.high == event.flag) {
        return;  // no edge
    }
    gpi = {event.flag, radio->now};
    const std::array<std::uint8_t, 2> payload{static_cast<std::uint8_t>(event.port),
                                              static_cast<std::uint8_t>(event.flag ? 1 : 0)};
    sendBytes(host, radio->now, RXE_PACKET_GPIO_INFO, payload);
}

// The host learns of it by the next antenna check.
void applyAntenna(radio_s* radio, host_s*, const event_s& event) {
    antenna_s& antenna = radio->world.antennas[event.port];
    if (antenna.connected == event.flag) {
        return;
    }
    antenna.connected = event.flag;
    ++radio->world.changes;
    noteHappening(radio->now, portLine("antenna ", event, event.flag ? " back" : " lost"), &radio->timeline);
}

// The alarm tells whether the amplifier gives too much or too little; in both cases the radio
// transmits nothing there.
void applyPaFailure(radio_s* radio, host_s* host, const event_s& event) {
    radio->world.antennas[event.port].paFailed = event.flag;
    ++radio->world.changes;
    if (!event.flag) {
        noteHappening(radio->now, portLine("PA of port ", event, " good again"), &radio->timeline);
        return;
    }
    const bool high = event.value == 1;
    noteHappening(radio->now, portLine("PA of port ", event, high ? " gives too much" : " gives too little"),
                  &radio->timeline);
    const auto port = static_cast<std::uint8_t>(event.port);
    sendBytes(host, radio->now, high ? RXE_PACKET_FWD_PWR_HI_ALARM : RXE_PACKET_FWD_PWR_LO_ALARM, {&port, 1});
}

void applyPaTemp(radio_s* radio, host_s* host, const event_s& event) {
    setTemperature(radio, host, true, event.value);
}

void applyAmbTemp(radio_s* radio, host_s* host, const event_s& event) {
    setTemperature(radio, host, false, event.value);
}

void applyFail(radio_s*, host_s* host, const event_s& event) {
    addFailure({event.operation, event.parameter, event.value, event.after, event.count}, &host->failures);
}

void applyEnter(radio_s* radio, host_s*, const event_s& event) {
    const std::int64_t stay = event.tag.leaves;  // made as if it entered at 0
    tag_s tag = event.tag;
    tag.enters = tag.placedAt = radio->now;
    tag.leaves = stay > forEver - radio->now ? forEver : radio->now + stay;
    scheduleChange(tag.leaves, &radio->timeline);
    addTag(std::move(tag), radio->now, &radio->world);
}

// Index of the first tag that an event names, or -1 with a line in the error log.
std::int64_t tagOf(radio_s* radio, const event_s& event) {
    const std::vector<std::uint32_t> found = findTags(radio->world, event.bytes, radio->now);
    if (found.empty()) {
        noteHappening(radio->now, "an event for a tag that is not in the field", &radio->timeline);
        return -1;
    }
    return found.front();
}

void applyMove(radio_s* radio, host_s*, const event_s& event) {
    if (const std::int64_t index = tagOf(radio, event); index >= 0) {
        moveTag(static_cast<std::uint32_t>(index), event.place, event.velocity, radio->now, &radio->world);
    }
}

void applyLeave(radio_s* radio, host_s*, const event_s& event) {
    if (const std::int64_t index = tagOf(radio, event); index >= 0) {
        removeTag(static_cast<std::uint32_t>(index), radio->now, &radio->world);
    }
}

// Fills the database with entries of tags read elsewhere, up to nine tenths, rounded up, or
// (flag) whole, and then tells that one more tag has found no room. Entries of its own stay.
void applyDatabase(radio_s* radio, host_s* host, const event_s& event) {
    reported_s& reported = radio->reported;
    const std::size_t capacity = radio->world.dbCapacity;
    const std::size_t wanted = event.flag ? capacity : (capacity * 9 + 9) / 10;
    reported.elsewhere += wanted - std::min(wanted, usedRoom(reported));
    noteHappening(radio->now, event.flag ? "tag database full" : "tag database nearly full",
                  &radio->timeline);
    warnOfDatabase(radio, host, event.flag);
}

void applyFault(radio_s* radio, host_s*, const event_s&) {
    noteHappening(radio->now, "radio fault", &radio->timeline);
    radio->fault = true;
}

void applyPacket(radio_s* radio, host_s* host, const event_s& event) {
    sendBytes(host, radio->now, event.rawType, event.bytes);
}

void answerTag(radio_s* radio, host_s* host, const event_s& event) {
    event.answer->set_value(tellOfTag(*radio, event.bytes, &host->params));
}

// All functions of the table have the same parameters; some do not use them all.
struct event_row_s {
    event_e kind;
    void (*apply)(radio_s* radio, host_s* host, const event_s& event);
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
    event_row_s{event_e::ASK_TAG, answerTag},
};

void applyEvent(radio_s* radio, host_s* host, const event_s& event) {
    std::ranges::find(eventRows, event.kind, &event_row_s::kind)->apply(radio, host, event);
}

void applyMoment(radio_s* radio, host_s* host, const moment_s& moment) {
    timeline_s& timeline = radio->timeline;
    if (moment.kind == moment_e::ARRIVAL) {
        arrive(radio, moment);
    } else if (moment.kind == moment_e::CHANGE) {  // a tag enters or leaves, as its times say
        ++radio->world.changes;
    } else {
        const timed_event_s timed = timeline.events[moment.index];
        applyEvent(radio, host, timed.event);
        if (timed.every != 0) {
            schedule({.due = moment.due + timed.every, .kind = moment_e::EVENT, .index = moment.index},
                     &timeline);
        }
    }
}

// Applies what the control socket has posted. What is not due yet joins the timeline.
void takePosted(radio_s* radio, host_s* host) {
    if (!host->events.waiting.load(std::memory_order_relaxed)) {
        return;
    }
    timeline_s& timeline = radio->timeline;
    for (event_s& event : takeEvents(&host->events)) {
        if (event.due <= radio->now) {
            applyEvent(radio, host, event);
            continue;
        }
        schedule({.due = event.due, .kind = moment_e::EVENT, .index = timeline.events.size()}, &timeline);
        timeline.events.push_back({std::move(event)});
    }
}

}  // namespace

std::int64_t applyDueEvents(radio_s* radio, host_s* host) {
    takePosted(radio, host);
    // The log has the packets of all events and alarms, also of those between two runs. The
    // scenario's events and the temperatures would bring them twice.
    if (radio->replay.active()) {
        return radio->now + hour;
    }
    while (!radio->timeline.moments.empty() && radio->timeline.moments.front().due <= radio->now) {
        applyMoment(radio, host, takeFirst(&radio->timeline));
    }
    const std::int64_t step = stepHealth(radio, host);
    return radio->timeline.moments.empty() ? step : std::min(step, radio->timeline.moments.front().due);
}

}  // namespace rxe
