// SPDX-License-Identifier: MIT
// The radio's own condition: temperatures that follow its work, the alarms that
// tell of them, antennas and echoes as parameters. Radio thread only, but for
// what RXE_connect fills before the thread starts.
#ifndef ENGINE_HEALTH_HPP
#define ENGINE_HEALTH_HPP

#include <array>
#include <cstdint>

namespace rxe {

struct engine_s;

// Where an alarm limit is written with RXE_setNVMParam: one byte, degrees
// Celsius plus 64, so that -63 to 191 degrees fit; 0 is no limit. The 131 of
// this project's daemon is 67 degrees.
constexpr int NVM_DEGREES_OFFSET = 64;

struct health_s {
    double pa = 0;  // degrees Celsius
    double ambient = 0;
    double surroundings = 0;       // degrees that the ambient temperature falls to without work
    std::int64_t steppedAt = 0;    // microseconds of the engine's clock
    std::int64_t workedUntil = 0;  // up to when `work` counts
    std::int16_t power = 0;        // what `load` is for, tenths of dBm
    double load = 0;               // the part of full power, 0 to 1
    double work = 0;               // since `steppedAt`: microseconds at full power, shorter for less
    std::array<std::int64_t, 2> nextAlarm{};  // of PA and ambient
    std::int64_t nextAntennaCheck = 0;
    std::uint16_t antennas = 0;  // as the last check found them
};

// Before the radio thread starts: all of it as the scenario begins.
void beginHealth(engine_s* engine);
// Counts what has been on air since the last call; after each piece of time.
void countWork(engine_s* engine);
// Moves the temperatures on to now and sends what alarms are due. Returns when
// it has to be called again.
std::int64_t stepHealth(engine_s* engine);
// Sets a temperature, which goes on from there; the ambient one stays, as the
// surroundings have changed with it.
void setTemperature(engine_s* engine, bool pa, int degrees);

// What the array's elements hear of their own transmitter on a channel.
void measureEcho(engine_s* engine, std::uint16_t channel, std::int16_t power);

}  // namespace rxe

#endif
