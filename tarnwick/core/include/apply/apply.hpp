// SPDX-License-Identifier: MIT
// From a mode to the state of the engine. Main thread.
#pragma once

#include <string>

#include "engine_io/olios.hpp"
#include "mode/record.hpp"

// The accesses of the last mode that was applied, without those that the engine refused.
extern told_accesses_s toldAccesses;

// Writes a mode into the engine; the mode in force stays as it is. Radio stopped. 0 with
// the reply "Success", or a negative code with the failure text; the engine then keeps
// what was written until the failure.
int configureRXEForMode(const mode_configuration_s& mode, std::string* reply);

// Sets the radio to a known state, from which each mode starts; with `full` it first disables all
// packets, selects and accesses. Returns 0, or the status of the first write that fails; the rest
// is then not written.
RXE_API_STATUS baselineRXEConfiguration(bool full);

// Writes the radio-wide stop rule of a mode. Returns the status of the engine.
RXE_API_STATUS setRadioStopConditions(const radioStopConditions_s* conditions);
