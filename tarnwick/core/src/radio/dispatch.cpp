// SPDX-License-Identifier: MIT
// All packets of the engine enter here: a table maps the packet type to its handler. News for the
// main thread leaves as a topic and the raw payload, which the main thread decodes.
#include <algorithm>
#include <array>
#include <cstddef>
#include <span>

#include "logger.hpp"
#include "radio.hpp"
#include "radio/report_plan.hpp"
#include "radio/tag_account.hpp"
#include "radio_state.hpp"
#include "zmq_intfc.hpp"

std::atomic<std::uint64_t> radio::packetRxCount{0};
std::atomic<std::uint64_t> radio::tagReadCount{0};
std::array<std::atomic<std::uint64_t>, 16> radio::tagReadCountPerAnt{};

std::uint16_t radio::currentOlio = 0;
std::uint16_t radio::currentTxAntenna = 0;
std::uint32_t radio::currentChannel = 0;

namespace {

constexpr auto relaxed = std::memory_order_relaxed;

// Held over one packet: serialises the engine and the simulations, which may run at the
// same time. While only one of them runs, its thread does not wait.
class packet_gate_s {
  public:
    packet_gate_s() {
        flag.takeAfterWaiting();
        isEngineThread = true;
    }
    packet_gate_s(const packet_gate_s&) = delete;
    packet_gate_s& operator=(const packet_gate_s&) = delete;
    ~packet_gate_s() {
        isEngineThread = false;
        flag.give();
    }

  private:
    static inline spin_flag_s flag;
};

// Tag packets by beam of the array reader. Beam numbers are sparse, but any
// 16-bit number has its place, so that the engine thread counts without a lock
// while the main thread reads; the system gives memory only to pages of beams that were counted.
// Written by the engine thread, read by any.
std::array<std::atomic<std::uint64_t>, 65536> tagReadCountPerAntQDX{};

struct packet_row_s;
using packet_handler = void (*)(RXE_packet_s* packet, const packet_row_s& row);

// A packet type (RXE_PACKET_) and its handler. A packet is ignored when it has less payload than
// the handler itself reads; `topic` is for handlers that send news.
struct packet_row_s {
    std::uint16_t type;
    std::uint16_t minLength;
    packet_handler handler;
    std::string_view topic;
};

// Numbers in packets that the library does not decode are big-endian.
std::uint16_t word16(const std::uint8_t* bytes) {
    return static_cast<std::uint16_t>(bytes[0] << 8 | bytes[1]);
}
std::uint32_t word32(const std::uint8_t* bytes) {
    return std::uint32_t{word16(bytes)} << 16 | word16(bytes + 2);
}

bool payloadBeginsWith(const RXE_packet_s* packet, std::string_view start) {
    return std::equal(start.begin(), start.end(), packet->payload,
                      [](char a, std::uint8_t b) { return static_cast<std::uint8_t>(a) == b; });
}

void completePendingReport() {
    if (isReportPending()) {
        send_out_tag_data();
    }
}

void countTagRead() {
    countOne(&radio::tagReadCount);
    if (reportPlan().arrayReader) {
        countOne(&tagReadCountPerAntQDX[radio::currentTxAntenna]);
    } else if (radio::currentTxAntenna < countedAntennas) {
        countOne(&radio::tagReadCountPerAnt[radio::currentTxAntenna]);
    }
}

// The report of the tag before leaves, or the tag that has come takes its place.
void finishLastTag() {
    if (isReportPending()) {
        const bool wasHeldBack = radio::wasHeldBack;
        send_out_tag_data();
        radio::wasHeldBack = false;
        radio::closeTagPacket(wasHeldBack ? radio::fate_e::heldBack : radio::fate_e::superseded);
    }
}

void onTagPacket(RXE_packet_s* packet, const packet_row_s&) {
    finishLastTag();
    countTagRead();
    radio::openTagPacket();
    timeval now{};
    gettimeofday(&now, nullptr);
    process_tag_info_packet(packet, now);
    radio::prev_access_idx = radio::noAccessYet;
}

// Quirk: the topic of the end of a run is "start_ack".
void onRunEnded(RXE_packet_s* packet, const packet_row_s& row) {
    if (payloadBeginsWith(packet, "\x08\x09")) {
        flush_zmq_sockets();
        send_radio_stop_message();
        sendNews(row.topic, nullptr, 0);
    }
}

void onErrorLog(RXE_packet_s* packet, const packet_row_s& row) {
    if (payloadBeginsWith(packet, "ERRLOG")) {
        sendNews(row.topic, packet->payload, packet->length);
    }
}

void onAccessInfo(RXE_packet_s* packet, const packet_row_s&) {
    process_access_info_packet(packet);
}

void onParallelRssi(RXE_packet_s* packet, const packet_row_s&) {
    process_parallel_rssi_debug(packet);
}

// Sends a decoded record; zeros when the payload cannot be decoded.
template <class Record>
void sendDecoded(RXE_packet_s* packet, const packet_row_s& row) {
    Record record{};
    RXE_formatPayloadToStruct(packet, &record);
    sendNews(row.topic, &record, sizeof record);
}

void onStartInfo(RXE_packet_s* packet, const packet_row_s& row) {
    completePendingReport();
    sendDecoded<START_INFO_s>(packet, row);
}

void onCommandOngoing(RXE_packet_s*, const packet_row_s&) {
    do_background_activity_rxe_thread();
}

void onAntennaInfo(RXE_packet_s* packet, const packet_row_s&) {
    radio::currentOlio = word16(packet->payload);
    radio::currentTxAntenna = word16(packet->payload + 2);
    radio::useAntenna(radio::currentTxAntenna);
}

// The pending report has the channel on which its tag was seen, since its text was written then.
void onCarrierOn(RXE_packet_s* packet, const packet_row_s&) {
    if (packet->length >= 8) {
        radio::currentChannel = word32(packet->payload + 4);
    }
    completePendingReport();
    do_background_activity_rxe_thread();
}

void onGpioInfo(RXE_packet_s* packet, const packet_row_s&) {
    send_GPI_message(packet->payload[0], packet->payload[1]);
}

void onInventoryBegin(RXE_packet_s*, const packet_row_s&) {
    completePendingReport();
}

void forwardPayload(RXE_packet_s* packet, const packet_row_s& row) {
    sendNews(row.topic, packet->payload, packet->length);
}

void forwardTopic(RXE_packet_s*, const packet_row_s& row) {
    sendNews(row.topic, nullptr, 0);
}

// Packets that alarms, events, the heartbeat and every report need, in the order in which
// they are enabled. Not here: what the engine sends without being asked, what only some modes
// enable, and what only a client of "configrxe" enables.
constexpr auto alwaysEnabled = std::to_array<std::uint16_t>({
    RXE_PACKET_ANT_DISCONNECT_ALARM,
    RXE_PACKET_ANT_CONNECT_ALARM,
    RXE_PACKET_AMB_TEMP_HI_ALARM,
    RXE_PACKET_AMB_TEMP_CRIT_ALARM,
    RXE_PACKET_PA_TEMP_HI_ALARM,
    RXE_PACKET_PA_TEMP_CRIT_ALARM,
    RXE_PACKET_FWD_PWR_HI_ALARM,
    RXE_PACKET_FWD_PWR_LO_ALARM,
    RXE_PACKET_ANTENNA_INFO,
    RXE_PACKET_GPIO_INFO,
    RXE_PACKET_DB_WARNING,
    RXE_PACKET_DB_ERROR,
    RXE_PACKET_START_INFO3,
    RXE_PACKET_CMD_ONGOING,
    RXE_PACKET_INV_BEGIN,
});

// Ascending by type.
constexpr std::array packetRows{
    packet_row_s{RXE_PACKET_END_OF_RUN, 2, onRunEnded, "start_ack"},
    packet_row_s{RXE_PACKET_TAG_INFO_CUSTOM, 0, onTagPacket, ""},
    packet_row_s{RXE_PACKET_TAG_INFO_SHORT, 0, onTagPacket, ""},
    packet_row_s{RXE_PACKET_TAG_INFO_LONG, 0, onTagPacket, ""},
    packet_row_s{RXE_PACKET_TAG_INFO_COMPLETE, 0, onTagPacket, ""},
    packet_row_s{RXE_PACKET_ERROR_LOG, 6, onErrorLog, "err_log"},
    packet_row_s{RXE_PACKET_PARALLEL_RSSI_DEBUG, 0, onParallelRssi, ""},
    packet_row_s{RXE_PACKET_START_INFO3, 0, onStartInfo, "start_info"},
    packet_row_s{RXE_PACKET_CMD_ONGOING, 0, onCommandOngoing, ""},
    packet_row_s{RXE_PACKET_ANTENNA_INFO, 4, onAntennaInfo, ""},
    packet_row_s{RXE_PACKET_CW_ON, 0, onCarrierOn, ""},
    packet_row_s{RXE_PACKET_GPIO_INFO, 2, onGpioInfo, ""},
    packet_row_s{RXE_PACKET_INV_BEGIN, 0, onInventoryBegin, ""},
    packet_row_s{RXE_PACKET_ACCESS_INFO, 0, onAccessInfo, ""},
    packet_row_s{RXE_PACKET_ANT_DISCONNECT_ALARM, 0, forwardPayload, "ant_disconnect"},
    packet_row_s{RXE_PACKET_AMB_TEMP_HI_ALARM, 0, forwardPayload, "amb_temp_hi"},
    packet_row_s{RXE_PACKET_AMB_TEMP_CRIT_ALARM, 0, forwardPayload, "amb_temp_crit"},
    packet_row_s{RXE_PACKET_PA_TEMP_HI_ALARM, 0, forwardPayload, "pa_temp_hi"},
    packet_row_s{RXE_PACKET_PA_TEMP_CRIT_ALARM, 0, forwardPayload, "pa_temp_crit"},
    packet_row_s{RXE_PACKET_FWD_PWR_HI_ALARM, 0, forwardPayload, "pa_failure"},
    packet_row_s{RXE_PACKET_FWD_PWR_LO_ALARM, 0, forwardPayload, "pa_failure"},
    packet_row_s{RXE_PACKET_DB_WARNING, 0, sendDecoded<DB_WARNING_s>, "db_warning"},
    packet_row_s{RXE_PACKET_DB_ERROR, 0, forwardTopic, "db_error"},
    packet_row_s{RXE_PACKET_ANT_CONNECT_ALARM, 0, forwardPayload, "ant_connect"},
    packet_row_s{RXE_PACKET_API_ERROR, 0, forwardPayload, "api_error"},
};
static_assert(std::ranges::adjacent_find(packetRows, std::ranges::greater_equal{}, &packet_row_s::type) ==
              packetRows.end());
static_assert(std::ranges::all_of(alwaysEnabled, [](std::uint16_t type) {
    return std::ranges::binary_search(packetRows, type, {}, &packet_row_s::type);
}));

// The place of each type's row, from 1, or 0. All types are within 1,024 numbers.
constexpr std::uint16_t firstType = RXE_PACKET_TYPE_XOR;
constexpr std::size_t typeCount = 1024;
constexpr auto placeOfType = [] {
    std::array<std::uint8_t, typeCount> places{};
    for (std::size_t i = 0; i < packetRows.size(); ++i) {
        places[packetRows[i].type - firstType] = static_cast<std::uint8_t>(i + 1);
    }
    return places;
}();

const packet_row_s* rowOf(std::uint16_t type) {
    const std::size_t number = static_cast<std::uint16_t>(type - firstType);
    const std::size_t place = number < typeCount ? placeOfType[number] : 0;
    return place == 0 ? nullptr : &packetRows[place - 1];
}

}  // namespace

std::map<std::uint16_t, std::uint64_t> getTagReadCountPerAntQDX() {
    std::map<std::uint16_t, std::uint64_t> counts;
    for (std::size_t beam = 0; beam < tagReadCountPerAntQDX.size(); ++beam) {
        if (const std::uint64_t count = tagReadCountPerAntQDX[beam].load(relaxed); count != 0) {
            counts.emplace_hint(counts.end(), static_cast<std::uint16_t>(beam), count);
        }
    }
    return counts;
}

std::span<const std::uint16_t> basePackets() {
    return alwaysEnabled;
}

int getPacket(RXE_packet_s* packet) {
    const packet_gate_s gate;
    takeReportPlan();
    radio::packetRxCount.fetch_add(1, relaxed);
    processMessage(packet);
    radio::packetsDone.store(radio::packetRxCount.load(relaxed), std::memory_order_release);
    return 0;
}

int processMessage(RXE_packet_s* packet) {
    const packet_row_s* row = rowOf(packet->type);
    if (row == nullptr) {
        // The number is the id of the packet table.
        logDebug("radio", " got packet in radio thread: type: ", RXE_PACKET_ID(packet->type));
        return 0;
    }
    if (packet->length >= row->minLength) {
        row->handler(packet, *row);
    }
    return 0;
}
