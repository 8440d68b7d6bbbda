// SPDX-License-Identifier: MIT
// From a tag packet to its report: decoding, the tag filter, the subscriber that
// the tag belongs to, and the choice of the output form.
#include <algorithm>
#include <array>

#include "radio.hpp"
#include "radio/report_plan.hpp"
#include "radio/tag_account.hpp"
#include "radio_state.hpp"
#include "util.hpp"
#include "zmq_intfc.hpp"

std::uint16_t radio::currentHash = 0;

namespace {

constexpr std::uint16_t multiTagBits = 96;
constexpr std::size_t multiTagBytes = multiTagBits / 8;

// Texts of the present tag; they are static to keep their memory. Engine thread.
std::string idHex;
constexpr std::string_view tagRead = "TAG_READ,";
std::string tagReadLine(tagRead);

// The byte that tells the parts of one item apart, and the mask of its bits that do not, by scheme
// (GS1 TDS 1.13, table 14-1).
struct multi_tag_mask_s {
    multiTag_e type;
    std::size_t byte;
    std::uint8_t keep;
};
constexpr std::array multiTagMasks{
    multi_tag_mask_s{MULTI_TAG_1, 7, 0x0F},
    multi_tag_mask_s{MULTI_TAG_2, 8, 0xF0},
    multi_tag_mask_s{MULTI_TAG_3, 3, 0xF0},
};

// Whole bytes of an EPC; the low 11 bits are its length in bits.
unsigned wholeBytes(std::uint16_t epcLength) {
    return epcLength >> 3 & 0xFF;
}

// The subscriber of a tag, from 1; all parts of an item go to the same one.
std::uint16_t hashOf(const TAG_INFO_s& info) {
    if ((info.fields & RXE_FIELD_CRC) == 0) {
        return 0;
    }
    const std::uint16_t count = radio::subscribers.load(std::memory_order_relaxed);
    if (count == 1) {
        return 1;
    }
    const std::uint16_t crc =
        info.epcLength == multiTagBits ? computeMultiTagCRC(multiTagType(&info), info.epc) : info.crc;
    return static_cast<std::uint16_t>(crc % count + 1);
}

// Prepares the pending report for the results of its accesses.
void expectAccessResults(const report_plan_s& plan) {
    prepare_access_results(radio::currentOlio);
    if (plan.restartsSlots) {
        radio::current_access_idx = 0;
    }
}

void reportAsJson(tag_read_s* read) {
    const report_plan_s& plan = reportPlan();
    tagReadLine.resize(tagRead.size());
    appendISOString(&read->time, &tagReadLine);
    read->timeText = std::string_view(tagReadLine).substr(tagRead.size());
    read->eventNum = countOne(&radio::eventNum);
    buildJsonReport(*read, plan);
    if (!waitingForMoreTagData()) {
        send_out_tag_data();
    } else if (plan.accesses) {
        expectAccessResults(plan);
    }
    send_gpio_led_message(tagReadLine);
}

}  // namespace

int process_tag_info_packet(RXE_packet_s* packet, const timeval& time) {
    clearReport();
    alignas(recordAlignment) TAG_INFO_s info;
    zeroRecord(&info, sizeof info);
    if (RXE_formatPayloadToStruct(packet, &info) != RXE_OK) {
        constexpr std::string_view failure = "Error parsing tag info packet";
        sendNews("error", failure.data(), failure.size());
        radio::closeTagPacket(radio::fate_e::notDecoded);
        return 0;
    }
    if (!reportPlan().traces.empty()) {
        radio::beginTrace(info, time);
    }
    idHex.clear();
    if (compareTagFilter(info.epc, wholeBytes(info.epcLength), &idHex) == 0) {
        radio::closeTagPacket(radio::fate_e::filtered);
        return 0;
    }
    const int form = radio::data_analytics_type.load(std::memory_order_relaxed);
    if (form != DATA_ANALYTICS_OFF) {
        radio::currentHash = hashOf(info);
    }
    tag_read_s read{.info = &info, .time = time, .timeText = {}, .idHex = &idHex, .eventNum = 0};
    if (form == DATA_ANALYTICS_BINARY) {
        sendBinaryReport(read);
    } else {
        reportAsJson(&read);
    }
    return 0;
}

multiTag_e multiTagType(const TAG_INFO_s* tagInfo) {
    if (tagInfo->epcLength != multiTagBits) {
        return MULTI_TAG_NONE;
    }
    switch (tagInfo->epc[0]) {
        case 0x35:
            return MULTI_TAG_1;
        case 0x34:
            return MULTI_TAG_2;
        default:
            return MULTI_TAG_3;
    }
}

std::uint16_t computeMultiTagCRC(multiTag_e type, const std::uint8_t* epc) {
    const auto* mask = std::ranges::find(multiTagMasks, type, &multi_tag_mask_s::type);
    if (mask == multiTagMasks.end()) {
        return 0;
    }
    std::array<std::uint8_t, multiTagBytes> bytes;
    std::copy_n(epc, bytes.size(), bytes.begin());
    bytes[mask->byte] &= mask->keep;
    return computeCRC(static_cast<int>(bytes.size()), bytes.data());
}
