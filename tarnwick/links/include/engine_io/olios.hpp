// SPDX-License-Identifier: MIT
// The engine's work items, the rules by which it starts and stops, and the fields that its
// tag packets have; and a record of what was written. Main thread: what the
// engine thread needs of it is in the report plan.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "rxe.h"

inline constexpr std::size_t olioTableSize = RXE_MAX_OLIOS + 1;
inline constexpr std::size_t accessTableSize = RXE_MAX_ACCESSES + 2;

namespace rxe_intfc {

// By olio id: the record last written; all zero after a write with `enable` 0.
extern std::array<OLIO_s, olioTableSize> olios;

}  // namespace rxe_intfc

// The accesses that were written into the engine. Written when a mode is applied, read when its
// report plan is made.
struct told_accesses_s {
    // By access id, entry 0 unused: the accesses of the mode.
    std::array<ACCESS_OP_s, accessTableSize> enabledAccessOps{};

    // By olio id, entry 0 unused: bit n-1 set, access n runs in this olio.
    std::array<std::uint64_t, olioTableSize> enabledAccessOpsPerOlio{};

    // How many entries of enabledAccessOps have `enable` set.
    std::uint32_t accessParamsEnabledCount = 0;
};

// Writes olio `id` (1 to 1023; 0 with `enable` 0 clears all) and remembers it. Its power is
// limited to rxe_max_tx_pwr_x_10 with a warning. An id above 1023 is refused with status 1.
RXE_API_STATUS setOlio(std::uint16_t id, const OLIO_s& olio);
// Disables all olios in the engine. `olios` keeps its records.
RXE_API_STATUS disableOlios();

// Transmit antenna of an olio as it was last written, 0 for an id above 1023.
std::uint16_t getTxAntForOlio(std::uint16_t id);

// The radio-wide stop rule: `duration` and hold times in ms, 0 for none;
// `tagCount` and `gpiBitMask` as in PER_RADIO_STOP_s. Hold times 3 and 4 exist
// on the PN8200 only.
RXE_API_STATUS setGlobalStopConditions(std::uint32_t duration, std::uint16_t olioLoops,
                                       std::uint16_t tagCount, std::uint8_t gpiBitMask, std::uint16_t hold1,
                                       std::uint16_t hold2, std::uint16_t hold3, std::uint16_t hold4);

// The GPI trigger that starts the radio; mask 0 for none. Hold times as above, in ms.
RXE_API_STATUS setGPIOStart(std::uint8_t gpiBitMask, std::uint16_t hold1, std::uint16_t hold2,
                            std::uint16_t hold3, std::uint16_t hold4);

// Which fields tag packets carry (RXE_FIELD_*). Writes nothing when the mask is
// the one that the engine accepted last.
RXE_API_STATUS setCustomFields(std::uint32_t mask);
