// SPDX-License-Identifier: MIT
// The engine's records as JSON, for the log and for the document of its state. Main thread.
// Each fills *out and returns 0. Those with a reply may fail: then they leave *out unfinished, put a
// failure text into *reply and return another value.
#pragma once

#include <cstddef>
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>

#include "rxe.h"

// A select slot that sends a Gen2 Challenge instead of a Select: `enable` is
// neither 0 nor 1. It takes the place of a SELECT_OP_s, `bitLength` where that
// has its pointer and the message where that has its mask:
//
//   0      1            2          3           4  5       6 ... 9    10 ... 75
//   |enable|incRepLen   |immediate |csi        | bitLength| reserved | message  |
struct CHALLENGE_OP_s {
    std::uint8_t enable;
    // The three fields of the command (EPC Gen2, 6.3.2.12.1.2). The first two are 0 or 1.
    std::uint8_t includeResponseLength;
    std::uint8_t immediateResponse;
    std::uint8_t cryptoSuiteIndex;
    // Of the message, bits.
    std::uint16_t bitLength;
    std::uint8_t reserved6[4];
    // (bitLength + 7) / 8 bytes count, most significant bit first.
    std::uint8_t message[66];
};
static_assert(sizeof(CHALLENGE_OP_s) == sizeof(SELECT_OP_s));
static_assert(offsetof(CHALLENGE_OP_s, bitLength) == offsetof(SELECT_OP_s, pointer));
static_assert(offsetof(CHALLENGE_OP_s, message) == offsetof(SELECT_OP_s, mask));

// An olio, with its power in dBm. With `verbose` the selects, the inventory set and the accesses of
// the olio are read back from the engine; otherwise their masks and index are shown. Of the access
// mask only the low 32 bits are read back.
int olio_to_json(std::string* reply, const OLIO_s* olio, nlohmann::json* out, bool verbose);

// One record each. Masks and words are in lower-case hexadecimal; a number that is not in the
// tables is "unknown: 0x2a".
int select_to_json(const SELECT_OP_s* select, nlohmann::json* out);
int inv_to_json(const INVENTORY_OP_s* inventory, nlohmann::json* out);
int access_to_json(const ACCESS_OP_s* access, nlohmann::json* out);

// Rules of start and stop, with two and with four GPIs. Times in ms.
int radioStopCondition_to_json(const PER_RADIO_STOP_s* stop, nlohmann::json* out);
int radioStopCondition_to_json(const PER_RADIO_STOP2_s* stop, nlohmann::json* out);
int gpioStart_to_json(const GPIO_START_s* start, nlohmann::json* out);
int gpioStart_to_json2(const GPIO_START2_s* start, nlohmann::json* out);

// Renders a slot of the selects as what it holds: a Select or a challenge.
int selectSlot_to_json(const SELECT_OP_s* select, nlohmann::json* out);
int challenge_to_json(const CHALLENGE_OP_s* challenge, nlohmann::json* out);

// The engine's filter on EPCs, whose last byte is left out when the mask has only some of its bits;
// and its filter on repeats, with its duration in seconds.
int idFilter_to_json(const REPORT_FILTER_ID_s* filter, nlohmann::json* out);
int lastReportInterval_to_json(const REPORT_FILTER_LAST_REPORT_s* filter, nlohmann::json* out);

namespace rxe_intfc {

// Puts the text into *reply and returns -1. Any thread.
int failWith(std::string* reply, const char* text);

}  // namespace rxe_intfc
