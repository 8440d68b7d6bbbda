// SPDX-License-Identifier: MIT
// What the steps of applying a mode share. Main thread, radio stopped.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "mode/record.hpp"
#include "rxe.h"

namespace apply {

// The mode, and what the steps compute from it for the steps behind them, for one call.
struct apply_context_s {
    const mode_configuration_s& mode;
    std::string* reply;
    std::vector<std::int16_t> powers = {};         // by antenna position, tenths of dBm
    std::vector<std::uint16_t> linkProfiles = {};  // by antenna position
    std::vector<c1g2_info_s> inventoryParams = {};
    std::vector<std::uint8_t> inventoryIds = {};  // by antenna position
    std::vector<std::uint8_t> prefix = {};        // of the tag filter; empty for other filters
    std::uint32_t selectMask = 0;                 // of all antennas, unless they differ
    std::vector<SELECT_OP_s> selects = {};
    std::uint64_t accessMask = 0;  // the same
    std::vector<ACCESS_OP_s> accesses = {};
};

// A step returns 0, or the code of the whole function with the reply filled.
using apply_step_t = int (*)(apply_context_s*);

// Puts the text into the reply. Returns `code`.
int fail(apply_context_s* my, int code, std::string text);

// The failure of an engine call, `what` and the status in the reply; 0 for status 0.
int engineFailure(apply_context_s* my, int code, RXE_API_STATUS status, const std::string& what);

// The steps of apply_olios.cpp write the accesses of the mode, and one olio for each of
// its antennas, into the engine and into toldAccesses.
int writeAccesses(apply_context_s* my);
int writeOlios(apply_context_s* my);

}  // namespace apply
