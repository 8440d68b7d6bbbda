// SPDX-License-Identifier: MIT
// The operating mode: what the reader does between a client's `start` and
// `stop`. One record, `mode_configuration`, is the mode in force. A mode request
// fills a local record (defaults first, then the client's keys), which replaces the
// global one when every rule has passed and the engine has taken it.
//
//   request text  ► parseModeRequest (mode/language.hpp)   a local record
//   local record  ► configureRXEForMode (apply/apply.hpp)  parameters of the engine
//                 ► copyModeConfiguration                  `mode_configuration`
//                 ► publishReportPlan (radio.hpp)          the plan of the engine thread
//
// Threads: the record belongs to the main thread. The engine thread reads the report plan
// in its place.
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

// --- Enums of the record. The engine has other numbers for stop rules and accesses: apply/ and
// engine_records.hpp convert them.

// The word of "type": which defaults a mode starts from (mode/defaults.hpp).
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
    NONE = 0,  // without one: an empty record, or a beam id outside the grids
    TOTAL = 1000,
    THETA = 2000,
    PHI = 3000,
    RHCP = 4000,
    LHCP = 5000,
};

// Memory bank of a tag (EPC Gen2, 6.3.2.1). The bank is also the row of `readMemory`. Words of 16
// bits:
//   RESERVED  kill password 0 and 1, access password 2 and 3
//   EPC       CRC 0, PC 1, EPC from 2 on, XPC from 33 on
//   TID       maker and model of the chip, often a serial number
//   USER      the user's own
enum class EPC_GEN2_MB_e : std::uint8_t { RESERVED = 0, EPC = 1, TID = 2, USER = 3 };
// By bank.
inline constexpr std::array<std::string_view, 4> EPC_GEN2_MB_strings{"RESERVED", "EPC", "TID", "USER"};
// The order in which banks are read.
inline constexpr std::array EPC_GEN2_MBs{
    EPC_GEN2_MB_e::RESERVED,
    EPC_GEN2_MB_e::EPC,
    EPC_GEN2_MB_e::TID,
    EPC_GEN2_MB_e::USER,
};

// What makes the radio go on to the next antenna; `value` of antennaStopCondition_s.
enum class antenna_stop_type_e : std::uint32_t {
    DURATION = 0,                           // ms
    INVENTORY_COUNT = 1,                    // inventory rounds
    SINGLE_INVENTORY_LIMITED_DURATION = 2,  // one inventory round, or this many ms
    GPI = 3,                                // the level of an input
};

// Whether a tag that was reported on one antenna may be reported on another.
enum class report_filter_type_e : std::uint32_t { RADIO_WIDE = 0, PER_ANTENNA = 1, NONE = 2 };
// GPI starts the radio once after a `start`, GPI_WITH_RESTART each time that the input fires.
enum class radio_start_type_e : std::uint32_t { GPI = 0, GPI_WITH_RESTART = 1, NONE = 2 };
// A prefix becomes a Select, so the engine applies it too; the other two are the daemon's alone.
enum class filter_match_e : std::uint32_t { PREFIX = 0, SUFFIX = 1, REGEX = 2 };
// Whether the tags that match are reported, or all others.
enum class filter_operation_e : std::uint32_t { INCLUDE = 0, EXCLUDE = 1 };
enum class interval_unit_e : std::uint8_t { SECONDS = 0, MINUTES = 1, HOURS = 2, DAYS = 3 };
// The access commands of Gen2 (EPC Gen2, 6.3.2.12.3). ACCESS gives the access password. These are
// the numbers of the record; those of the engine are RXE_ACCESS_*.
enum class access_cmd_type_e : std::uint8_t { READ = 0, WRITE = 1, ACCESS = 2, LOCK = 3, KILL = 4 };

// --- Small records.

// One rule about an input: it holds once the level has lasted for the debounce time.
struct gpi_s {
    // 1 to the number of inputs: 4 on the PN8200, 2 elsewhere.
    std::uint8_t port = 0;
    // 1 "HIGH", 0 "LOW".
    std::uint8_t signal = 0;
    // ms.
    std::uint16_t debounceTime = 0;

    bool operator==(const gpi_s&) const = default;
};

// A range of words of one bank; both 0: the whole bank. A word has 16 bits.
struct memory_Access_s {
    // From 0; the engine gets the low 16 bits.
    std::uint32_t wordOffset = 0;
    // 1 to 255.
    std::uint8_t wordCount = 0;

    bool operator==(const memory_Access_s&) const = default;
};

// When the radio leaves an antenna.
struct antennaStopCondition_s {
    antenna_stop_type_e type{};
    // ms or inventory rounds, by type; not used by type GPI.
    std::uint16_t value = 0;
    // Used by type GPI only.
    gpi_s gpi;

    bool operator==(const antennaStopCondition_s&) const = default;
};

// One set of Gen2 Query parameters (EPC Gen2, 6.3.2.12.2.1) as the client wrote it.
struct query_s {
    // Which tags answer, by their flag SL: 0 ALL, 2 NOT_SL, 3 SL.
    std::uint8_t sel = 0;
    // 0 to 3: S0 to S3. With target A a tag that was read has flag B in this session: in S0 until
    // it loses the carrier, in S1 for 0.5 to 5 s, in S2 and S3 while it has the carrier and more
    // than 2 s longer (EPC Gen2 v1.2.0, table 6.14).
    std::uint8_t session = 0;
    // The inventoried flag of the tags that answer: 0 A, 1 B, 2 A and B in turn.
    std::uint8_t target = 0;
    // Tags that the client expects; the initial Q follows from it (initialQForPopulation).
    std::uint32_t tagPopulation = 0;
    // Place in `inventoryParams`, from 1; in `queryList` only.
    std::uint8_t inventoryParamId = 0;

    bool operator==(const query_s&) const = default;
};

// The same as the engine takes it; written into an INVENTORY_OP_s with enable 1.
struct c1g2_info_s {
    std::uint8_t sel = 0;
    std::uint8_t session = 0;
    std::uint8_t target = 0;
    // The first round has 2^Q slots, Q 0 to 15.
    std::uint8_t initialQ = 0;

    bool operator==(const c1g2_info_s&) const = default;
};

// One Gen2 Select (EPC Gen2, 6.3.2.12.1.1) as the client wrote it.
struct select_s {
    // The flag that it changes. 0 to 3: the inventoried flag of S0 to S3, 4: SL.
    std::uint8_t target = 0;
    // Gen2 action code: the flag of tags that match, and of those that do not; - for no change. For
    // SL read "set" for A and "not set" for B.
    //   0 A, B   1 A, -   2 -, B   3 other, -   4 B, A   5 B, -   6 -, A   7 -, other
    std::uint8_t action = 0;
    // EPC_GEN2_MB_e.
    std::uint8_t membank = 0;
    // First bit of the bank that is compared, 0 to 65535.
    std::uint32_t pointer = 0;
    // Bits that are compared, 0 to 255.
    std::uint32_t length = 0;
    // Most significant bit first. Quirk: one byte less than the whole bytes of `length` when that is
    // not a multiple of 8, so 20 bits have 1 byte.
    std::vector<std::uint8_t> mask;
    // The engine gets the low 16 bits.
    std::uint32_t truncate = 0;
    // Place in `uniqueSelects`, from 1.
    std::uint8_t selectIndex = 0;

    bool operator==(const select_s&) const = default;
};

// One access as the client wrote it. Only the fields of its type mean anything.
struct ACCESS_CMD_S {
    access_cmd_type_e type{};
    // Place in `uniqueAccesses`, from 1.
    std::uint8_t accessIndex = 0;

    // READ. Pointers count words of 16 bits from 0; a count of 0 reads to the end of the bank.
    std::uint8_t readMembank = 0;  // EPC_GEN2_MB_e
    std::uint16_t readWordPointer = 0;
    std::uint8_t readWordCount = 0;

    // WRITE. A request gives up to 127 words. A block size of 1 to 127 words asks for block
    // writes, 0 for writes of one word after the other.
    std::uint8_t writeMembank = 0;  // EPC_GEN2_MB_e
    std::uint16_t writeWordPointer = 0;
    std::uint8_t writeBlockSize = 0;
    std::vector<std::uint16_t> writeData;

    // The 20 bits of Gen2 Lock (EPC Gen2, 6.3.2.12.3.5): mask in bits 19 to 10, action in bits 9
    // to 0. Both have two bits each for kill password, access password, EPC, TID and USER, from the
    // high bits down: locked, and locked or unlocked for ever.
    std::uint32_t lockPayload = 0;
    // Both passwords as a number: "12345678" is 0x12345678.
    std::uint32_t accessPassword = 0;
    std::uint32_t killPassword = 0;

    bool operator==(const ACCESS_CMD_S&) const = default;
};

// Which tags are reported, by their EPC. The report plan has a copy for the tag path.
struct tagFilter_s {
    // 0 or 1. All tags are reported without a filter.
    std::uint8_t enabled = 0;
    filter_match_e match{};
    filter_operation_e operation{};
    // The client's text, at most 133 characters.
    std::string value;
    // Of type REGEX; constant, and shared by copies. Null for the other types.
    std::shared_ptr<const filter_expression_s> regex;
    // The bytes of a prefix or a suffix, of which the first `patternLength` count.
    std::array<std::uint8_t, 64> pattern{};
    std::uint8_t patternLength = 0;
};

// The radio ignores replies that are weaker than this.
struct rssiFilter_s {
    // dBm; RSSI_FILTER_OFF turns the filter off.
    std::int8_t threshold = 0;

    bool operator==(const rssiFilter_s&) const = default;
};

// How long the transmitter rests between two passes over the antennas.
struct delay_between_antenna_cycles_s {
    antenna_delay_type_e type{};
    // ms; 0 with type DISABLED, and only with that.
    std::uint8_t duration = 0;

    bool operator==(const delay_between_antenna_cycles_s&) const = default;
};

// How often an INVENTORY mode reports a tag. In seconds it fits 32 bits.
struct inventoryInterval_s {
    interval_unit_e unit{};
    // In this unit.
    std::uint32_t value = 0;

    bool operator==(const inventoryInterval_s&) const = default;
};

// The settings of a PORTAL mode. Those that the engine gets are in `radioStartConditions` and
// `radioStopConditions` as well.
struct portalConfig_s {
    gpi_s startTrigger;
    // Seconds without a new tag after which the radio stops.
    std::uint16_t stopInterval = 0;

    bool operator==(const portalConfig_s&) const = default;
};

// The settings of a PORTAL_DIRECTIONALITY mode.
struct portalDirConfig_s {
    std::uint8_t enabled = 0;
    // Heights of the array reader and of the tags, 0 to 50; the engine gets tenths.
    double aarHeight = 0;
    double tagHeight = 0;
    // The threshold between static and moving tags, 0 or more; the engine gets the low 8 bits.
    std::int32_t staticVDynamic = 0;
    QDX_BEAM_POL_e polarization{};

    bool operator==(const portalDirConfig_s&) const = default;
};

// The settings of a BEARING mode.
struct bearingConfig_s {
    std::uint8_t enabled = 0;
    QDX_BEAM_POL_e polarization{};

    bool operator==(const bearingConfig_s&) const = default;
};

// What starts the radio after a `start`; with type NONE it starts at once.
struct radioStartConditions_s {
    radio_start_type_e type{};
    // Each port at most once.
    std::vector<gpi_s> gpis;

    bool operator==(const radioStartConditions_s&) const = default;
};

// When the radio stops by itself: as soon as one of the parts fires. A number of 0 is not a part.
struct radioStopConditions_s {
    // ms; the request gives seconds.
    std::uint32_t duration = 0;
    // Passes over all antennas.
    std::uint16_t olioLoops = 0;
    // Tags, up to 57344, or seconds after the last new tag, up to 4095. One of the two is 0, since
    // the engine has one number for both.
    std::uint16_t tagCount = 0;
    std::uint16_t noMoreUniqueTags = 0;
    // Each port at most once.
    std::vector<gpi_s> gpis;

    bool operator==(const radioStopConditions_s&) const = default;
};

// Duplicate suppression: by the engine, or with `addlKeys` by the daemon (additional_config.hpp).
struct reportFilter_s {
    report_filter_type_e type{};
    // Seconds for which a tag is not reported again; REPORT_FILTER_FOR_EVER: until the next start.
    std::uint32_t duration = 0;
    // What tells tags with the same EPC apart: nothing, or "TID".
    std::vector<std::string> addlKeys;

    bool operator==(const reportFilter_s&) const = default;
};

// The words of "tagMetaData" for which the radio need not be asked; for the others there is
// `customFieldsBitMask`. The report plan has a copy.
struct report_switches_s {
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
};

// --- The record.
//
// Of a single value and its per-antenna list exactly one is in force: a list
// that is not empty wins, and has as many entries as `antennas`. `readMemory`
// always has four rows, one for each bank. At most one of `selectList` and
// `selectListPerAntenna` is filled, and of `accessList` and
// `accessListPerAntenna`.
struct mode_configuration_s : report_switches_s {
    MODE_TYPE_e modeType{};
    // Its word, for messages.
    std::string modeTypeName;

    // Ports from 1, or beam ids on the array reader, in the order in which they are visited; 1 to
    // MODE_MAX_ANTENNAS of them, each any number of times.
    std::vector<std::uint32_t> antennas;
    // The client gave "beams": the rendering shows directions and not ids.
    bool usesBeams = false;

    // What a tag report holds. RXE_FIELD_*: the fields that the engine sends with a tag.
    std::uint32_t customFieldsBitMask = 0;
    // Copied into each tag report; empty for none.
    std::string userDefined;
    std::vector<std::string> antennaPortNames;  // one for each port
    // Word ranges that are read with each tag; the row is the bank.
    std::vector<std::vector<memory_Access_s>> readMemory;
    tagFilter_s tagFilter;

    // Settings of one mode type each.
    inventoryInterval_s inventoryInterval;
    portalConfig_s portalConfig;
    portalDirConfig_s portalDirConfig;
    bearingConfig_s bearingConfig;

    // 0 to reader_facts_s::max_tx_pwr_x_10.
    std::int16_t transmitPowerX10 = 0;
    std::vector<std::int16_t> transmitPowerX10List;
    // RXE_LINK_PROFILES. In force when `environment` is NOT_USED; otherwise the profile follows from
    // the environment and the region.
    std::uint16_t linkProfile = 0;
    std::vector<std::uint16_t> linkProfileList;
    ENVIRONMENT_PARAMS_e environment{};
    antennaStopCondition_s antennaStopCondition;
    std::vector<antennaStopCondition_s> antennaStopConditionList;

    query_s query;
    // The distinct sets of `queryList`.
    std::vector<c1g2_info_s> inventoryParams;
    std::vector<query_s> queryList;

    // The selects as the client wrote them, and as the engine gets them: one pool with ids from 1,
    // and for each antenna a mask in which bit n-1 is select n. The masks are empty for a flat list.
    std::vector<select_s> selectList;
    std::vector<std::vector<select_s>> selectListPerAntenna;
    std::vector<SELECT_OP_s> uniqueSelects;
    std::vector<std::uint32_t> selectBitMasks;
    // The same for accesses; the bits of the masks are those of accessMaskBit.
    std::vector<ACCESS_CMD_S> accessList;
    std::vector<std::vector<ACCESS_CMD_S>> accessListPerAntenna;
    std::vector<ACCESS_OP_s> uniqueAccesses;
    std::vector<std::uint64_t> accessBitMasks;
    // Words of one operation of a block write, 1 to 127; 0 when no access asks for one. The engine
    // has one number for all accesses.
    std::uint8_t blockSize = 0;
    // ms, 0 to 65.
    std::uint32_t delayAfterSelects = 0;

    radioStartConditions_s radioStartConditions;
    radioStopConditions_s radioStopConditions;
    reportFilter_s reportFilter;
    rssiFilter_s rssiFilter;
    delay_between_antenna_cycles_s delayBetweenAntennaCycles;
};

// The mode in force. Main thread. All zero until the first mode request has passed.
extern mode_configuration_s mode_configuration;

// --- Limits.

// Entries of `antennas`: each needs an olio of the engine, which has as many.
inline constexpr std::size_t MODE_MAX_ANTENNAS = 1023;
// Entries of `uniqueSelects`: the bits of a select mask.
inline constexpr std::size_t MODE_MAX_UNIQUE_SELECTS = 32;
// Entries of `uniqueAccesses`: the bits of an access mask.
inline constexpr std::size_t MODE_MAX_UNIQUE_ACCESSES = 64;
// Q has four bits in the Query command.
inline constexpr std::uint8_t MODE_MAX_INITIAL_Q = 15;
// Of one WRITE: the engine counts them in a byte.
inline constexpr std::size_t MODE_MAX_WRITE_WORDS = 255;

// --- The record as a whole.

// Gives the global record its four rows of `readMemory`. Main thread, once, before any other use.
void initMode();

// Makes `to` equal to `from`, with no vector shared and no trace of what `to`
// held; only the compiled expression of the tag filter is shared. Both may be
// the same record. The same holds for the copies of single records below; of a
// tag filter's pattern only the first `patternLength` bytes are copied, the rest become 0.
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
