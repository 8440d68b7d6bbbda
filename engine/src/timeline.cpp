// SPDX-License-Identifier: MIT
#include "timeline.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

#include "random.hpp"

namespace rxe {
namespace {

constexpr std::size_t maxHappenings = 8;

// The heap's order: std::push_heap keeps the largest in front, so later ones count as smaller.
bool comesLater(const moment_s& a, const moment_s& b) {
    return a.due != b.due ? a.due > b.due : a.order > b.order;
}

}  // namespace

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

void scheduleChange(std::int64_t due, timeline_s* timeline) {
    if (due != forEver) {
        schedule({.due = due, .kind = moment_e::CHANGE}, timeline);
    }
}

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

void beginTimeline(const scenario_s& scenario, timeline_s* timeline) {
    *timeline = {};
    timeline->events = scenario.events;
    for (std::size_t i = 0; i < timeline->events.size(); ++i) {
        schedule({.due = timeline->events[i].event.due, .kind = moment_e::EVENT, .index = i}, timeline);
    }
    for (std::size_t i = 0; i < scenario.groups.size(); ++i) {
        const arrivals_s& arrivals = scenario.groups[i].arrivals;
        // Tags that come again and again are made when they come; the others stand in the world from
        // the beginning, so only the times at which they show and go count here.
        if (arrivals.every != 0) {
            scheduleArrival(scenario, i, 0, timeline);
            continue;
        }
        scheduleChange(arrivals.first, timeline);
        if (arrivals.stay != forEver) {
            scheduleChange(arrivals.first + arrivals.stay, timeline);
        }
    }
}

std::string whatHappened(const timeline_s& timeline) {
    std::string text;
    for (const std::string& line : timeline.happened) {
        text += "; " + line;
    }
    return text;
}

void noteHappening(std::int64_t now, std::string line, timeline_s* timeline) {
    std::array<char, 32> time{};
    std::snprintf(time.data(), time.size(), "%.3f s: ", static_cast<double>(now) * 1e-6);
    std::deque<std::string>& happened = timeline->happened;
    happened.push_back(time.data() + std::move(line));
    if (happened.size() > maxHappenings) {
        happened.pop_front();
    }
}

}  // namespace rxe
