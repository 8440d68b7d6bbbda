// SPDX-License-Identifier: MIT
// What every parameter operation shares: the call, and the line when it fails.
// Private to rxe_intfc.
#pragma once

#include <string>
#include <string_view>

#include "rxe.h"

namespace rxe_intfc {

// The unit's name in the log.
inline constexpr std::string_view unit = "rxe_intfc";

// Status of a request that was refused before it reached the engine.
inline constexpr RXE_API_STATUS refused = static_cast<RXE_API_STATUS>(1);

// Logs and counts a failing status, with a detail behind it; silent for 0.
// Returns the status.
RXE_API_STATUS noteFailure(RXE_API_STATUS status, std::string_view detail = "");

// Write and read one parameter; a failure is logged and its status returned.
// The record is the one that belongs to the id.
RXE_API_STATUS writeParameter(unsigned id, void* record);
RXE_API_STATUS readParameter(unsigned id, void* record);

// Whether this reader has four GPIs, and the records that know them, or two.
bool hasFourGPIs();

// Tenths as a decimal: 305 is "30.5", -5 is "-0.5".
std::string tenthsText(int tenths);

}  // namespace rxe_intfc
