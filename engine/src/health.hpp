// SPDX-License-Identifier: MIT
// The radio's own condition: temperatures that follow its work, the alarms that
// tell of them, antennas and echoes as parameters, and how full its database is. Radio
// thread only, but for what RXE_connect fills before the thread starts.
#pragma once

#include <cstdint>

#include "host.hpp"
#include "radio.hpp"

namespace rxe {

// Where an alarm limit is written with RXE_setNVMParam: one byte, degrees
// Celsius plus 64, so that -63 to 191 degrees fit; 0 is no limit. The 131 of
// this project's daemon is 67 degrees.
constexpr int nvmDegreesOffset = 64;

// Before the radio thread starts: all of it as the scenario begins.
void beginHealth(radio_s* radio, params_s* params);
// Counts what has been on air since the last call; after each piece of time.
void countWork(radio_s* radio);
// Moves the temperatures on to now and sends what alarms are due. Returns when
// it has to be called again.
std::int64_t stepHealth(radio_s* radio, host_s* host);
// Sets a temperature, which goes on from there; the ambient one stays, as the
// surroundings have changed with it.
void setTemperature(radio_s* radio, host_s* host, bool pa, int degrees);

// What the array's elements hear of their own transmitter on a channel.
void measureEcho(const radio_s& radio, std::uint16_t channel, std::int16_t power, params_s* params);

// DB_WARNING once nine tenths of the tag database are used, and with `noRoom`, when a tag
// has found no room, DB_ERROR: each once until the database is cleared.
void warnOfDatabase(radio_s* radio, host_s* host, bool noRoom);

}  // namespace rxe
