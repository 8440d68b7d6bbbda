// SPDX-License-Identifier: MIT
// From a mode to engine state. Main thread.
#pragma once

#include <string>

#include "engine_io/olios.hpp"
#include "mode/record.hpp"

// The accesses of the last mode that was applied, as far as the engine took them.
extern told_accesses_s toldAccesses;

// Writes a mode into the engine; the mode in force stays as it is. Radio stopped. 0 with
// the reply "Success", or a negative code with the failure text; the engine then keeps
// what was written until the failure.
int configureRXEForMode(const mode_configuration_s& mode, std::string* reply);

// Known state of the radio; with `full` packets, selects and accesses are wiped
// first. 0 or the status of the first failing write.
RXE_API_STATUS baselineRXEConfiguration(bool full);

// The radio-wide stop rule of a mode.
RXE_API_STATUS setRadioStopConditions(const radioStopConditions_s* conditions);
