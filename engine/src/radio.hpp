// SPDX-License-Identifier: MIT
// The radio's own state: the world in front of it, its clock, its condition, its tag database.
// RXE_connect fills the record before the radio thread starts; from then on that thread alone
// writes it, so nothing here is locked or atomic. Other threads read `scenario`, and whether there
// is a `replay`, which then no longer change.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>

#include "channels.hpp"
#include "random.hpp"
#include "replay.hpp"
#include "reported.hpp"
#include "scenario.hpp"
#include "timeline.hpp"
#include "world.hpp"

namespace rxe {

struct run_s;

// A value of radio_s::onAir: the carrier is off.
constexpr std::int16_t notOnAir = -32768;

// Temperatures that follow the transmitter's work, and the antenna check.
// health.cpp alone writes it.
struct health_s {
    // Degrees Celsius of the power amplifier and of the reader's inside.
    double pa = 0;
    double ambient = 0;
    // Degrees that the ambient temperature falls to while nothing is transmitted.
    double surroundings = 0;
    // When the temperatures were last worked out, microseconds of the engine's clock.
    std::int64_t steppedAt = 0;
    // The work since then: microseconds times the share of full power. It is counted up to
    // the time `workedUntil`.
    double work = 0;
    std::int64_t workedUntil = 0;
    // The share of full power, 0 to 1, that `power`, tenths of dBm, is. Kept because a power
    // of ten for each slot would be costly.
    std::int16_t power = 0;
    double load = 0;
    // When an alarm of PA and ambient may come again, microseconds.
    std::array<std::int64_t, 2> nextAlarm{};
    // Microseconds of the engine's clock; without meaning while the check is off.
    std::int64_t nextAntennaCheck = 0;
    // As the last check found them: bit n-1 is port n, or element n-1 of the array.
    std::uint16_t antennas = 0;
};

struct radio_s {
    // Constant while there is a radio thread.
    scenario_s scenario;
    world_s world;
    // The tag database.
    reported_s reported;
    // Every draw of a run comes from here, in order: with the fast clock one seed gives the same
    // packets each time.
    random_s random;
    // Events, arrivals and departures to come.
    timeline_s timeline;
    health_s health;
    // The packet log that runs are played back from; empty for a simulated radio.
    replay_s replay;
    // How long channels were used, in all runs since RXE_connect: a new run does not free a
    // channel.
    channel_uses_t channelUses;
    // The inventory under way, for questions of the control socket; null between two of them.
    const run_s* run = nullptr;
    // Transmit power, tenths of dBm, which heats the amplifier; notOnAir while the carrier is
    // off.
    std::int16_t onAir = notOnAir;
    // A fault event has come, which ends the run with CAUSE_ERROR. The next run clears it.
    bool fault = false;
    // The engine's clock: microseconds since RXE_connect, and the nanoseconds beyond them.
    std::int64_t now = 0;
    std::int64_t nanos = 0;
    // When applyDueEvents has to be called next, microseconds.
    std::int64_t nextEvent = 0;
    // When the last CMD_ONGOING was sent or the run began, microseconds.
    std::int64_t lastOngoing = 0;
    // The real time of `now` 0, for the real clock.
    std::chrono::steady_clock::time_point origin;
};

}  // namespace rxe
