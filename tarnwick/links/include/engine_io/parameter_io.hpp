// SPDX-License-Identifier: MIT
// One parameter of the engine, read or written: the call, and the line when it fails. Main
// thread.
#pragma once

#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>

#include "rxe.h"

// Last argument of every RXE_setParam2: writes go through the library's shadow
// copy. True at start. Written by the command "configrxe shadow".
extern bool useRXEShadow;

namespace rxe_intfc {

// The unit's name in the log.
inline constexpr std::string_view unit = "rxe_intfc";

// Status of a request that was refused before it reached the engine.
inline constexpr RXE_API_STATUS refused = static_cast<RXE_API_STATUS>(1);

// Logs and counts a failing status, with a detail behind it; silent for 0.
// Returns the status.
RXE_API_STATUS noteFailure(RXE_API_STATUS status, std::string_view detail = "");

// The record of each parameter that is written, and of the ids behind it in its range.
template <unsigned parameter>
struct written_record_s;
template <class Record>
struct writes_s {
    using type = Record;
};
// clang-format off
template <> struct written_record_s<RXE_PARAM_PACKET_ENABLE> : writes_s<PACKET_ENABLE_s> {};
template <> struct written_record_s<RXE_PARAM_RADIO_STOP> : writes_s<PER_RADIO_STOP_s> {};
template <> struct written_record_s<RXE_PARAM_RADIO_STOP2> : writes_s<PER_RADIO_STOP2_s> {};
template <> struct written_record_s<RXE_PARAM_CUSTOM_FIELDS> : writes_s<std::uint32_t> {};
template <> struct written_record_s<RXE_PARAM_SELECT> : writes_s<SELECT_OP_s> {};
template <> struct written_record_s<RXE_PARAM_INVENTORY> : writes_s<INVENTORY_OP_s> {};
template <> struct written_record_s<RXE_PARAM_ACCESS> : writes_s<ACCESS_OP_s> {};
template <> struct written_record_s<RXE_PARAM_OLIO> : writes_s<OLIO_s> {};
template <> struct written_record_s<RXE_PARAM_CHANNEL> : writes_s<CHANNEL_s> {};
template <> struct written_record_s<RXE_PARAM_HOP_PER_ROUND> : writes_s<std::uint8_t> {};
template <> struct written_record_s<RXE_PARAM_DYNAMIC_RANGE> : writes_s<std::uint8_t> {};
template <> struct written_record_s<RXE_PARAM_ID_FILTER> : writes_s<REPORT_FILTER_ID_s> {};
template <> struct written_record_s<RXE_PARAM_AUTORESTART> : writes_s<std::uint8_t> {};
template <> struct written_record_s<RXE_PARAM_PEAK_THRESHOLD> : writes_s<std::uint8_t> {};
template <> struct written_record_s<RXE_PARAM_STATIC_V_DYNAMIC> : writes_s<std::uint8_t> {};
template <> struct written_record_s<RXE_PARAM_AAR_HEIGHT> : writes_s<std::uint16_t> {};
template <> struct written_record_s<RXE_PARAM_TAG_HEIGHT> : writes_s<std::uint16_t> {};
template <> struct written_record_s<RXE_PARAM_MONO_OR_COM> : writes_s<std::uint8_t> {};
template <> struct written_record_s<RXE_PARAM_TX_DELAY_INTERVAL> : writes_s<std::uint16_t> {};
template <> struct written_record_s<RXE_PARAM_DELAY_AFTER_SELECTS> : writes_s<std::uint16_t> {};
template <> struct written_record_s<RXE_PARAM_BLOCK_SIZE> : writes_s<std::uint8_t> {};
template <> struct written_record_s<RXE_PARAM_RSSI_THRESHOLD> : writes_s<std::int8_t> {};
template <> struct written_record_s<RXE_PARAM_LAST_REPORT> : writes_s<REPORT_FILTER_LAST_REPORT_s> {};
template <> struct written_record_s<RXE_PARAM_CABLE_LOSS> : writes_s<std::uint8_t> {};
template <> struct written_record_s<RXE_PARAM_GPIO_DIR> : writes_s<std::uint8_t> {};
template <> struct written_record_s<RXE_PARAM_GPIO_START> : writes_s<GPIO_START_s> {};
template <> struct written_record_s<RXE_PARAM_GPIO_START2> : writes_s<GPIO_START2_s> {};
// clang-format on

// Writes a record, whatever it is; what calls it is writeParameter.
RXE_API_STATUS writeRecord(unsigned id, void* record);

// Writes one parameter; of a range the one with this id. A failure is logged and its status
// returned. The record of another parameter does not compile.
template <unsigned parameter, class Record>
requires std::same_as<Record, typename written_record_s<parameter>::type> RXE_API_STATUS
writeParameter(Record record, unsigned id = 0) {
    return writeRecord(parameter + id, &record);
}

// Reads one parameter; a failure is logged and its status returned. The record is the one
// that belongs to the id.
RXE_API_STATUS readParameter(unsigned id, void* record);

// Whether this reader has four GPIs, and the records that know them, or two.
bool hasFourGPIs();

// Tenths as a decimal: 305 is "30.5", -5 is "-0.5".
std::string tenthsText(int tenths);

}  // namespace rxe_intfc
