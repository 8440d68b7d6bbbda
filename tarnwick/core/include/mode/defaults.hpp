// SPDX-License-Identifier: MIT
// The values that a mode starts from, by mode type and reader model.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>

#include "mode/record.hpp"

// The beams of one cycle of the array reader, ids of the coarse grid. 397, the
// boresight beam, is there twice: it is visited twice in each cycle.
inline constexpr std::array<std::uint16_t, 38> DEFAULT_BEAMS_QDX{
    397, 325, 329, 363, 333, 337, 371, 341, 345, 355, 326, 330, 365, 334, 338, 349, 342, 346, 357,
    397, 327, 331, 367, 335, 339, 351, 343, 347, 359, 328, 332, 369, 336, 340, 353, 344, 348, 361,
};

// The beams of one cycle when bearings are wanted: offsets of the fine grid, to
// which a polarization is added. 897, the boresight, is there twice too.
inline constexpr std::array<std::uint16_t, 50> DEFAULT_BEAMS_QDX_BEARING{
    897, 361, 381, 401, 595, 421, 369, 389, 583, 409, 429, 377, 643, 397, 417, 365, 631,
    385, 405, 425, 619, 373, 393, 413, 607, 897, 363, 383, 403, 601, 423, 371, 391, 589,
    411, 431, 379, 577, 399, 419, 367, 637, 387, 407, 427, 625, 375, 395, 415, 613,
};

// In all mode types, unless a row of MODE_TYPES or a constant below has another value. An antenna
// has one inventory round of limited length.
inline constexpr auto DEFAULT_ENVIRONMENT_PARAM = ENVIRONMENT_PARAMS_e::HIGH_INTERFERENCE;
inline constexpr auto DEFAULT_ANTENNA_STOP_CONDITION_TYPE =
    antenna_stop_type_e::SINGLE_INVENTORY_LIMITED_DURATION;

// The Query of a mode without "query" (EPC Gen2, 6.3.2.12.2.1): all tags, session S1, target A. A tag
// of S1 answers again after 0.5 to 5 s (EPC Gen2 v1.2.0, table 6.14).
inline constexpr std::uint8_t DEFAULT_QUERY_SEL = 0;
inline constexpr std::uint8_t DEFAULT_QUERY_SESSION = 1;
// Session S0: a tag loses this flag without a carrier, so it answers again on the next beam.
inline constexpr std::uint8_t DEFAULT_QUERY_SESSION_BEARING = 0;
inline constexpr std::uint8_t DEFAULT_QUERY_SESSION_PORTAL_DIRECTIONALITY = 0;
inline constexpr std::uint8_t DEFAULT_QUERY_TARGET = 0;
// One report of a tag for all antennas together.
inline constexpr auto DEFAULT_REPORT_FILTER_TYPE = report_filter_type_e::RADIO_WIDE;

// When the region or its channel width is not known (RXE_LINK_PROFILES).
inline constexpr std::uint16_t DEFAULT_LINK_PROFILE = 201;
// ms; see getDefaultAntennaStopConditionDuration.
inline constexpr std::uint16_t MIN_ANTENNA_STOP_DURATION = 125;
// dBm, the lowest that the engine takes: every reply is stronger.
inline constexpr std::int8_t RSSI_FILTER_OFF = -128;
// Seconds, for the engine a duration that does not end.
inline constexpr std::uint32_t REPORT_FILTER_FOR_EVER = 0xFFFFFFFF;
// ms, with the type reader_model_s::antennaDelay.
inline constexpr std::uint8_t DEFAULT_DELAY_BETWEEN_ANT_CYCLES = 75;

// The settings of a mode type, under "modeSpecificSettings".
// INVENTORY: each tag once a minute.
inline constexpr auto DEFAULT_INVENTORY_INTERVAL_UNIT = interval_unit_e::MINUTES;
inline constexpr std::uint32_t DEFAULT_INVENTORY_INTERVAL = 1;
// PORTAL: the radio starts when this input is LOW, with a debounce time of 0, and stops after 3 s
// without a new tag.
inline constexpr std::uint8_t DEFAULT_PORTAL_START_PORT = 1;
inline constexpr std::uint16_t DEFAULT_PORTAL_STOP_INTERVAL = 3;
// PORTAL_DIRECTIONALITY: heights of the array reader and of the tags, and the threshold between
// static and moving tags; the polarization is for BEARING as well.
inline constexpr double DEFAULT_AAR_HEIGHT = 15.0;
inline constexpr double DEFAULT_TAG_HEIGHT = 3.0;
inline constexpr std::int32_t DEFAULT_STATIC_V_DYNAMIC = 0;
inline constexpr auto DEFAULT_BEAM_POLARIZATION = QDX_BEAM_POL_e::LHCP;

// Sent by the engine with each tag in every mode type: EPC, protocol control, both XPC words and
// CRC, 0x3C01 (EPC Gen2, 6.3.2.1.2). Whether a report shows them is a switch of the mode.
inline constexpr std::uint32_t DEFAULT_CUSTOM_FIELDS =
    RXE_FIELD_EPC | RXE_FIELD_PC | RXE_FIELD_XPC1 | RXE_FIELD_XPC2 | RXE_FIELD_CRC;

// What a mode type changes in the defaults of SIMPLE. `overlay` is applied to a
// record that setDefaultMode has filled; it also sets the type and its name. A new type is a row
// here, an overlay and an enumerator.
struct mode_type_s {
    MODE_TYPE_e type;
    // Of the key "type".
    std::string_view word;
    // Of the key "mode"; empty when that key does not have the type.
    std::string_view deprecatedWord;
    // RXE_FIELD_*.
    std::uint32_t customFieldsBitMask;
    bool reportAntenna;
    report_filter_type_e reportFilterType;
    // Seconds.
    std::uint32_t reportFilterDuration;
    // 0 to 3.
    std::uint8_t querySession;
    int (*overlay)(mode_configuration_s* mode);
};

// Sets a record, whatever it held, to the defaults of SIMPLE for this reader
// model and its antenna count. Quirk: the polarization in `bearingConfig` stays.
// Main thread. Returns 0.
int setDefaultMode(mode_configuration_s* mode);
// The overlays of the other types: each changes a record with the defaults of SIMPLE by the row of
// its type, and as the comment of each says. Main thread. They return 0.
//
// An interval of a minute.
int setDefaultInventoryMode(mode_configuration_s* mode);
// The start trigger and the stop interval of a portal, also as start and stop conditions.
int setDefaultPortalMode(mode_configuration_s* mode);
// Nothing else.
int setDefaultConveyorMode(mode_configuration_s* mode);
int setDefaultCustomMode(mode_configuration_s* mode);
// The beams of DEFAULT_BEAMS_QDX_BEARING in the default polarization.
int setDefaultBearingMode(mode_configuration_s* mode);
// The same beams, and the heights and the threshold.
int setDefaultPortalDirMode(mode_configuration_s* mode);

// All types. A word is looked up in this order.
inline constexpr std::array MODE_TYPES{
    mode_type_s{MODE_TYPE_e::SIMPLE, "SIMPLE", "simple", DEFAULT_CUSTOM_FIELDS, false,
                DEFAULT_REPORT_FILTER_TYPE, REPORT_FILTER_FOR_EVER, DEFAULT_QUERY_SESSION, setDefaultMode},
    mode_type_s{MODE_TYPE_e::INVENTORY, "INVENTORY", "inventory",
                DEFAULT_CUSTOM_FIELDS | RXE_FIELD_RSSI | RXE_FIELD_TAG_COUNT, true,
                report_filter_type_e::PER_ANTENNA, 60, DEFAULT_QUERY_SESSION, setDefaultInventoryMode},
    mode_type_s{MODE_TYPE_e::PORTAL, "PORTAL", "portal", DEFAULT_CUSTOM_FIELDS, true,
                report_filter_type_e::PER_ANTENNA, REPORT_FILTER_FOR_EVER, DEFAULT_QUERY_SESSION,
                setDefaultPortalMode},
    mode_type_s{MODE_TYPE_e::CONVEYOR, "CONVEYOR", "conveyor", DEFAULT_CUSTOM_FIELDS, true,
                report_filter_type_e::PER_ANTENNA, REPORT_FILTER_FOR_EVER, DEFAULT_QUERY_SESSION,
                setDefaultConveyorMode},
    mode_type_s{MODE_TYPE_e::CUSTOM, "CUSTOM", "custom", DEFAULT_CUSTOM_FIELDS, false,
                DEFAULT_REPORT_FILTER_TYPE, REPORT_FILTER_FOR_EVER, DEFAULT_QUERY_SESSION,
                setDefaultCustomMode},
    mode_type_s{MODE_TYPE_e::BEARING, "BEARING", "",
                DEFAULT_CUSTOM_FIELDS | RXE_FIELD_RSSI | RXE_FIELD_RSSI_LIN | RXE_FIELD_BEARING, true,
                report_filter_type_e::NONE, 0, DEFAULT_QUERY_SESSION_BEARING, setDefaultBearingMode},
    mode_type_s{MODE_TYPE_e::PORTAL_DIRECTIONALITY, "PORTAL_DIRECTIONALITY", "",
                DEFAULT_CUSTOM_FIELDS | RXE_FIELD_LOCATION, false, report_filter_type_e::NONE, 0,
                DEFAULT_QUERY_SESSION_PORTAL_DIRECTIONALITY, setDefaultPortalDirMode},
};

// The row of a type; null for a value outside the enum. Any thread.
constexpr const mode_type_s* findModeType(MODE_TYPE_e type) {
    const auto* row = std::ranges::find(MODE_TYPES, type, &mode_type_s::type);
    return row == MODE_TYPES.end() ? nullptr : &*row;
}

// ms on each antenna so that a cycle takes a second: 1000 divided by the number of
// antennas, at least MIN_ANTENNA_STOP_DURATION, so from 9 antennas on a cycle takes longer. A record
// without antennas counts as one antenna. A null record means the mode in force.
std::uint16_t getDefaultAntennaStopConditionDuration(const mode_configuration_s* mode);
