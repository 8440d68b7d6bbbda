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

// The record of a parameter, and of all ids of its range. A parameter without a row can
// only be read by its number.
template <unsigned parameter>
struct record_s;
template <class Record>
struct holds_s {
    using type = Record;
};
// clang-format off
template <> struct record_s<RXE_PARAM_FW_VERSION> : holds_s<REL_VERSION_s> {};
template <> struct record_s<RXE_PARAM_PACKET_ENABLE> : holds_s<PACKET_ENABLE_s> {};
template <> struct record_s<RXE_PARAM_RADIO_STOP> : holds_s<PER_RADIO_STOP_s> {};
template <> struct record_s<RXE_PARAM_CUSTOM_FIELDS> : holds_s<std::uint32_t> {};
template <> struct record_s<RXE_PARAM_RADIO_STOP2> : holds_s<PER_RADIO_STOP2_s> {};
template <> struct record_s<RXE_PARAM_PACKET_BITS> : holds_s<std::uint32_t> {};
template <> struct record_s<RXE_PARAM_SELECT> : holds_s<SELECT_OP_s> {};
template <> struct record_s<RXE_PARAM_INVENTORY> : holds_s<INVENTORY_OP_s> {};
template <> struct record_s<RXE_PARAM_ACCESS> : holds_s<ACCESS_OP_s> {};
template <> struct record_s<RXE_PARAM_OLIO> : holds_s<OLIO_s> {};
template <> struct record_s<RXE_PARAM_CHANNEL> : holds_s<CHANNEL_s> {};
template <> struct record_s<RXE_PARAM_HOP_PER_ROUND> : holds_s<std::uint8_t> {};
template <> struct record_s<RXE_PARAM_HOP_PER_OLIO> : holds_s<std::uint8_t> {};
template <> struct record_s<RXE_PARAM_DYNAMIC_RANGE> : holds_s<std::uint8_t> {};
template <> struct record_s<RXE_PARAM_ID_FILTER> : holds_s<REPORT_FILTER_ID_s> {};
template <> struct record_s<RXE_PARAM_AUTORESTART> : holds_s<std::uint8_t> {};
template <> struct record_s<RXE_PARAM_PEAK_THRESHOLD> : holds_s<std::uint8_t> {};
template <> struct record_s<RXE_PARAM_STATIC_V_DYNAMIC> : holds_s<std::uint8_t> {};
template <> struct record_s<RXE_PARAM_AAR_HEIGHT> : holds_s<std::uint16_t> {};
template <> struct record_s<RXE_PARAM_TAG_HEIGHT> : holds_s<std::uint16_t> {};
template <> struct record_s<RXE_PARAM_MONO_OR_COM> : holds_s<std::uint8_t> {};
template <> struct record_s<RXE_PARAM_TX_DELAY_INTERVAL> : holds_s<std::uint16_t> {};
template <> struct record_s<RXE_PARAM_DELAY_AFTER_SELECTS> : holds_s<std::uint16_t> {};
template <> struct record_s<RXE_PARAM_BLOCK_SIZE> : holds_s<std::uint8_t> {};
template <> struct record_s<RXE_PARAM_RSSI_THRESHOLD> : holds_s<std::int8_t> {};
template <> struct record_s<RXE_PARAM_LAST_REPORT> : holds_s<REPORT_FILTER_LAST_REPORT_s> {};
template <> struct record_s<RXE_PARAM_CABLE_LOSS> : holds_s<std::uint8_t> {};
template <> struct record_s<RXE_PARAM_PA_TEMP> : holds_s<std::uint32_t> {};
template <> struct record_s<RXE_PARAM_AMB_TEMP> : holds_s<std::uint32_t> {};
template <> struct record_s<RXE_PARAM_ANTENNA_STATE> : holds_s<std::uint32_t> {};
template <> struct record_s<RXE_PARAM_ECHO> : holds_s<AAREchoResults> {};
template <> struct record_s<RXE_PARAM_GPIO_DIR> : holds_s<std::uint8_t> {};
template <> struct record_s<RXE_PARAM_GPIO_START> : holds_s<GPIO_START_s> {};
template <> struct record_s<RXE_PARAM_GPIO_START2> : holds_s<GPIO_START2_s> {};
// clang-format on

// Write and read whatever the id has. A failure is logged and its status returned.
RXE_API_STATUS writeRecord(unsigned id, void* record);
RXE_API_STATUS readParameter(unsigned id, void* record);

// Write and read one parameter; of a range the one with this id. The record of another
// parameter does not compile.
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

// Whether this reader has four GPIs, and the records that know them, or two.
bool hasFourGPIs();

// Tenths as a decimal: 305 is "30.5", -5 is "-0.5".
std::string tenthsText(int tenths);

}  // namespace rxe_intfc
