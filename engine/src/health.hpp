// SPDX-License-Identifier: MIT
// The radio's own condition: temperatures that follow its work, the alarms that tell of them,
// antennas and echoes as parameters, and how full its database is. Radio thread only, except
// for beginHealth, which RXE_connect calls before the thread starts.
#pragma once

#include <cstdint>

#include "host.hpp"
#include "radio.hpp"

namespace rxe {

// An alarm limit that RXE_setNVMParam writes is one byte: degrees Celsius plus 64, so that -63
// to 191 degrees fit; 0 means that there is not a limit. This project's daemon writes 131, which
// is 67 degrees.
constexpr int nvmDegreesOffset = 64;

// Before the radio thread starts: all of it as the scenario begins.
void beginHealth(radio_s* radio, params_s* params);
// Adds the work done since the last call, at the power that is on the air. Called after each
// piece of time that the engine's clock lets pass.
void countWork(radio_s* radio);
// Moves the temperatures on to now and sends the alarms that are due. Returns the time of the
// next call, microseconds of the engine's clock.
std::int64_t stepHealth(radio_s* radio, host_s* host);
// Sets a temperature in degrees Celsius: of the power amplifier, which moves on from there to
// its target, or the ambient one, which stays, since its idle value is set as well.
void setTemperature(radio_s* radio, host_s* host, bool pa, int degrees);

// Publishes the echo record of a channel (1 to RXE_MAX_CHANNELS): what the array's elements
// send at `power`, tenths of dBm, and hear of it.
void measureEcho(const radio_s& radio, std::uint16_t channel, std::int16_t power, params_s* params);

// Sends DB_WARNING when nine tenths of the tag database are used, and DB_ERROR with `noRoom`,
// which says that a tag has found no room: each once until the database is cleared.
void warnOfDatabase(radio_s* radio, host_s* host, bool noRoom);

}  // namespace rxe
