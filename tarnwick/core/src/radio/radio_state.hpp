// SPDX-License-Identifier: MIT
// State and functions that the files of the radio unit share. Engine thread, unless a comment says
// otherwise.
#pragma once

#include <sys/time.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "rxe.h"

struct report_plan_s;     // report_plan.hpp
struct addl_key_parts_s;  // additional_config.hpp

namespace radio {

// The present olio of the radio (1 to 1023), the antenna or beam that transmits, and the frequency
// of the channel in kHz. Written by the packet dispatch; they keep their values after a radio stop.
extern std::uint16_t currentOlio;
extern std::uint16_t currentTxAntenna;
extern std::uint32_t currentChannel;

// The subscriber of the current report: 1 to `subscribers`, or 0 when the packet did not have a
// CRC. Written by the tag report, read by the report headers.
extern std::uint16_t currentHash;

// The number of the next report, from 0. JSON reports and full binary reports have a number and
// increase it; reduced binary reports do not have one. Written by the engine thread, read by the
// main thread for the account.
extern std::atomic<std::uint64_t> eventNum;

}  // namespace radio

// The reader's MAC address and host name.
struct reader_names_s {
    std::string rdr_mac;
    std::string rdr_hostname;
};
// Both are empty until startRadioThread has asked for them. Main thread; reports have them
// from their plan.
const reader_names_s& readerNames();

// One read that has passed the tag filter: the parts of its report.
struct tag_read_s {
    const TAG_INFO_s* info;
    timeval time;               // time of day of the read
    std::string_view timeText;  // the same as text
    const std::string* idHex;   // whole EPC bytes
    std::uint64_t eventNum;     // number of this report, when it has one
};

// Counts up where one thread at a time writes: a plain load and store. Returns the count before. The
// store is visible only together with all that this thread wrote before it, as takeAccount needs.
template <class Number>
Number countOne(std::atomic<Number>* counter) {
    const Number before = counter->load(std::memory_order_relaxed);
    counter->store(before + 1, std::memory_order_release);
    return before;
}

// Zeroes the whole record of a packet: the library does not write members that the packet does not
// have. A record that begins at a cache line takes a fifth less time.
void zeroRecord(void* record, std::size_t size);
inline constexpr std::size_t recordAlignment = 64;

// ---- the pending JSON report -----------------------------------------------

// Whether a report is pending. The JSON report alone writes it.
namespace radio {
extern bool isPending;
}
inline bool isReportPending() {
    return radio::isPending;
}

// Empties the report.
void clearReport();

// Fills the empty report from a read; it is pending from then on.
void buildJsonReport(const tag_read_s& read, const report_plan_s& plan);

// Sets a member of "data" that does not come from the tag packet: HEATMAP, a memory key. `value` is
// JSON. The report is pending from then on.
void setLateMember(std::string_view key, std::string_view value);
// The same with a text that needs no escaping.
void setLateText(std::string_view key, std::string_view text);

// Stores the text, which needs no escaping, in a slot of "accessResults"; slots fill
// without gaps. Returns -1 if refused, 1 if this was the last slot, 0 otherwise.
int add_to_access_results(std::string_view text, std::size_t index);

// The parts of the report that its key is made of (additional_config.hpp). Valid until the report
// changes.
addl_key_parts_s keyPartsOfReport();

// The finished report: room for the header of the STRING form, then the text. The text is null
// before the first report and {} when none is pending. A report with an `error` cannot leave: one
// of its texts is not valid UTF-8. Valid until the report changes.
struct finished_report_s {
    std::span<char> bytes;
    std::string_view error;
};
finished_report_s finishReport();

// ---- access results --------------------------------------------------------

namespace radio {

// The access id of the last ACCESS_INFO packet. Written by the access results, and
// set to noAccessYet by the packet dispatch after each tag packet.
constexpr std::uint8_t noAccessYet = 128;
extern std::uint8_t prev_access_idx;

// The slot of "accessResults" that the next outcome fills. Written by the access
// results, and set to 0 by the tag report.
extern std::uint8_t current_access_idx;

// Memory reads stored since a report last left. Counted up by the access results,
// set to 0 by the report release: a report that is held back keeps its count.
extern std::uint32_t tagMemoryCount;

}  // namespace radio

// Puts "Not Attempted" into the pending report for each access of `olio`; its result replaces the
// text.
void prepare_access_results(std::uint16_t olio);

// Adds the result in an ACCESS_INFO packet to the pending report, and releases the report when it
// is complete. Returns 0.
int process_access_info_packet(RXE_packet_s* packet);

// ---- forms of a report -----------------------------------------------------

enum report_kind_e : std::uint8_t {
    REPORT_KIND_JSON = 0,
    REPORT_KIND_BINARY = 1,
    REPORT_KIND_BINARY_BEARING = 2,  // reduced report of a BEARING mode
};

// The header of a STRING or BINARY report:
//
//   0             1              2      3      4 ...
//   | hash (low)  | hash (high)  | kind | 0    | report
using report_header_t = std::array<char, 4>;
inline report_header_t reportHeader(report_kind_e kind) {
    return {static_cast<char>(radio::currentHash & 0xFF), static_cast<char>(radio::currentHash >> 8),
            static_cast<char>(kind), '\0'};
}

// Builds and sends the binary report of a read: the reduced form in a BEARING
// mode, the full form otherwise.
void sendBinaryReport(const tag_read_s& read);

// Adds the heat map of a PARALLEL_RSSI_DEBUG packet to the report and releases it.
void process_parallel_rssi_debug(RXE_packet_s* packet);
