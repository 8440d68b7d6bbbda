// SPDX-License-Identifier: MIT
// The operating mode: what the reader does between a client's `start` and
// `stop`. One record, `mode_configuration`, is the mode in force. A mode request
// fills a local record (defaults first, then the client's keys), which replaces the
// global one when every rule has passed and the engine has taken it.
//
// Threads: the record belongs to the main thread. What the engine thread needs of the
// mode is the report plan (radio.hpp).
//
// Units, throughout: power in tenths of dBm (names that end in X10), antennas
// and ports count from 1, positions in a per-antenna list count from 0.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "reader_facts.hpp"
#include "rxe.h"

struct filter_expression_s;  // filter_expression.hpp

// --- Enums. The values stand in the record and go to the engine as they are.

enum class MODE_TYPE_e : std::uint32_t {
    SIMPLE = 0,
    INVENTORY = 1,
    PORTAL = 2,
    CONVEYOR = 3,
    CUSTOM = 4,
    BEARING = 5,                // array reader only
    PORTAL_DIRECTIONALITY = 6,  // array reader only
};

// Polarization of a beam, as it is added to a beam offset of the fine grid.
enum class QDX_BEAM_POL_e : std::uint32_t {
    NONE = 0,  // no polarization: an empty record, or a beam id outside the grids
    TOTAL = 1000,
    THETA = 2000,
    PHI = 3000,
    RHCP = 4000,
    LHCP = 5000,
};

// Memory bank of a tag (EPC Gen2, 6.3.2.1). The bank is also the row of `readMemory`.
enum class EPC_GEN2_MB_e : std::uint8_t { RESERVED = 0, EPC = 1, TID = 2, USER = 3 };
inline constexpr std::array<std::string_view, 4> EPC_GEN2_MB_strings{"RESERVED", "EPC", "TID", "USER"};
inline constexpr std::array EPC_GEN2_MBs{
    // the order in which banks are walked
    EPC_GEN2_MB_e::RESERVED,
    EPC_GEN2_MB_e::EPC,
    EPC_GEN2_MB_e::TID,
    EPC_GEN2_MB_e::USER,
};

enum class antenna_stop_type_e : std::uint32_t {
    DURATION = 0,
    INVENTORY_COUNT = 1,
    SINGLE_INVENTORY_LIMITED_DURATION = 2,
    GPI = 3,
};

enum class report_filter_type_e : std::uint32_t { RADIO_WIDE = 0, PER_ANTENNA = 1, NONE = 2 };
enum class radio_start_type_e : std::uint32_t { GPI = 0, GPI_WITH_RESTART = 1, NONE = 2 };
enum class filter_match_e : std::uint32_t { PREFIX = 0, SUFFIX = 1, REGEX = 2 };
enum class filter_operation_e : std::uint32_t { INCLUDE = 0, EXCLUDE = 1 };
enum class interval_unit_e : std::uint8_t { SECONDS = 0, MINUTES = 1, HOURS = 2, DAYS = 3 };
enum class access_cmd_type_e : std::uint8_t { READ = 0, WRITE = 1, ACCESS = 2, LOCK = 3, KILL = 4 };

// --- Small records.

// One GPI rule.
struct gpi_s {
    std::uint8_t port = 0;    // from 1
    std::uint8_t signal = 0;  // 1 "HIGH", 0 "LOW"
    std::uint16_t debounceTime = 0;

    bool operator==(const gpi_s&) const = default;
};

// A range of words of one bank; both 0: the whole bank.
struct memory_Access_s {
    std::uint32_t wordOffset = 0;
    std::uint8_t wordCount = 0;

    bool operator==(const memory_Access_s&) const = default;
};

// When the radio leaves an antenna.
struct antennaStopCondition_s {
    antenna_stop_type_e type{};
    std::uint16_t value = 0;
    gpi_s gpi;  // used by type GPI only

    bool operator==(const antennaStopCondition_s&) const = default;
};

// One set of Gen2 Query parameters as the client wrote it.
struct query_s {
    std::uint8_t sel = 0;      // 0 ALL, 2 NOT_SL, 3 SL
    std::uint8_t session = 0;  // 0 to 3: S0 to S3
    std::uint8_t target = 0;   // 0 A, 1 B, 2 AB
    std::uint32_t tagPopulation = 0;
    std::uint8_t inventoryParamId = 0;  // place in `inventoryParams`, from 1; in `queryList` only

    bool operator==(const query_s&) const = default;
};

// The same as the engine takes it; written into an INVENTORY_OP_s with enable 1.
struct c1g2_info_s {
    std::uint8_t sel = 0;
    std::uint8_t session = 0;
    std::uint8_t target = 0;
    std::uint8_t initialQ = 0;  // 0 to 15

    bool operator==(const c1g2_info_s&) const = default;
};

// One Gen2 Select as the client wrote it.
struct select_s {
    std::uint8_t target = 0;    // 0 to 3: S0 to S3, 4: SL
    std::uint8_t action = 0;    // 0 to 7
    std::uint8_t membank = 0;   // EPC_GEN2_MB_e
    std::uint32_t pointer = 0;  // bits
    std::uint32_t length = 0;   // bits
    std::vector<std::uint8_t> mask;
    std::uint32_t truncate = 0;
    std::uint8_t selectIndex = 0;  // place in `uniqueSelects`, from 1

    bool operator==(const select_s&) const = default;
};

// One access as the client wrote it. Only the fields of its type mean anything.
struct ACCESS_CMD_S {
    access_cmd_type_e type{};
    std::uint8_t accessIndex = 0;  // place in `uniqueAccesses`, from 1
    std::uint8_t readMembank = 0;  // EPC_GEN2_MB_e
    std::uint16_t readWordPointer = 0;
    std::uint8_t readWordCount = 0;  // 0: the whole bank
    std::uint8_t writeMembank = 0;   // EPC_GEN2_MB_e
    std::uint16_t writeWordPointer = 0;
    std::uint8_t writeBlockSize = 0;  // 0: no block write
    std::vector<std::uint16_t> writeData;
    std::uint32_t lockPayload = 0;  // the 20 bits of Gen2 Lock: mask high, action low
    std::uint32_t accessPassword = 0;
    std::uint32_t killPassword = 0;

    bool operator==(const ACCESS_CMD_S&) const = default;
};

// Which tags are reported, by their EPC. Read directly by the tag path.
struct tagFilter_s {
    std::uint8_t enabled = 0;
    filter_match_e match{};
    filter_operation_e operation{};
    std::string value;                                 // the client's text
    std::shared_ptr<const filter_expression_s> regex;  // of type REGEX, shared by copies
    std::array<std::uint8_t, 64> pattern{};            // prefix or suffix
    std::uint8_t patternLength = 0;                    // bytes of `pattern` that count
};

struct rssiFilter_s {
    std::int8_t threshold = 0;  // dBm; RSSI_FILTER_OFF: no filter

    bool operator==(const rssiFilter_s&) const = default;
};

struct delay_between_antenna_cycles_s {
    antenna_delay_type_e type{};
    std::uint8_t duration = 0;  // ms

    bool operator==(const delay_between_antenna_cycles_s&) const = default;
};

struct inventoryInterval_s {
    interval_unit_e unit{};
    std::uint32_t value = 0;

    bool operator==(const inventoryInterval_s&) const = default;
};

struct portalConfig_s {
    gpi_s startTrigger;
    std::uint16_t stopInterval = 0;  // s without a new tag

    bool operator==(const portalConfig_s&) const = default;
};

struct portalDirConfig_s {
    std::uint8_t enabled = 0;
    double aarHeight = 0;  // of the array reader
    double tagHeight = 0;
    std::int32_t staticVDynamic = 0;
    QDX_BEAM_POL_e polarization{};

    bool operator==(const portalDirConfig_s&) const = default;
};

struct bearingConfig_s {
    std::uint8_t enabled = 0;
    QDX_BEAM_POL_e polarization{};

    bool operator==(const bearingConfig_s&) const = default;
};

struct radioStartConditions_s {
    radio_start_type_e type{};
    std::vector<gpi_s> gpis;

    bool operator==(const radioStartConditions_s&) const = default;
};

// When the radio stops by itself; a number of 0 takes no part.
struct radioStopConditions_s {
    std::uint32_t duration = 0;          // ms
    std::uint16_t olioLoops = 0;         // antenna cycles
    std::uint16_t tagCount = 0;          // tags, up to 57344
    std::uint16_t noMoreUniqueTags = 0;  // s after the last new tag, up to 4095
    std::vector<gpi_s> gpis;

    bool operator==(const radioStopConditions_s&) const = default;
};

// Duplicate suppression.
struct reportFilter_s {
    report_filter_type_e type{};
    std::uint32_t duration = 0;         // s; REPORT_FILTER_FOR_EVER: for ever
    std::vector<std::string> addlKeys;  // what identifies a tag beside its EPC

    bool operator==(const reportFilter_s&) const = default;
};

// --- The record.
//
// Of a single value and its per-antenna list exactly one is in force: a list
// that is not empty wins, and has as many entries as `antennas`. `readMemory`
// always has four rows, one for each bank. At most one of `selectList` and
// `selectListPerAntenna` is filled, and of `accessList` and
// `accessListPerAntenna`.
struct mode_configuration_s {
    MODE_TYPE_e modeType{};
    std::string modeTypeName;                   // its word, for messages
    std::vector<std::uint32_t> antennas;        // ports; beam ids on the array reader
    bool usesBeams = false;                     // the client gave "beams"
    std::uint32_t customFieldsBitMask = 0;      // RXE_FIELD_*
    std::string userDefined;                    // copied into each tag report
    std::vector<std::string> antennaPortNames;  // one for each port
    bool reportChannel = false;
    bool reportAntenna = false;
    bool reportPC = false;
    bool reportXPC = false;
    bool reportCRC = false;
    bool reportHeatmap = false;
    bool reportMAC = false;
    bool reportHostName = false;
    bool decodeTagUri = false;
    bool decodeEpcUri = false;
    std::vector<std::vector<memory_Access_s>> readMemory;  // word ranges read with each tag, row is the bank
    tagFilter_s tagFilter;
    inventoryInterval_s inventoryInterval;
    portalConfig_s portalConfig;
    portalDirConfig_s portalDirConfig;
    bearingConfig_s bearingConfig;
    std::int16_t transmitPowerX10 = 0;
    std::vector<std::int16_t> transmitPowerX10List;
    std::uint16_t linkProfile = 0;
    std::vector<std::uint16_t> linkProfileList;
    ENVIRONMENT_PARAMS_e environment{};
    antennaStopCondition_s antennaStopCondition;
    std::vector<antennaStopCondition_s> antennaStopConditionList;
    query_s query;
    std::vector<c1g2_info_s> inventoryParams;  // the distinct sets of `queryList`
    std::vector<query_s> queryList;
    std::vector<select_s> selectList;
    std::vector<std::vector<select_s>> selectListPerAntenna;
    std::vector<SELECT_OP_s> uniqueSelects;     // the engine's selects, ids from 1
    std::vector<std::uint32_t> selectBitMasks;  // for each antenna, bit n-1: select n
    std::vector<ACCESS_CMD_S> accessList;
    std::vector<std::vector<ACCESS_CMD_S>> accessListPerAntenna;
    std::vector<ACCESS_OP_s> uniqueAccesses;    // the engine's accesses, ids from 1
    std::vector<std::uint64_t> accessBitMasks;  // for each antenna; see accessMaskBit
    std::uint8_t blockSize = 0;                 // words of a block write, 0 for none
    std::uint32_t delayAfterSelects = 0;        // ms
    radioStartConditions_s radioStartConditions;
    radioStopConditions_s radioStopConditions;
    reportFilter_s reportFilter;
    rssiFilter_s rssiFilter;
    delay_between_antenna_cycles_s delayBetweenAntennaCycles;
};

// The mode in force. Main thread. All zero until the first mode request has passed.
extern mode_configuration_s mode_configuration;

// --- Limits.

inline constexpr std::size_t MODE_MAX_ANTENNAS = 1023;       // entries of `antennas`
inline constexpr std::size_t MODE_MAX_UNIQUE_SELECTS = 32;   // of `uniqueSelects`
inline constexpr std::size_t MODE_MAX_UNIQUE_ACCESSES = 64;  // of `uniqueAccesses`
inline constexpr std::uint8_t MODE_MAX_INITIAL_Q = 15;
inline constexpr std::size_t MODE_MAX_WRITE_WORDS = 255;  // of one WRITE

// --- The record as a whole.

// Gives the global record its four rows of `readMemory`. Main thread, once, first.
void initMode();

// Makes `to` equal to `from`, with no vector shared and no trace of what `to`
// held; only the compiled expression of the tag filter is shared. Both may be
// the same record. The same holds for the copies of single records below; of a
// tag filter's pattern only the stated length is copied, the rest becomes 0.
void copyModeConfiguration(const mode_configuration_s* from, mode_configuration_s* to);
void copyTagFilter(const tagFilter_s* from, tagFilter_s* to);
void copyReadMemory(const std::vector<std::vector<memory_Access_s>>* from,
                    std::vector<std::vector<memory_Access_s>>* to);
void copyRadioStartConditions(const radioStartConditions_s* from, radioStartConditions_s* to);
void copyRadioStopConditions(const radioStopConditions_s* from, radioStopConditions_s* to);
void copyReportFilter(const reportFilter_s* from, reportFilter_s* to);
void copyQuery(const query_s* from, query_s* to);
void copyInventory(const inventoryInterval_s* from, inventoryInterval_s* to);
void copyPortal(const portalConfig_s* from, portalConfig_s* to);
void copyPortalDir(const portalDirConfig_s* from, portalDirConfig_s* to);
void copyBearingConfig(const bearingConfig_s* from, bearingConfig_s* to);
void copyAntennaStopCondition(const antennaStopCondition_s* from, antennaStopCondition_s* to);
void copyRSSIFilter(const rssiFilter_s* from, rssiFilter_s* to);
void copyDelayBetweenAntCycles(const delay_between_antenna_cycles_s* from,
                               delay_between_antenna_cycles_s* to);
