// SPDX-License-Identifier: MIT
// The radio data path: the radio thread, the engine's packets, tag reports from
// packet to socket, and the two outbound channels tag_data and gpio_led.
//
// Two threads work here. The radio thread has the half-second tick that
// measures the send rates, and serves the two commands that are forwarded to it; it
// does not handle packets. The engine thread (the library's callback thread, or the
// simulator in its place) does everything else inside getPacket, one packet at a
// time. docs/way-of-a-read.md follows one tag from the packet to the socket.
#pragma once

#include <sys/time.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "fates.hpp"
#include "rxe.h"
#include "zmq_intfc.hpp"

struct mode_configuration_s;  // mode/record.hpp
struct told_accesses_s;       // engine_io/olios.hpp

// ---- counters --------------------------------------------------------------

// Antenna numbers that are counted: 0 to 13.
inline constexpr unsigned countedAntennas = 14;

namespace radio {

// Packets delivered to getPacket. Written by the engine thread, and zeroed by
// the main thread before the callback is registered; read by any thread.
extern std::atomic<std::uint64_t> packetRxCount;
// Tag packets seen, before any filter. Written by the engine thread, read by any.
extern std::atomic<std::uint64_t> tagReadCount;
// The same by antenna number, for all models but the array reader. The first
// `countedAntennas` entries are counted; the others stay 0.
extern std::array<std::atomic<std::uint64_t>, 16> tagReadCountPerAnt;
// JSON reports sent. Written by the engine thread, read by any.
extern std::atomic<std::uint64_t> msgTxCount;

}  // namespace radio

// Tag packets seen by beam number, for the array reader; beams without a read
// are absent. A copy. Any thread.
std::map<std::uint16_t, std::uint64_t> getTagReadCountPerAntQDX();

// ---- the account of tag packets --------------------------------------------

// Each tag packet that the radio sends has one fate (vocabulary::fates): the engine thread counts it
// where the fate is decided, under the antenna that transmitted, and no packet twice. Reports that are
// not of a tag packet, such as a heat map that comes alone, are not in the account.
//
//   tagPackets = sum of all fates + pending        in every account, also under load
//
// What became of the tag packets of an antenna or beam since the start of the process; `fates` in
// the order of vocabulary::fates. A packet that does not have its fate yet is in `tagPackets` alone.
struct antenna_account_s {
    std::uint16_t antenna = 0;
    std::uint64_t tagPackets = 0;
    std::array<std::uint64_t, vocabulary::fateCount> fates{};
};

// The same for all, at one moment between two packets.
struct account_s {
    timeval since{};  // time of day of the start
    std::uint64_t tagPackets = 0;
    bool pending = false;                      // the last packet does not have its fate yet
    std::array<std::uint64_t, 3> forms{};      // reports sent, by data_analytics_e
    std::uint64_t unheard = 0;                 // reports sent that nobody was there to hear
    std::uint64_t nextEventNum = 0;            // the number of the next report; the first was 0
    std::vector<antenna_account_s> byAntenna;  // ascending
};

// Fills *account. All counts are of one moment: the copy is thrown away when a packet has begun
// meanwhile. The engine thread knows nothing of it. Waits for a moment between two packets, which is usually
// there at once. Returns false when packets leave no such moment within a second. Main thread.
bool takeAccount(account_s* account);

// ---- tags that are followed ------------------------------------------------

inline constexpr std::size_t maxTraces = 16;
// Packets that are kept of each.
inline constexpr std::size_t tracedPackets = 256;
// The longest EPC, bytes (EPC Gen2, 6.3.2.1.2.2: 31 words).
inline constexpr std::size_t maxEpcBytes = 62;

// For each tag that is followed the engine thread keeps the last packets, each with what became of it and
// what decided. It writes them where the account counts, and the main thread copies them: neither waits.
// The list of traces reaches the engine thread with its report plan, between two packets.
//
// One packet of a tag that is followed. Copied word by word between the threads, so it holds no pointers.
struct traced_packet_s {
    timeval time{};             // time of day of the read
    std::uint32_t channel = 0;  // kHz
    std::uint16_t antenna = 0;  // or beam
    std::int16_t rssi = 0;      // as in reports; noRssi when the packet does not have it
    // A place in vocabulary::fates, or vocabulary::fateCount while the packet does not have its fate.
    std::uint8_t fate = vocabulary::fateCount;
    std::uint8_t form = 0;         // data_analytics_e; of a report that was sent
    std::uint8_t epcBytes = 0;     // of `epc`
    std::uint8_t reasonBytes = 0;  // of `reason`
    std::int32_t listeners = 0;    // subscribers that were connected when it was sent
    std::uint64_t eventNum = 0;    // of a report that was sent; noEventNum in the reduced form
    std::int64_t quietUntil = 0;   // microseconds since 1970; 0 when additional keys do not hold it
    std::array<std::uint8_t, maxEpcBytes> epc{};
    // What decided: the rule of the filter, or the key that is quiet, cut at the end.
    std::array<char, 250> reason{};
};
inline constexpr std::int16_t noRssi = -32768;
inline constexpr std::uint64_t noEventNum = ~std::uint64_t{0};

// Tags whose EPC begins with `prefix`, since it is followed.
struct trace_s {
    std::vector<std::uint8_t> prefix;
    timeval since{};
    std::uint64_t packets = 0;
    std::vector<traced_packet_s> last;  // the oldest first
};

// Both offer the engine thread a copy of its report plan, as a new mode does: a trace takes effect with
// the next packet. The packets of a trace need some 90 KiB, which the main thread allocates and frees.
//
// Begin and stop following tags; a prefix that is followed already stays so. False when there are
// maxTraces already, or when it is not followed. `prefix` has 1 to maxEpcBytes bytes. Main thread.
bool addTrace(const std::vector<std::uint8_t>& prefix);
bool removeTrace(const std::vector<std::uint8_t>& prefix);

// All traces without their packets, and one with them; nothing for one that is not there. A packet that
// was replaced while it was copied is left out. Main thread.
std::vector<trace_s> getTraces();
std::optional<trace_s> getTrace(const std::vector<std::uint8_t>& prefix);

// ---- the radio thread ------------------------------------------------------

// The output form of tag reports on tag_data.
enum data_analytics_e : int {
    // JSON text to the local data consumer, ipc:///tmp/data.
    DATA_ANALYTICS_OFF = 0,
    // To subscribers of port 5160: a header of 4 bytes and a serialised velmo::tag_data_report
    // (tw_msg.proto).
    DATA_ANALYTICS_BINARY = 1,
    // To the same: the header and JSON text.
    DATA_ANALYTICS_STRING = 2,
};

// The form in force, and the number of subscribers (1 to 1024) among which reports are
// divided. Written by the radio thread, read by the engine thread.
namespace radio {
extern std::atomic<int> data_analytics_type;
extern std::atomic<std::uint16_t> subscribers;
}  // namespace radio

// Starts the thread "radio", then asks the Reader Management server for the
// reader's MAC address and host name. The sockets must exist. Main thread.
// Returns 0, or -1 if the thread could not be created.
int startRadioThread();

// Stops the radio engine, then the thread. Main thread, at shutdown, after a
// startRadioThread that returned 0. Returns the result of joining: 0 on success.
int stopRadioThread();

// The body of the radio thread, which ends by pthread_cancel. Returns null early when its timer
// or epoll instance cannot be made.
void* radio_thread_fcn(void* unused);

// Runs one command that the main thread has forwarded ("data_analytics" or
// "subscribers") and fills *response with its whole reply. Returns the
// command's result, or 0 with a "Failure: " reply for any other text. Radio thread.
int ProcessInternalRequest(std::string* request, std::string* response);

// One tick, twice a second: computes the send rates of both channels, in messages a second,
// and counts the tick. Radio thread.
void do_background_activity_radio_thread();

// Flushes both channels when a tick has passed since the last call. Engine thread.
void do_background_activity_rxe_thread();

// ---- outbound channels -----------------------------------------------------

// Sends one report on tag_data without blocking; ZeroMQ drops it for a slow subscriber. With
// `immediate` it leaves as a frame of its own, after any open batch is closed. Otherwise,
// when more than 25 messages a second were measured, reports are gathered into multipart
// messages of some 1500 bytes. `outside` says that the report has the form STRING or
// BINARY; it is dropped when tag_data is for the other form by now. Engine thread.
send_result_e send_tag_data_message(std::string_view message, bool immediate, bool outside);

// Sends one line on gpio_led without blocking, batched in the same way. Engine and
// main threads. Returns 0.
int send_gpio_led_message(std::string_view message);

// Ends an open multipart message on either channel with an empty frame. Engine thread.
void flush_zmq_sockets();

// Whether more than 25 messages a second were measured at the last tick. Any thread.
bool tag_data_slow_down();
bool gpio_led_slow_down();

// Whether a tag report does not end with its tag packet, because a heat map or
// access results follow. Engine thread.
bool waitingForMoreTagData();

// Text events on gpio_led, with the present time: "GPI_1_H,...", for `state` not
// 0, or "GPI_1_L,..."; "RADIO_START,..."; "RADIO_STOP,...". Engine and main threads.
void send_GPI_message(int port, int state);
void send_radio_start_message();
void send_radio_stop_message();

// ---- packets and tag reports -----------------------------------------------

// The engine's callback: counts the packet and handles it. It waits only for a packet of
// a simulation, and for a turn when its room for work is full (turn.hpp); it never throws.
// Returns 0. Engine thread.
int getPacket(RXE_packet_s* packet);

// Makes the report plan of a mode and of the accesses that were written into the engine, and
// offers it to the engine thread, which puts it in force between two packets: a mode may be
// set while the radio reads. Neither thread waits. Main thread.
void publishReportPlan(const mode_configuration_s& mode, const told_accesses_s& accesses);

// Puts the newest plan in force, if there is a new one. Engine thread, between two packets.
void takeReportPlan();

// The packet types (RXE_PACKET_) that the daemon needs in every mode, in the order in which
// the baseline enables them. Any thread.
std::span<const std::uint16_t> basePackets();

// Calls the function for the packet's type. Returns 0. Engine thread.
int processMessage(RXE_packet_s* packet);

// Makes the report of one tag packet. It is sent at once, or stays pending while a heat map or
// access results are to follow. `time` is the time of day of the read. Returns 0. Engine
// thread.
int process_tag_info_packet(RXE_packet_s* packet, const timeval& time);

// Releases the pending JSON report: asks the additional-keys database, then
// sends it and empties the pending state. Returns 0. Engine thread.
int send_out_tag_data();

// Whether the tag passes the mode's tag filter: 1 or 0. `byteCount` bytes of `epc` are read, at
// most 256. Appends them in lower-case hexadecimal to *idHex when the tag passes, and with a
// regex filter in any case. A null idHex gives 0. Engine thread.
int compareTagFilter(const std::uint8_t* epc, unsigned byteCount, std::string* idHex);

// Where a 96-bit EPC has the bits that tell the parts of one item apart, by its first byte,
// which is the header of its scheme (GS1 TDS 1.13, table 14-1).
enum multiTag_e : int {
    MULTI_TAG_NONE = 0,  // not 96 bits
    MULTI_TAG_1 = 1,     // first byte 0x35, GID-96
    MULTI_TAG_2 = 2,     // first byte 0x34, GIAI-96
    MULTI_TAG_3 = 3,     // any other first byte
};
multiTag_e multiTagType(const TAG_INFO_s* tagInfo);

// CRC of the 12 bytes of `epc` without the bits that tell the parts of an item apart, so that
// all parts go to the same subscriber; 0 for MULTI_TAG_NONE. Any thread.
std::uint16_t computeMultiTagCRC(multiTag_e type, const std::uint8_t* epc);
