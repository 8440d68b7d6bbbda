// SPDX-License-Identifier: MIT
// What happens to the world while the engine is connected: the scenario's
// events and arrivals in the order of the engine's clock, and what the control
// socket posts in between. Radio thread only.
#ifndef ENGINE_EVENTS_HPP
#define ENGINE_EVENTS_HPP

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "scenario.hpp"

namespace rxe {

struct engine_s;

enum class moment_e : std::uint8_t { EVENT, ARRIVAL, CHANGE };

struct moment_s {
    std::int64_t due = 0;
    std::uint64_t order = 0;  // of two moments at the same time the older one comes first
    moment_e kind = moment_e::EVENT;
    std::size_t index = 0;     // of the event or the group; not used by CHANGE
    std::uint64_t number = 0;  // of the arrival
};

struct timeline_s {
    std::vector<moment_s> moments;      // a heap, the next one in front
    std::vector<timed_event_s> events;  // the scenario's, and posted ones that are not due yet
    std::uint64_t made = 0;
    std::deque<std::string> happened;  // the last few lines for the error log
};

// Before the radio thread starts: the timeline of a connection.
void beginTimeline(engine_s* engine);

// What has happened, for the error log: "; 12.500 s: antenna 2 lost" and so on.
std::string whatHappened(const timeline_s& timeline);
// Keeps a line for the error log.
void noteHappening(engine_s* engine, std::string line);

}  // namespace rxe

#endif
