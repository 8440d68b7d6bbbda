// SPDX-License-Identifier: MIT
// All that talks to the radio engine: connecting it and learning what this
// reader is, applying the operating mode, single engine parameters, and the
// engine's records as JSON.
//
// Everything here runs on the main thread unless a line says otherwise. What is
// marked "fixed" is written while the engine connects, before its callback is
// registered and before the radio thread starts, and may be read on any thread
// from then on.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "rxe.h"

struct mode_configuration_s;
struct radioStopConditions_s;

// ---------------------------------------------------------------- reader facts

// False when the process runs without a radio. Written by main() before any
// other thread exists.
extern bool use_rxe;

// The connection is complete; whether the radio answered when last asked.
// Main thread only.
extern bool RXE_connected_status;
extern bool RXE_still_connected;

// "PN5100", "PN5100-ASIC", "PN8200", "QDX4400" or any other; empty without a radio.
// What follows from it stands in reader_model.hpp. Fixed.
extern std::string modelName;

// Name of the active regulatory standard, such as "US FCC 15". Fixed.
extern std::string regulatory_standard;

// Antennas, or antenna elements on the array reader; 14 at most. Fixed.
extern std::uint16_t max_ants;

// What the reader claims to transmit and what the radio itself reports, in
// tenths of dBm. The second is the ceiling of setOlio. Fixed.
extern std::int16_t max_tx_pwr_x_10;
extern std::int16_t rxe_max_tx_pwr_x_10;

// Cable loss in tenths of a dB, by antenna number (entry 0 is the first element
// of the array reader). Fixed.
inline constexpr std::size_t portTableSize = 16;
extern std::array<std::int16_t, portTableSize> cable_loss_compensation_x_10;

// 0: 24 V supply, 1: PoE+, 2: PoE, else unknown. Fixed.
extern std::uint16_t power_source;

// What the firmware can do. Fixed.
extern bool rxeAntennaCheckSupported;
extern bool rssiFilterSupported;
extern bool dynamicRangeSupported;
extern bool cableLossSupported;
extern bool txDelayIntervalSupported;

// Link profiles the engine accepts. Constant.
extern const std::vector<std::uint16_t> RXEValidLPs;

// The channel table as found at start, and as this program believes it to be.
// After the snapshot channel n stands at n-1; enableChannel and disableChannel
// write at n, for which the last entry is there. Main thread only; another
// thread asks getChannelForChannelIdx.
inline constexpr std::size_t channelTableSize = RXE_MAX_CHANNELS + 1;
extern std::array<CHANNEL_s, channelTableSize> initial_channels;
extern std::array<CHANNEL_s, channelTableSize> current_channels;

// current_channels still equals the start-up table.
extern bool initial_channel_state;

// ------------------------------------------------- what the engine was told

// Main thread. What the engine thread needs of the accesses is in the report plan (radio.hpp).
inline constexpr std::size_t olioTableSize = RXE_MAX_OLIOS + 1;
inline constexpr std::size_t accessTableSize = RXE_MAX_ACCESSES + 2;

// By olio id: the record last written; all zero after a write with `enable` 0.
extern std::array<OLIO_s, olioTableSize> olios;

// By access id, entry 0 unused: the accesses of the mode in force.
extern std::array<ACCESS_OP_s, accessTableSize> enabledAccessOps;

// By olio id: bit n-1 set, access n runs in this olio.
extern std::array<std::uint64_t, olioTableSize> enabledAccessOpsPerOlio;

// How many entries of enabledAccessOps have `enable` set.
extern std::uint32_t accessParamsEnabledCount;

// Last argument of every RXE_setParam2: writes go through the library's shadow
// copy. True at start.
extern bool useRXEShadow;

// ---------------------------------------------------------------- name tables

// A packet type of the engine. `enabled` is whether this program has enabled
// it; the main thread alone reads and writes that.
struct packet_name_s {
    std::string_view name;
    std::uint16_t id;
    bool enabled;
};
extern const std::size_t nPackets;
extern const std::span<packet_name_s> packet_names;

// The row of a packet type id, or null. The name may be read on any thread.
packet_name_s* findPacket(std::uint16_t id);

// A field that tag packets may carry: one bit of parameter 9 and of TAG_INFO_s
// `fields`.
struct custom_field_name_s {
    std::string_view name;
    std::uint32_t bit;
};
inline constexpr std::size_t nCustomFields = 13;
extern const std::array<custom_field_name_s, nCustomFields> custom_field_names;

// Names of the bits set in `mask`, in table order. Any thread.
std::vector<std::string_view> getCustomFieldNames(std::uint32_t mask);

// ------------------------------------------------------- connection and features

// Connects the radio, learns what this reader is, takes the channel snapshot,
// registers the packet callback and applies the starting mode. Returns 0, or
// the status to report; the radio is then closed. Once, at start-up.
RXE_API_STATUS initRXEConnection();

// Why that failed, as one clause for the log.
const std::string& connectionFailureCause();

// Disconnects the engine, also where none was connected. RXE_connected_status stays as it
// is when the engine refuses. At shutdown, behind closeZMQSocketsForRadio.
void closeRXEConnection();

// Whether the radio still answers. Asks it only when no packet has come since
// the last call, so a running radio is never disturbed.
bool check_RXE_connection();

// Packets received since the previous call.
std::uint64_t get_num_RXE_packets_since_last_time();

// Feature tests on the firmware version. No state.
bool isRXEAntennaCheckSupported(const REL_VERSION_s* firmware);
bool isRSSIFilterSupported(const REL_VERSION_s* firmware);
bool isDynamicRangeSupported(const REL_VERSION_s* firmware);
bool isTxDelayIntervalSupported(const REL_VERSION_s* firmware);
bool isCableLossSupported(const REL_VERSION_s* firmware, const REL_VERSION_s* library);

// Asks the radio for its firmware version; false also when it does not answer.
bool isAutoDetectSupported();

// Any thread.
std::uint16_t getMaxAnts();
bool isValidAntenna(std::uint32_t antenna);  // on the array reader every value
bool isValidLP(std::uint16_t linkProfile);

// Fills initial_channels and current_channels from the radio. 0 or the status
// of the first failing read.
RXE_API_STATUS getInitialChannels();

// ------------------------------------------------------------ applying a mode

// Writes a mode into the engine; the mode in force stays as it is. Radio stopped. 0 with
// the reply "Success", or a negative code with the failure text; the engine then keeps
// what was written until the failure.
int configureRXEForMode(const mode_configuration_s& mode, std::string* reply);

// Brings the radio to a known state and applies the starting mode. Returns the
// status of the first of the two; a mode that fails counts a warning.
RXE_API_STATUS initialRXEConfiguration();

// Known state of the radio; with `full` packets, selects and accesses are wiped
// first. 0 or the status of the first failing write.
RXE_API_STATUS baselineRXEConfiguration(bool full);

// Writes olio `id` (1 to 1023; 0 with `enable` 0 clears all) and remembers it.
// `txPowerX10` is in tenths of dBm and limited to rxe_max_tx_pwr_x_10 with a
// warning. An id above 1023 is refused with status 1.
RXE_API_STATUS setOlio(std::uint16_t id, std::uint8_t enable, std::uint16_t txAntenna,
                       std::uint16_t rxAntenna, std::uint8_t stopType, std::uint16_t stopValue,
                       std::int16_t txPowerX10, std::uint32_t selectMask, std::uint8_t inventoryIndex,
                       std::uint64_t accessMask, std::uint16_t linkProfile);

// The radio-wide stop rule: `duration` and hold times in ms, 0 for none;
// `tagCount` and `gpiBitMask` as in PER_RADIO_STOP_s. Hold times 3 and 4 exist
// on the PN8200 only.
RXE_API_STATUS setGlobalStopConditions(std::uint32_t duration, std::uint16_t olioLoops,
                                       std::uint16_t tagCount, std::uint8_t gpiBitMask, std::uint16_t hold1,
                                       std::uint16_t hold2, std::uint16_t hold3, std::uint16_t hold4);
RXE_API_STATUS setRadioStopConditions(const radioStopConditions_s* conditions);

// The GPI trigger that starts the radio; mask 0 for none.
RXE_API_STATUS setGPIOStart(std::uint8_t gpiBitMask, std::uint16_t hold1, std::uint16_t hold2,
                            std::uint16_t hold3, std::uint16_t hold4);

// Which fields tag packets carry (RXE_FIELD_*). Sends nothing when the mask is
// the one last accepted.
RXE_API_STATUS setCustomFields(std::uint32_t mask);

// ------------------------------------------------------------------ parameters
// Each writer logs one line, writes one parameter, and on failure logs the
// status and returns it. Each reader copies to its output only after success.

RXE_API_STATUS setRSSIDetectThreshold(std::int8_t dBm);
RXE_API_STATUS setGPIODir(std::uint8_t mask);
RXE_API_STATUS setPeakThreshold(int value);  // low byte
RXE_API_STATUS setMonoOrCOM(int value);      // low byte
RXE_API_STATUS setDynamicRange(std::uint8_t value);
RXE_API_STATUS getDynamicRange(std::uint8_t* value);
RXE_API_STATUS setBlockSize(std::uint8_t words);
RXE_API_STATUS getBlockSize(std::uint8_t* words);
RXE_API_STATUS setStaticVDynamic(std::uint8_t value);
RXE_API_STATUS getStaticVDynamic(std::uint8_t* value);
RXE_API_STATUS setAARHeightX10(std::uint16_t tenths);
RXE_API_STATUS getAARHeightX10(std::uint16_t* tenths);
RXE_API_STATUS setTagHeightX10(std::uint16_t tenths);
RXE_API_STATUS getTagHeightX10(std::uint16_t* tenths);
RXE_API_STATUS setDelayAfterSelectsInterval(std::uint16_t value);
RXE_API_STATUS getDelayAfterSelectsInterval(std::uint16_t* value);
// Type 0 disabled, 1 no reads, 2 no unique reads; duration in ms.
RXE_API_STATUS setTxDelayInterval(std::uint8_t type, std::uint8_t duration);
RXE_API_STATUS getTxDelayInterval(std::uint8_t* type, std::uint8_t* duration);
RXE_API_STATUS setCableLossX10(int antenna, std::uint8_t tenths);
RXE_API_STATUS getCableLossX10(int antenna, std::uint8_t* tenths);
RXE_API_STATUS enableHopPerRound();
RXE_API_STATUS disableHopPerRound();
// Type 0 radio wide, 1 per antenna; duration in seconds.
RXE_API_STATUS enableLastReportedFilter(std::uint8_t type, std::uint32_t duration);
RXE_API_STATUS disableLastReportedFilter();

// `length` in bits; (length + 7) / 8 bytes of `mask` are read.
RXE_API_STATUS setSelect(std::uint8_t id, std::uint8_t enable, std::uint8_t target, std::uint8_t action,
                         std::uint8_t membank, std::uint16_t pointer, std::uint8_t length,
                         const std::uint8_t* mask, std::uint16_t truncate);
// `maskBytes` bytes of `mask` are read. More than the record holds, and an id
// above 234, where other parameters begin, are refused with status 1.
RXE_API_STATUS setIDFilter(std::uint8_t id, std::uint8_t enable, std::uint16_t bitPointer,
                           std::uint16_t bitLength, const std::uint8_t* mask, std::uint16_t maskBytes);
RXE_API_STATUS setInvParams(std::uint8_t id, std::uint8_t enable, std::uint8_t sel, std::uint8_t session,
                            std::uint8_t target, std::uint8_t initialQ);

// Accesses, ids 1 to 63, without access criteria and without a stop count.
RXE_API_STATUS setAccessRead(std::uint8_t id, std::uint8_t enable, std::uint8_t membank,
                             std::uint16_t wordPointer, std::uint8_t wordCount);
RXE_API_STATUS setAccessWrite(std::uint8_t id, std::uint8_t enable, std::uint8_t membank,
                              std::uint16_t wordPointer, std::uint16_t value);
// 256 words or more are refused with status 1; nothing reaches the engine.
RXE_API_STATUS setAccessMultiWordWrite(std::uint8_t id, std::uint8_t enable, std::uint8_t membank,
                                       std::uint16_t wordPointer, std::uint16_t count,
                                       const std::uint16_t* words);
RXE_API_STATUS setAccessBlockWrite(std::uint8_t id, std::uint8_t enable, std::uint8_t membank,
                                   std::uint16_t wordPointer, std::uint16_t count,
                                   const std::uint16_t* words);
RXE_API_STATUS setAccessKill(std::uint8_t id, std::uint8_t enable, std::uint32_t password);
RXE_API_STATUS setAccessLock(std::uint8_t id, std::uint8_t enable, std::uint32_t payload);
RXE_API_STATUS setAccessAccess(std::uint8_t id, std::uint8_t enable, std::uint32_t password);

RXE_API_STATUS disableOlios();
RXE_API_STATUS disableAllSelects();
RXE_API_STATUS disableAllAccessOps();
RXE_API_STATUS disableAllIDFilters();

// Reporting of one packet type. A type already in the wanted state sends
// nothing; one that packet_names lacks is sent each time.
RXE_API_STATUS enablePacketType(std::uint16_t id);
RXE_API_STATUS disablePacketType(std::uint16_t id);
RXE_API_STATUS disableAllPackets();

// Channels 1 to 127, frequency in kHz. A channel above 127 is refused with
// status 1.
RXE_API_STATUS enableChannel(std::uint8_t channel, std::uint32_t frequency);
RXE_API_STATUS disableChannel(std::uint8_t channel);
// Writes the start-up table back if anything has changed it.
RXE_API_STATUS resetInitialChannels();

// Frequency in kHz at an index of current_channels; 0 past its end. Any thread.
std::uint32_t getChannelForChannelIdx(std::uint16_t index);

// Echo results of the channel at `index`. *frequency is in kHz, all ones when
// the channel is not enabled; nothing is read then.
RXE_API_STATUS get_aar_echo_info(std::uint8_t index, AAREchoResults* results, std::uint32_t* frequency);

// Transmit antenna of an olio, 0 for an id above 1023.
std::uint16_t getTxAntForOlio(std::uint16_t id);

// Whether a start is under way in the engine.
bool isStartOngoing();

// Degrees Celsius.
RXE_API_STATUS getPATemp(std::int16_t* celsius);
RXE_API_STATUS getAmbTemp(std::int16_t* celsius);

// Connected bits into connected[0] to connected[count - 1]; 16 at most.
RXE_API_STATUS getAntennaState(bool* connected, int count);

// Text command "configrxe": the service door to single engine parameters. It
// leaves the mode alone and does not ask whether the radio runs. Returns 0. A
// malformed number of some sections throws std::logic_error.
int configRXEHandler(std::vector<std::string>* tokens, std::string* reply);

// Text command "configrxe shadow [enable|disable]". Returns 0.
int handleShadowRequest(std::vector<std::string>* tokens, std::string* reply);

// -------------------------------------------------------------- records as JSON
// Each fills *out and returns 0, or leaves *out unfinished, puts a failure text
// into *reply and returns another value.

// All that the engine holds, read back from it, as one document in *reply.
int getFullCustomConfig(std::string* reply);

// One slot into *out, an object: its "id" and, when it is enabled, its fields.
int getChannel(std::string* reply, nlohmann::json* out, int id);
int getSelect(std::string* reply, nlohmann::json* out, int id);
int getInventory(std::string* reply, nlohmann::json* out, int id);
int getAccess(std::string* reply, nlohmann::json* out, int id);
int getIDFilter(std::string* reply, nlohmann::json* out, int id);

// Id 0: "olios" are those from 1 until the first disabled one, with their masks.
// Another id: that olio alone, if enabled, with what its masks stand for.
int getEnabledOlio(std::string* reply, nlohmann::json* out, int id);

// "peakThreshold" as a number, "monoOrCom" as a text.
int getPeakThreshold(std::string* reply, nlohmann::json* out);
int getMonoOrCOM(std::string* reply, nlohmann::json* out);

// With `verbose` the selects, the inventory set and the accesses of the olio
// are read back from the engine; otherwise their masks and index are shown.
int olio_to_json(std::string* reply, const OLIO_s* olio, nlohmann::json* out, bool verbose);

int select_to_json(const SELECT_OP_s* select, nlohmann::json* out);
int inv_to_json(const INVENTORY_OP_s* inventory, nlohmann::json* out);
int access_to_json(const ACCESS_OP_s* access, nlohmann::json* out);

int radioStopCondition_to_json(const PER_RADIO_STOP_s* stop, nlohmann::json* out);
int radioStopCondition_to_json(const PER_RADIO_STOP2_s* stop, nlohmann::json* out);
int gpioStart_to_json(const GPIO_START_s* start, nlohmann::json* out);
int gpioStart_to_json2(const GPIO_START2_s* start, nlohmann::json* out);
