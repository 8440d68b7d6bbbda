// SPDX-License-Identifier: MIT
// The binary forms of a tag report: the bytes of a velmo::tag_data_report (tw_msg.proto), written
// field by field in the order of their numbers, as the protobuf library writes them.
#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <vector>

#include "mode/record.hpp"
#include "radio.hpp"
#include "radio/report_plan.hpp"
#include "radio/tag_account.hpp"
#include "radio_state.hpp"
#include "tw_msg.pb.h"
#include "zmq_intfc.hpp"

namespace {

using message_t = velmo::tag_data_report;

// Types of a field on the wire (Protocol Buffers, encoding).
enum wire_type_e : std::uint32_t { VARINT = 0, LENGTH_DELIMITED = 2, FIXED_32 = 5 };

// Writes fields one after the other from `out` on. The caller provides enough room.
class wire_writer {
  public:
    explicit wire_writer(char* out) : out_(out) {}

    // A field of type uint32, uint64, bool, or int32 when it is not negative.
    void number(int field, std::uint64_t value) {
        start(field, VARINT);
        varint(value);
    }
    // A field of type int32: a negative number takes ten bytes.
    void int32(int field, std::int32_t value) {
        number(field, static_cast<std::uint64_t>(std::int64_t{value}));
    }
    // A field of type sint32.
    void sint32(int field, std::int32_t value) {
        number(field, static_cast<std::uint32_t>(value) << 1 ^ static_cast<std::uint32_t>(value >> 31));
    }
    // A field of type float, low byte first.
    void float32(int field, std::uint32_t bits) {
        start(field, FIXED_32);
        for (int shift = 0; shift < 32; shift += 8) {
            *out_++ = static_cast<char>(bits >> shift & 0xFF);
        }
    }
    void bytes(int field, const void* data, std::size_t size) {
        start(field, LENGTH_DELIMITED);
        varint(size);
        std::memcpy(out_, data, size);
        out_ += size;
    }
    // A field of one or two words, each high byte first.
    void words(int field, std::uint16_t first, const std::uint16_t* second = nullptr) {
        start(field, LENGTH_DELIMITED);
        varint(second == nullptr ? 2 : 4);
        word(first);
        if (second != nullptr) {
            word(*second);
        }
    }
    [[nodiscard]] char* end() const { return out_; }

  private:
    void start(int field, wire_type_e type) { varint(static_cast<std::uint32_t>(field) << 3 | type); }
    void varint(std::uint64_t value) {
        for (; value > 0x7F; value >>= 7) {
            *out_++ = static_cast<char>(value | 0x80);
        }
        *out_++ = static_cast<char>(value);
    }
    void word(std::uint16_t value) {
        *out_++ = static_cast<char>(value >> 8);
        *out_++ = static_cast<char>(value & 0xFF);
    }

    char* out_;
};

// The EPC; a partial last byte counts as one. Quirk: the number of bytes wraps at 256.
void putTagId(const TAG_INFO_s& info, wire_writer* out) {
    const unsigned partial = (info.epcLength & 7) != 0 ? 1 : 0;
    out->bytes(message_t::kTagIdFieldNumber, info.epc, ((info.epcLength >> 3 & 0xFF) + partial) & 0xFF);
}

void putTime(const timeval& time, wire_writer* out) {
    out->number(message_t::kTimestampMillisFieldNumber, static_cast<std::uint64_t>(time.tv_sec) * 1000 +
                                                            static_cast<std::uint64_t>(time.tv_usec) / 1000);
}

void putBearing(const TAG_INFO_s& info, wire_writer* out) {
    out->number(message_t::kAzimuthx10FieldNumber, info.azimuth);
    out->number(message_t::kElevationx10FieldNumber, info.elevation);
    out->number(message_t::kAzimuthConfidenceFieldNumber, info.azimuthConf);
    out->number(message_t::kElevationConfidenceFieldNumber, info.elevationConf);
}

// The form of a BEARING mode. Every field is set, also those that the packet does not have.
void putReduced(const tag_read_s& read, wire_writer* out) {
    const TAG_INFO_s& info = *read.info;
    putTagId(info, out);
    putTime(read.time, out);
    // Quirk: low byte first, unlike the full report. Consumers of bearings depend on it.
    out->words(message_t::kPcFieldNumber, static_cast<std::uint16_t>(info.pc << 8 | info.pc >> 8));
    out->sint32(message_t::kRssiIntFieldNumber, info.rssi);
    out->number(message_t::kAntennaFieldNumber, radio::currentTxAntenna);
    putBearing(info, out);
}

void putControlWords(const TAG_INFO_s& info, const report_plan_s& plan, wire_writer* out) {
    if (plan.switches.reportPC && (info.fields & RXE_FIELD_PC) != 0) {
        out->words(message_t::kPcFieldNumber, info.pc);
    }
    if (plan.switches.reportCRC && (info.fields & RXE_FIELD_CRC) != 0) {
        out->words(message_t::kCrcFieldNumber, info.crc);
    }
    // Either XPC word gives the field. With the second the field has both.
    if (plan.switches.reportXPC && (info.fields & (RXE_FIELD_XPC1 | RXE_FIELD_XPC2)) != 0) {
        out->words(message_t::kXpcFieldNumber, info.xpc1,
                   (info.fields & RXE_FIELD_XPC2) != 0 ? &info.xpc2 : nullptr);
    }
}

void putText(int field, bool wanted, const planned_text_s& text, wire_writer* out) {
    if (wanted) {
        out->bytes(field, text.plain.data(), text.plain.size());
    }
}

void putFull(const tag_read_s& read, const report_plan_s& plan, wire_writer* out) {
    const TAG_INFO_s& info = *read.info;
    const auto has = [&info](std::uint32_t field) { return (info.fields & field) != 0; };
    if (has(RXE_FIELD_EPC)) {
        putTagId(info, out);
    }
    putTime(read.time, out);
    putControlWords(info, plan, out);
    if (has(RXE_FIELD_RSSI_LIN)) {
        out->float32(message_t::kRssiFloatFieldNumber, info.rssiLin);
    }
    if (has(RXE_FIELD_RSSI)) {
        out->sint32(message_t::kRssiIntFieldNumber, info.rssi);
    }
    if (has(RXE_FIELD_PHASE)) {
        out->float32(message_t::kPhaseFieldNumber, std::bit_cast<std::uint32_t>(info.phase));
    }
    if (plan.switches.reportAntenna) {
        out->number(message_t::kAntennaFieldNumber, radio::currentTxAntenna);
    }
    if (plan.switches.reportChannel) {
        out->int32(message_t::kChannelFieldNumber, static_cast<std::int32_t>(radio::currentChannel));
    }
    if (has(RXE_FIELD_TAG_COUNT)) {
        out->number(message_t::kTagCountFieldNumber, info.tagCount);
    }
    if (has(RXE_FIELD_BEARING)) {
        putBearing(info, out);
    }
    if (has(RXE_FIELD_LOCATION)) {
        out->int32(message_t::kXx10FieldNumber, info.locationX);
        out->int32(message_t::kYx10FieldNumber, info.locationY);
        out->number(message_t::kLocationConfidenceFieldNumber, info.locConf);
    }
    if (has(RXE_FIELD_BRAND_ID)) {
        out->number(message_t::kBrandIdFieldNumber, info.brandIdMatched != 0 ? 1 : 0);
    }
    putText(message_t::kMacFieldNumber, plan.switches.reportMAC, plan.macText, out);
    putText(message_t::kHostNameFieldNumber, plan.switches.reportHostName, plan.hostNameText, out);
    putText(message_t::kAntennaPortNameFieldNumber, plan.portName,
            plan.portNameOf(static_cast<std::uint8_t>(radio::currentTxAntenna)), out);
    putText(message_t::kUserDefinedFieldNumber, plan.userDefined, plan.userDefinedText, out);
    out->number(message_t::kEventNumFieldNumber, countOne(&radio::eventNum));
}

}  // namespace

void sendBinaryReport(const tag_read_s& read) {
    static std::vector<char> buffer;  // static to keep its memory; engine thread
    const report_plan_s& plan = reportPlan();
    const std::size_t room = std::tuple_size_v<report_header_t> + plan.room;
    if (buffer.size() < room) {
        buffer.resize(room);
    }
    const bool reduced = plan.modeType == MODE_TYPE_e::BEARING;
    const report_header_t header = reportHeader(reduced ? REPORT_KIND_BINARY_BEARING : REPORT_KIND_BINARY);
    wire_writer out(std::ranges::copy(header, buffer.data()).out);
    if (reduced) {
        putReduced(read, &out);
    } else {
        putFull(read, plan, &out);
    }
    const std::string_view message(buffer.data(), static_cast<std::size_t>(out.end() - buffer.data()));
    // For many a frame of its own, so that each subscriber's prefix filter sees the header. Quirk: it is
    // neither counted for the rate nor part of a batch.
    const send_result_e result =
        radio::subscribers.load(std::memory_order_relaxed) < 2
            ? send_tag_data_message(message, false, true)
            : sendTagData(true, message.data(), message.size(), 0, &radio::reportOwner);
    radio::closeSentPacket(result, DATA_ANALYTICS_BINARY);
}
