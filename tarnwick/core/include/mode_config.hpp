// SPDX-License-Identifier: MIT
// The operating mode: what the reader does between a client's `start` and
// `stop`. One record, `mode_configuration`, is the mode in force. A mode request
// fills a local record (defaults first, then the client's keys) and replaces the
// global one only when every rule has passed.
//
// Threads: the record and its accessors belong to the main thread. What the engine thread
// needs of the mode is the report plan (radio.hpp).
//
// Units, throughout: power in tenths of dBm (names that end in X10), antennas
// and ports count from 1, positions in a per-antenna list count from 0.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <vector>

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

// Row of the link profile tables.
enum class ENVIRONMENT_PARAMS_e : std::uint8_t {
    LOW_INTERFERENCE = 0,
    HIGH_INTERFERENCE = 1,
    VERY_HIGH_INTERFERENCE = 2,
    AUTO_DETECT = 3,
    DEMO = 4,
    NOT_USED = 5,  // the client gave link profiles instead; never a client's word
};
inline constexpr std::array<std::string_view, 6> ENVIRONMENT_PARAMS_strings{
    "LOW_INTERFERENCE", "HIGH_INTERFERENCE", "VERY_HIGH_INTERFERENCE", "AUTO_DETECT", "DEMO", "NOT_USED",
};
inline constexpr std::array ENVIRONMENT_PARAMs{
    ENVIRONMENT_PARAMS_e::LOW_INTERFERENCE,
    ENVIRONMENT_PARAMS_e::HIGH_INTERFERENCE,
    ENVIRONMENT_PARAMS_e::VERY_HIGH_INTERFERENCE,
    ENVIRONMENT_PARAMS_e::AUTO_DETECT,
    ENVIRONMENT_PARAMS_e::DEMO,
    ENVIRONMENT_PARAMS_e::NOT_USED,
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

// How the mode in force is rendered for a client.
enum class GET_CURRENT_MODE_METHOD_e : std::uint8_t {
    DEFAULT = 0,  // only what differs from the defaults of the mode type
    VERBOSE = 1,  // nearly everything
    AS_SET = 2,   // the object that the client sent
};

enum class antenna_stop_type_e : std::uint32_t {
    DURATION = 0,
    INVENTORY_COUNT = 1,
    SINGLE_INVENTORY_LIMITED_DURATION = 2,
    GPI = 3,
};

enum class report_filter_type_e : std::uint32_t { RADIO_WIDE = 0, PER_ANTENNA = 1, NONE = 2 };
enum class radio_start_type_e : std::uint32_t { GPI = 0, GPI_WITH_RESTART = 1, NONE = 2 };
enum class antenna_delay_type_e : std::uint32_t { DISABLED = 0, NO_TAGS = 1, NO_UNIQUE_TAGS = 2 };
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

// The last accepted request, in the working directory: {"mode": {...}}.
inline constexpr const char* modeFile = "mode_config.json";

// --- Limits.

inline constexpr std::size_t MODE_MAX_ANTENNAS = 1023;       // entries of `antennas`
inline constexpr std::size_t MODE_MAX_UNIQUE_SELECTS = 32;   // of `uniqueSelects`
inline constexpr std::size_t MODE_MAX_UNIQUE_ACCESSES = 64;  // of `uniqueAccesses`
inline constexpr std::uint8_t MODE_MAX_INITIAL_Q = 15;
inline constexpr std::size_t MODE_MAX_WRITE_WORDS = 255;  // of one WRITE

// --- Defaults.

// The beams of one cycle of the array reader, ids of the coarse grid. 397, the
// boresight beam, stands twice: it is visited twice in each cycle.
inline constexpr std::array<std::uint16_t, 38> DEFAULT_BEAMS_QDX{
    397, 325, 329, 363, 333, 337, 371, 341, 345, 355, 326, 330, 365, 334, 338, 349, 342, 346, 357,
    397, 327, 331, 367, 335, 339, 351, 343, 347, 359, 328, 332, 369, 336, 340, 353, 344, 348, 361,
};

// The beams of one cycle when bearings are wanted: offsets of the fine grid, to
// which a polarization is added. 897, the boresight, stands twice here too.
inline constexpr std::array<std::uint16_t, 50> DEFAULT_BEAMS_QDX_BEARING{
    897, 361, 381, 401, 595, 421, 369, 389, 583, 409, 429, 377, 643, 397, 417, 365, 631,
    385, 405, 425, 619, 373, 393, 413, 607, 897, 363, 383, 403, 601, 423, 371, 391, 589,
    411, 431, 379, 577, 399, 419, 367, 637, 387, 407, 427, 625, 375, 395, 415, 613,
};

inline constexpr auto DEFAULT_ENVIRONMENT_PARAM = ENVIRONMENT_PARAMS_e::HIGH_INTERFERENCE;
inline constexpr auto DEFAULT_ANTENNA_STOP_CONDITION_TYPE =
    antenna_stop_type_e::SINGLE_INVENTORY_LIMITED_DURATION;
inline constexpr std::uint8_t DEFAULT_QUERY_SEL = 0;                            // ALL
inline constexpr std::uint8_t DEFAULT_QUERY_SESSION = 1;                        // S1
inline constexpr std::uint8_t DEFAULT_QUERY_SESSION_BEARING = 0;                // S0
inline constexpr std::uint8_t DEFAULT_QUERY_SESSION_PORTAL_DIRECTIONALITY = 0;  // S0
inline constexpr std::uint8_t DEFAULT_QUERY_TARGET = 0;                         // A
inline constexpr auto DEFAULT_REPORT_FILTER_TYPE = report_filter_type_e::RADIO_WIDE;

inline constexpr std::int16_t DEFAULT_TX_POWER_X10 = 270;
inline constexpr std::int16_t DEFAULT_TX_POWER_X10_QDX = 360;
inline constexpr std::uint16_t DEFAULT_LINK_PROFILE = 201;
inline constexpr std::uint16_t MIN_ANTENNA_STOP_DURATION = 125;  // ms
inline constexpr std::int8_t RSSI_FILTER_OFF = -128;
inline constexpr std::uint32_t REPORT_FILTER_FOR_EVER = 0xFFFFFFFF;
inline constexpr std::uint8_t DEFAULT_DELAY_BETWEEN_ANT_CYCLES = 75;  // ms
inline constexpr auto DEFAULT_INVENTORY_INTERVAL_UNIT = interval_unit_e::MINUTES;
inline constexpr std::uint32_t DEFAULT_INVENTORY_INTERVAL = 1;
inline constexpr std::uint8_t DEFAULT_PORTAL_START_PORT = 1;  // its signal is LOW, its debounce time 0
inline constexpr std::uint16_t DEFAULT_PORTAL_STOP_INTERVAL = 3;
inline constexpr double DEFAULT_AAR_HEIGHT = 15.0;
inline constexpr double DEFAULT_TAG_HEIGHT = 3.0;
inline constexpr std::int32_t DEFAULT_STATIC_V_DYNAMIC = 0;
inline constexpr auto DEFAULT_BEAM_POLARIZATION = QDX_BEAM_POL_e::LHCP;

// Reported with each tag in every mode type: 0x3C01.
inline constexpr std::uint32_t DEFAULT_CUSTOM_FIELDS =
    RXE_FIELD_EPC | RXE_FIELD_PC | RXE_FIELD_XPC1 | RXE_FIELD_XPC2 | RXE_FIELD_CRC;

// What a mode type changes in the defaults of SIMPLE. `overlay` is applied to a
// record that setDefaultMode has filled; it also sets the type and its name.
struct mode_type_s {
    MODE_TYPE_e type;
    std::string_view word;            // of the key "type"
    std::string_view deprecatedWord;  // of the key "mode"; empty for none
    std::uint32_t customFieldsBitMask;
    bool reportAntenna;
    report_filter_type_e reportFilterType;
    std::uint32_t reportFilterDuration;  // s
    std::uint8_t querySession;
    int (*overlay)(mode_configuration_s* mode);
};

// Puts a record, whatever it held, into the defaults of SIMPLE for this reader
// model and its antenna count; the polarization in `bearingConfig` alone stays.
// Main thread. All return 0.
int setDefaultMode(mode_configuration_s* mode);
int setDefaultInventoryMode(mode_configuration_s* mode);
int setDefaultPortalMode(mode_configuration_s* mode);
int setDefaultConveyorMode(mode_configuration_s* mode);
int setDefaultCustomMode(mode_configuration_s* mode);
int setDefaultBearingMode(mode_configuration_s* mode);
int setDefaultPortalDirMode(mode_configuration_s* mode);

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

// --- Requests (main thread).

// Command "mode": tokens[1] is absent, "verbose" or "as_set" for a rendering of
// the mode in force, else a request as JSON text. The outcome is in the reply.
// Returns 0.
int handleModeRequest(std::vector<std::string>* tokens, std::string* reply);

// Fills `root` with a request as JSON and `mode` with the defaults and the keys, all
// rules checked; the mode in force stays as it is. Returns 0, or a negative number
// with the failure text.
int parseModeRequest(const std::string& request, nlohmann::json* root, mode_configuration_s* mode,
                     std::string* reply);

// Makes a request the mode in force, on the engine too, or leaves all as it was.
// Fills `root` with the request as JSON. Returns 0 with the reply "Success", or a
// negative number with the failure text.
int applyModeRequest(const std::string& request, nlohmann::json* root, std::string* reply);

// Writes an accepted request to mode_config.json, for the next start and for
// "as_set". Until it is written whole the old file stands; a failure is logged.
void storeModeRequest(nlohmann::json&& root);

// Both. Returns what applyModeRequest returns; an unwritable file changes nothing.
int configMode(const std::string* request, std::string* reply);

// The mode in force as "Success: " and one line of JSON. Returns 0.
int getCurrentMode(std::string* reply, GET_CURRENT_MODE_METHOD_e method);

// --- Accessors. They read `mode_configuration`, unless they take a record; a
// null record means the global one. Main thread. Those that return an
// int return 0 unless another result is told.

MODE_TYPE_e getModeType();
int getAntennas(std::vector<std::uint32_t>* antennas);  // replaces the contents
int getEnvironment(ENVIRONMENT_PARAMS_e* environment);

// ms on each antenna so that a cycle takes a second: 1000 over the number of
// antennas, at least MIN_ANTENNA_STOP_DURATION; a record without antennas counts
// as one antenna.
std::uint16_t getDefaultAntennaStopConditionDuration(const mode_configuration_s* mode);

bool isRawSelectEnabled(const mode_configuration_s* mode = nullptr);  // the mode holds selects of the client
bool selectsPerAntenna(const mode_configuration_s* mode =
                           nullptr);  // they differ by antenna: getCurrentSelectBitMask tells which
// The select mask of antenna position `index`. Returns -1 past the end, *mask untouched.
int getCurrentSelectBitMask(std::size_t index, std::uint32_t* mask,
                            const mode_configuration_s* mode = nullptr);
int getDelayAfterSelects(std::uint32_t* delay);  // ms
int getModeBlockSize(std::uint8_t* blockSize);

bool accessesPerAntenna(const mode_configuration_s* mode = nullptr);  // the accesses differ by antenna
// The access mask of antenna position `index`. Returns -1 past the end, *mask untouched.
int getCurrentAccessBitMask(std::size_t index, std::uint64_t* mask,
                            const mode_configuration_s* mode = nullptr);

// The engine's GPI mask: for ports 1 to 4 bit n+3 says that the port takes part,
// bit n-1 that its level is high. Other ports add nothing.
std::uint8_t getGPIBitMask(const std::vector<gpi_s>* gpis);
std::uint16_t getGPIHoldTime(std::uint8_t port, const std::vector<gpi_s>* gpis);  // ms; 0 without a rule
std::uint8_t getPortalConfigGpioBitMask();  // the mask of the portal's start trigger

std::uint32_t getCustomFieldsBitMask();  // RXE_FIELD_*

// What a tag report holds.
bool isReportChannelEnabled();
bool isReportAntennaEnabled();
bool isReportPCEnabled();
bool isReportXPCEnabled();
bool isReportCRCEnabled();
bool isReportHeatmapEnabled();
bool isReportMACEnabled();
bool isReportHostNameEnabled();
bool isDecodeTagUriEnabled();
bool isDecodeEpcUriEnabled();
bool isUserDefinedDataEnabled();
// The texts stay valid until the next mode request.
const std::string& getUserDefinedData();
bool isAntennaPortMappingEnabled();
// The name of a port; empty for port 0, for a port past the reader's antennas or
// past the list.
const std::string& getAntennaPortMapping(std::uint8_t port);

bool isAccessEnabled(EPC_GEN2_MB_e bank, const mode_configuration_s* mode);  // words of this bank are read
bool isTagDataMemoryEnabled(const mode_configuration_s* mode);               // words of any bank are read
bool isAddlKeysConfigured(const mode_configuration_s* mode);
bool isAnyAccessEnabled(
    const mode_configuration_s* mode = nullptr);  // words are read, or the client gave accesses

int getTagFilter(tagFilter_s* filter);  // enabled, match, operation, value; the rest stays as it is
int getRSSIFilter(rssiFilter_s* filter);
int getDelayBetweenAntCycles(delay_between_antenna_cycles_s* delay);
int getPortalConfig(portalConfig_s* config);
int getPortalDirConfig(portalDirConfig_s* config);
int getReportFilter(reportFilter_s* filter);
int getRadioStartConditions(radioStartConditions_s* conditions);
int getRadioStopConditions(radioStopConditions_s* conditions);

// The interval in seconds. Returns -1 and stores 0 when it does not fit 32 bits;
// an unknown unit stores 0 and returns 0.
int getInventoryIntervalSeconds(const inventoryInterval_s* interval, std::uint32_t* seconds);

QDX_BEAM_POL_e getBearingPol(const bearingConfig_s* config);
bool isBearingEnabled();
bool isPortalDirEnabled();

// --- For the engine set-up. Main thread, radio stopped.
//
// Each replaces the vector's contents and returns the number of entries: one for
// each entry of `antennas`, but getInventoryParams one for each parameter set.
std::size_t getRequestedTxPwrX10(const mode_configuration_s& mode, std::vector<std::int16_t>* powers);
// Asks the management server for the region, once, unless the client gave link profiles.
std::size_t getLinkProfile(const mode_configuration_s& mode, std::vector<std::uint16_t>* linkProfiles);
std::size_t getInventoryParams(const mode_configuration_s& mode, std::vector<c1g2_info_s>* params);
std::size_t getInventoryParamIds(const mode_configuration_s& mode,
                                 std::vector<std::uint8_t>* ids);  // place in getInventoryParams, from 1

// The engine's stop rule of antenna position `index` (OLIO_s stopType and
// stopValue): 255 and 65535 past the end of a per-antenna list, 0 and 0 for an
// unknown type.
std::uint8_t getOlioStopConditionType(const mode_configuration_s& mode, std::uint16_t index);
std::uint16_t getOlioStopConditionValue(const mode_configuration_s& mode, std::uint16_t index);

// The selects of the mode and the mask of all of them. Returns -1, after the
// 33rd entry, when there are more than MODE_MAX_UNIQUE_SELECTS.
int getSelectParams(const mode_configuration_s& mode, std::uint32_t* mask, std::vector<SELECT_OP_s>* selects);

// The accesses of the mode, or the reads that its tag metadata ask for, and the
// mask of all of them. Returns -1, after the 65th entry, when there are more than
// MODE_MAX_UNIQUE_ACCESSES.
int getAccessParams(const mode_configuration_s& mode, std::uint64_t* mask,
                    std::vector<ACCESS_OP_s>* accesses);

// The bit of access position `index` (from 0) in an access mask. The mask is 64
// bits wide but its bits come of a 32-bit shift that is sign-extended, and that
// has become part of what a mode means: position 31 sets bit 31 and the whole
// upper word, positions from 32 on set nothing.
std::uint64_t accessMaskBit(std::size_t index);

// The engine's form of one access. A WRITE of one word carries the word in
// `wordCount`, a READ its word count in both bytes of it. Returns -1 and leaves
// *op as it is for a WRITE of no word or more than MODE_MAX_WRITE_WORDS, and for
// an unknown type.
int accessStructToAccessOpStruct(const ACCESS_CMD_S* access, ACCESS_OP_s* op);

// Q for an expected number of tags: its logarithm to base 2, truncated, at most
// MODE_MAX_INITIAL_Q; 0 for 0.
std::uint8_t initialQForPopulation(std::uint32_t tagPopulation);

// The link profile for an environment in the active region. Asks the management
// server for the region; when that fails, logs an error and returns 201.
std::uint16_t env_to_lP(std::uint8_t environment);

// The same from the facts: the channel width in kHz and name of the region, and
// whether the radio can choose a profile itself (asked of the QDX4400 only).
std::uint16_t linkProfileFor(std::string_view model, std::uint8_t environment, float channelWidth,
                             std::string_view region, bool autoDetect);

// --- Beams of the array reader. Any thread.
//
// Ids up to 1000 are of the coarse grid, from 1001 of the fine grid: polarization
// plus an offset of 1 to 897. Azimuth and elevation in degrees.

// -1 for an id that is not a beam; the elevation of fine offset 0 is 70 all the same.
short beam_to_az(short beam);
short beam_to_el(short beam);
QDX_BEAM_POL_e beam_to_pol(short beam);  // NONE for an id that has none

// The fine beam id, or 0 when there is no such beam. Elevation 0 is the boresight
// whatever the azimuth. Elevations are not tested for being a multiple of 5: from
// 11 up one counts as the next multiple above; 6 to 9 land among the ids of 10
// and 5, and 1 to 4 make ids beyond the grid.
std::uint16_t az_el_pol_to_beam(short azimuth, short elevation, QDX_BEAM_POL_e polarization);

// Between a polarization and its word. Return -1 for what is neither; the
// polarization stays as it is then, the word becomes empty.
int stringToQDX_BEAM_POL(const std::string* word, QDX_BEAM_POL_e* polarization);
int getPolarizationString(QDX_BEAM_POL_e polarization, std::string* word);

// Makes `antennas` the beams of DEFAULT_BEAMS_QDX_BEARING in this polarization.
void setBearingBeams(QDX_BEAM_POL_e polarization, std::vector<std::uint32_t>* antennas);
