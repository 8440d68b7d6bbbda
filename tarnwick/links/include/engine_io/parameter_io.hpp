// SPDX-License-Identifier: MIT
// One parameter of the engine, read or written: the call, and the line in the log when it fails.
// Main thread. Statuses are those of the library, 0 for success (rxe.h). After a read that has
// failed the record must not be used.
#pragma once

#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>

#include "rxe.h"

// The last argument of every RXE_setParam2: whether the library may use its shadow copy, so that a
// write that repeats the stored record does not reach the radio. True at the start. Written by the
// command "configrxe shadow".
extern bool useRXEShadow;

namespace rxe_intfc {

// The name in the log of all units that talk to the engine.
inline constexpr std::string_view unit = "rxe_intfc";

// Status of a request that was refused before it reached the engine.
inline constexpr RXE_API_STATUS refused = static_cast<RXE_API_STATUS>(1);

// Logs and counts a status other than 0 as an error, with a detail behind it:
// "rxe_intfc failed with error code: 1 antenna out of range". Returns the status.
RXE_API_STATUS noteFailure(RXE_API_STATUS status, std::string_view detail = "");

// The record of a parameter, and of all ids of its range. A parameter without a row can
// only be read and written by its number. The fields of the records are described in rxe.h.
template <unsigned parameter>
struct record_s;
template <class Record>
struct holds_s {
    using type = Record;
};
// clang-format off
// What the radio is, which packets it sends, and what they carry.
template <> struct record_s<RXE_PARAM_FW_VERSION> : holds_s<REL_VERSION_s> {};
template <> struct record_s<RXE_PARAM_PACKET_ENABLE> : holds_s<PACKET_ENABLE_s> {};
template <> struct record_s<RXE_PARAM_RADIO_STOP> : holds_s<PER_RADIO_STOP_s> {};
template <> struct record_s<RXE_PARAM_CUSTOM_FIELDS> : holds_s<std::uint32_t> {};
template <> struct record_s<RXE_PARAM_RADIO_STOP2> : holds_s<PER_RADIO_STOP2_s> {};
template <> struct record_s<RXE_PARAM_PACKET_BITS> : holds_s<std::uint32_t> {};
// Ranges: one record for each id.
template <> struct record_s<RXE_PARAM_SELECT> : holds_s<SELECT_OP_s> {};
template <> struct record_s<RXE_PARAM_INVENTORY> : holds_s<INVENTORY_OP_s> {};
template <> struct record_s<RXE_PARAM_ACCESS> : holds_s<ACCESS_OP_s> {};
template <> struct record_s<RXE_PARAM_OLIO> : holds_s<OLIO_s> {};
template <> struct record_s<RXE_PARAM_CHANNEL> : holds_s<CHANNEL_s> {};
// Hopping (0 or 1), and the receiver's dynamic range: 0 low, 1 normal, 2 high.
template <> struct record_s<RXE_PARAM_HOP_PER_ROUND> : holds_s<std::uint8_t> {};
template <> struct record_s<RXE_PARAM_HOP_PER_OLIO> : holds_s<std::uint8_t> {};
template <> struct record_s<RXE_PARAM_DYNAMIC_RANGE> : holds_s<std::uint8_t> {};
template <> struct record_s<RXE_PARAM_ID_FILTER> : holds_s<REPORT_FILTER_ID_s> {};
template <> struct record_s<RXE_PARAM_AUTORESTART> : holds_s<std::uint8_t> {};
// Array reader; heights in tenths.
template <> struct record_s<RXE_PARAM_PEAK_THRESHOLD> : holds_s<std::uint8_t> {};
template <> struct record_s<RXE_PARAM_STATIC_V_DYNAMIC> : holds_s<std::uint8_t> {};
template <> struct record_s<RXE_PARAM_AAR_HEIGHT> : holds_s<std::uint16_t> {};
template <> struct record_s<RXE_PARAM_TAG_HEIGHT> : holds_s<std::uint16_t> {};
template <> struct record_s<RXE_PARAM_MONO_OR_COM> : holds_s<std::uint8_t> {};
// Type + 256 * ms; microseconds; words; dBm.
template <> struct record_s<RXE_PARAM_TX_DELAY_INTERVAL> : holds_s<std::uint16_t> {};
template <> struct record_s<RXE_PARAM_DELAY_AFTER_SELECTS> : holds_s<std::uint16_t> {};
template <> struct record_s<RXE_PARAM_BLOCK_SIZE> : holds_s<std::uint8_t> {};
template <> struct record_s<RXE_PARAM_RSSI_THRESHOLD> : holds_s<std::int8_t> {};
template <> struct record_s<RXE_PARAM_LAST_REPORT> : holds_s<REPORT_FILTER_LAST_REPORT_s> {};
// A range by antenna, tenths of a dB.
template <> struct record_s<RXE_PARAM_CABLE_LOSS> : holds_s<std::uint8_t> {};
// Read only. Degrees Celsius in the low 16 bits, signed; a bit for each antenna; a range by channel.
template <> struct record_s<RXE_PARAM_PA_TEMP> : holds_s<std::uint32_t> {};
template <> struct record_s<RXE_PARAM_AMB_TEMP> : holds_s<std::uint32_t> {};
template <> struct record_s<RXE_PARAM_ANTENNA_STATE> : holds_s<std::uint32_t> {};
template <> struct record_s<RXE_PARAM_ECHO> : holds_s<AAREchoResults> {};
// Inputs: a bit for each port, and the triggers of two and of four ports.
template <> struct record_s<RXE_PARAM_GPIO_DIR> : holds_s<std::uint8_t> {};
template <> struct record_s<RXE_PARAM_GPIO_START> : holds_s<GPIO_START_s> {};
template <> struct record_s<RXE_PARAM_GPIO_START2> : holds_s<GPIO_START2_s> {};
// clang-format on

// Write and read the record of an id, RXE_PARAM_* plus the id within the range. The caller must know
// the type: a record that is too small is overrun. A failure is logged and its status returned.
RXE_API_STATUS writeRecord(unsigned id, void* record);
RXE_API_STATUS readParameter(unsigned id, void* record);

// Write and read one parameter; in a range the one with this id. A record of the wrong type does
// not compile:
//
//   writeParameter<RXE_PARAM_BLOCK_SIZE>(std::uint8_t{4});
//   writeParameter<RXE_PARAM_OLIO>(olio, 7);                  olio 7
template <unsigned parameter, class Record>
requires std::same_as<Record, typename record_s<parameter>::type> RXE_API_STATUS
writeParameter(Record record, unsigned id = 0) {
    return writeRecord(parameter + id, &record);
}
template <unsigned parameter, class Record>
requires std::same_as<Record, typename record_s<parameter>::type> RXE_API_STATUS
readParameter(Record* record, unsigned id = 0) {
    return readParameter(parameter + id, static_cast<void*>(record));
}

// Whether this reader has four GPIs, and so the records PER_RADIO_STOP2_s and GPIO_START2_s. The
// others have two.
bool hasFourGPIs();

// Tenths as a decimal: 305 is "30.5", -5 is "-0.5". Any thread.
std::string tenthsText(int tenths);

}  // namespace rxe_intfc
