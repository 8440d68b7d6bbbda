// SPDX-License-Identifier: MIT
// The binary forms of a tag report.
#include <bit>

#include "mode_config.hpp"
#include "radio.hpp"
#include "radio_state.hpp"
#include "tw_msg.pb.h"
#include "zmq_intfc.hpp"

namespace {

// Fields are written through the mutable_ accessors, which keep the memory of
// the report before.

// EPC bytes, a partial last byte counted as one; the count wraps at 256.
void setTagId(const TAG_INFO_s& info, velmo::tag_data_report* report) {
    const unsigned partial = (info.epcLength & 7) != 0 ? 1 : 0;
    const unsigned count = ((info.epcLength >> 3 & 0xFF) + partial) & 0xFF;
    report->mutable_tag_id()->assign(info.epc, info.epc + count);
}

void appendWord(std::uint16_t word, std::string* out) {
    out->push_back(static_cast<char>(word >> 8));
    out->push_back(static_cast<char>(word & 0xFF));
}

void setWord(std::uint16_t word, std::string* out) {
    out->clear();
    appendWord(word, out);
}

void setBearing(const TAG_INFO_s& info, velmo::tag_data_report* report) {
    report->set_azimuthx10(info.azimuth);
    report->set_elevationx10(info.elevation);
    report->set_azimuth_confidence(info.azimuthConf);
    report->set_elevation_confidence(info.elevationConf);
}

std::uint64_t milliseconds(const timeval& time) {
    return static_cast<std::uint64_t>(time.tv_sec) * 1000 + static_cast<std::uint64_t>(time.tv_usec) / 1000;
}

// The form of a BEARING mode. Every field is set, whatever the packet had.
void fillReduced(const tag_read_s& read, velmo::tag_data_report* report) {
    const TAG_INFO_s& info = *read.info;
    report->set_timestamp_millis(milliseconds(read.time));
    report->set_rssi_int(info.rssi);
    report->set_antenna(currentTxAntenna);
    setBearing(info, report);
    setTagId(info, report);
    // Low byte first, unlike the full report; consumers of bearings expect it so.
    setWord(static_cast<std::uint16_t>(info.pc << 8 | info.pc >> 8), report->mutable_pc());
}

// What the mode adds to a full report, independent of the packet.
void fillReaderFields(velmo::tag_data_report* report) {
    if (isReportAntennaEnabled()) {
        report->set_antenna(currentTxAntenna);
    }
    if (isAntennaPortMappingEnabled()) {
        report->mutable_antenna_port_name()->assign(
            getAntennaPortMapping(static_cast<std::uint8_t>(currentTxAntenna)));
    }
    if (isReportChannelEnabled()) {
        report->set_channel(static_cast<std::int32_t>(currentChannel));
    }
    if (isReportMACEnabled()) {
        report->mutable_mac()->assign(readerNames().rdr_mac);
    }
    if (isReportHostNameEnabled()) {
        report->mutable_host_name()->assign(readerNames().rdr_hostname);
    }
    if (isUserDefinedDataEnabled()) {
        report->mutable_user_defined()->assign(getUserDefinedData());
    }
}

void fillControlWords(const TAG_INFO_s& info, velmo::tag_data_report* report) {
    if ((info.fields & RXE_FIELD_PC) != 0 && isReportPCEnabled()) {
        setWord(info.pc, report->mutable_pc());
    }
    // Here either extended word gives the field; the second brings the first along.
    if ((info.fields & (RXE_FIELD_XPC1 | RXE_FIELD_XPC2)) != 0 && isReportXPCEnabled()) {
        setWord(info.xpc1, report->mutable_xpc());
        if ((info.fields & RXE_FIELD_XPC2) != 0) {
            appendWord(info.xpc2, report->mutable_xpc());
        }
    }
    if ((info.fields & RXE_FIELD_CRC) != 0 && isReportCRCEnabled()) {
        setWord(info.crc, report->mutable_crc());
    }
}

void fillTagFields(const TAG_INFO_s& info, velmo::tag_data_report* report) {
    const auto has = [&info](std::uint32_t field) { return (info.fields & field) != 0; };
    if (has(RXE_FIELD_EPC)) {
        setTagId(info, report);
    }
    if (has(RXE_FIELD_RSSI)) {
        report->set_rssi_int(info.rssi);
    }
    if (has(RXE_FIELD_TAG_COUNT)) {
        report->set_tag_count(info.tagCount);
    }
    fillControlWords(info, report);
    if (has(RXE_FIELD_PHASE)) {
        report->set_phase(info.phase);
    }
    if (has(RXE_FIELD_RSSI_LIN)) {
        report->set_rssi_float(std::bit_cast<float>(info.rssiLin));
    }
    if (has(RXE_FIELD_BEARING)) {
        setBearing(info, report);
    }
    if (has(RXE_FIELD_BRAND_ID)) {
        report->set_brand_id(info.brandIdMatched != 0);
    }
    if (has(RXE_FIELD_LOCATION)) {
        report->set_xx10(info.locationX);
        report->set_yx10(info.locationY);
        report->set_location_confidence(info.locConf);
    }
}

void fillFull(const tag_read_s& read, velmo::tag_data_report* report) {
    report->set_timestamp_millis(milliseconds(read.time));
    report->set_event_num(eventNum++);
    fillReaderFields(report);
    fillTagFields(*read.info, report);
}

}  // namespace

void sendBinaryReport(const tag_read_s& read) {
    static velmo::tag_data_report tag_report;
    static std::string message;  // both kept for their memory; engine thread
    const bool reduced = getModeType() == MODE_TYPE_e::BEARING;
    tag_report.Clear();
    if (reduced) {
        fillReduced(read, &tag_report);
    } else {
        fillFull(read, &tag_report);
    }
    const report_header_t header = reportHeader(reduced ? REPORT_KIND_BINARY_BEARING : REPORT_KIND_BINARY);
    message.assign(header.data(), header.size());
    tag_report.AppendToString(&message);
    if (subscribers.load(std::memory_order_relaxed) < 2) {
        send_tag_data_message(message, false, true);
    } else {
        // A frame of its own, past the count and the batch, so that each
        // subscriber's prefix filter sees the header.
        sendTagData(true, message.data(), message.size(), 0);
    }
}
