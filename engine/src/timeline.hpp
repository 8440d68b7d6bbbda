// SPDX-License-Identifier: MIT
// What is still to happen to the world, in the order of the engine's clock: the scenario's
// events and arrivals, and events of the control socket that are not due yet. Also the last
// eight happenings, for the error log. Radio thread only, except for beginTimeline; times are
// microseconds of the engine's clock.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "scenario.hpp"

namespace rxe {

// EVENT: an event of the scenario or of the control socket. ARRIVAL: tags of a group come, and
// are made then. CHANGE: tags that are in the world already enter or leave, so the radio has to
// look at the field anew.
enum class moment_e : std::uint8_t { EVENT, ARRIVAL, CHANGE };

struct moment_s {
    std::int64_t due = 0;
    // Set by schedule: of two moments at the same time the older one comes first.
    std::uint64_t order = 0;
    moment_e kind = moment_e::EVENT;
    // Into timeline_s::events or the scenario's groups; not used by CHANGE.
    std::size_t index = 0;
    // Of the arrival in its group, from 0.
    std::uint64_t number = 0;
};

struct timeline_s {
    // A heap (std::push_heap), the next one in front.
    std::vector<moment_s> moments;
    // The scenario's, and behind them posted ones that were not due yet. Those that are over
    // stay, since moments refer to events by index.
    std::vector<timed_event_s> events;
    // How many moments were scheduled so far; numbers them.
    std::uint64_t made = 0;
    // The last few lines for the error log, the oldest in front.
    std::deque<std::string> happened;
};

// Fills the timeline with what the scenario has. RXE_connect calls it before the radio thread
// starts.
void beginTimeline(const scenario_s& scenario, timeline_s* timeline);

// Adds a moment, which may be due already; its `order` is set here.
void schedule(moment_s moment, timeline_s* timeline);
// A time at which a tag enters or leaves; forEver, which never comes, is left out.
void scheduleChange(std::int64_t due, timeline_s* timeline);
// Arrival `number`, counted from 0, of a group of the scenario. It is late by a share of
// the group's jitter that is the same in every run with this seed.
void scheduleArrival(const scenario_s& scenario, std::size_t group, std::uint64_t number,
                     timeline_s* timeline);
// Takes the moment that comes first; there has to be one.
moment_s takeFirst(timeline_s* timeline);

// Keeps a line for the error log, with the time `now` in front, and drops the oldest of more
// than eight.
void noteHappening(std::int64_t now, std::string line, timeline_s* timeline);
// The lines kept, for the error log: "; 12.500 s: antenna 2 lost; 14.000 s: antenna 2 back".
std::string whatHappened(const timeline_s& timeline);

}  // namespace rxe
