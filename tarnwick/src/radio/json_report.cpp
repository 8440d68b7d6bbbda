// SPDX-License-Identifier: MIT
// The JSON form of a tag report: the one object that is being built.
//
// Building an object of some 15 members for every tag would cost more than all
// else on this path. The object therefore stays in memory when its report has
// left. The next report of the same shape (the same set of members, which
// changes only with the mode and with the fields of the packet) writes its
// values in place; a report of another shape starts from an empty object. Whether
// a report is pending is a word of its own.
//
// Beside the object stands its layout: the texts between the values, so that a
// report of the shape as it stands need not have its keys escaped once more.
#include <array>
#include <bit>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <span>
#include <utility>
#include <vector>

#include "mode_config.hpp"
#include "radio_state.hpp"
#include "tuvr.h"

using nlohmann::json;

std::uint64_t eventNum = 0;

namespace {

// The report. Null until the first one is built, an object from then on. What it
// holds counts only while `pending` is set. Engine thread, as all state here.
json tag_info_json;
bool pending = false;

constexpr std::size_t uriBytes = 1024;

constexpr auto always = []() { return true; };

// The value of a member, which has the kind that the member's row says.
void setText(json* value, std::string_view text) {
    value->get_ref<std::string&>().assign(text);
}
void setUnsigned(json* value, std::uint64_t number) {
    value->get_ref<json::number_unsigned_t&>() = number;
}
void setReal(json* value, double number) {
    value->get_ref<json::number_float_t&>() = number;
}

// Four lower-case hex digits.
void setWord(json* value, std::uint16_t word) {
    constexpr std::string_view digits = "0123456789abcdef";
    const std::array<char, 4> text{digits[word >> 12 & 15], digits[word >> 8 & 15], digits[word >> 4 & 15],
                                   digits[word & 15]};
    setText(value, {text.data(), text.size()});
}

void setUri(json* value, int (*decode)(const char*, int, char*), const std::string& idHex) {
    std::array<char, uriBytes> uri{};
    const int status = decode(idHex.c_str(), static_cast<int>(uri.size()), uri.data());
    if (status != 0) {
        std::snprintf(uri.data(), uri.size(), "failed to decode error %d", status);
    }
    setText(value, uri.data());
}

// One member of "data": it is present when the packet has all of `fields` and the
// mode's switch is on.
struct report_member_s {
    const char* key;
    json::value_t kind;
    std::uint32_t fields;
    bool (*enabled)();
    void (*fill)(json* value, const tag_read_s& read);
};

constexpr auto text = json::value_t::string;
constexpr auto natural = json::value_t::number_unsigned;
constexpr auto integer = json::value_t::number_integer;
constexpr auto real = json::value_t::number_float;

constexpr std::array reportMembers{
    report_member_s{"eventNum", natural, 0, always,
                    [](json* value, const tag_read_s& read) { setUnsigned(value, read.eventNum); }},
    report_member_s{"idHex", text, 0, always,
                    [](json* value, const tag_read_s& read) { setText(value, *read.idHex); }},
    // Bit 8 of the PC is the toggle: the tag holds no EPC but an ISO application
    // family identifier (Gen2 air interface, 6.3.2.1.2.2).
    report_member_s{"format", text, RXE_FIELD_PC, always,
                    [](json* value, const tag_read_s& read) {
                        setText(value, (read.info->pc & 0x100) != 0 ? "uii" : "epc");
                    }},
    report_member_s{
        "tagUri", text, 0, isDecodeTagUriEnabled,
        [](json* value, const tag_read_s& read) { setUri(value, tuvr_hexToEpcTagUri, *read.idHex); }},
    report_member_s{
        "epcUri", text, 0, isDecodeEpcUriEnabled,
        [](json* value, const tag_read_s& read) { setUri(value, tuvr_hexToEpcUri, *read.idHex); }},
    report_member_s{"MAC", text, 0, isReportMACEnabled,
                    [](json* value, const tag_read_s&) { setText(value, readerNames().rdr_mac); }},
    report_member_s{"hostName", text, 0, isReportHostNameEnabled,
                    [](json* value, const tag_read_s&) { setText(value, readerNames().rdr_hostname); }},
    report_member_s{"antenna", natural, 0, isReportAntennaEnabled,
                    [](json* value, const tag_read_s&) { setUnsigned(value, currentTxAntenna); }},
    report_member_s{"antennaPortName", text, 0, isAntennaPortMappingEnabled,
                    [](json* value, const tag_read_s&) {
                        setText(value, getAntennaPortMapping(static_cast<std::uint8_t>(currentTxAntenna)));
                    }},
    report_member_s{"azimuth", real, RXE_FIELD_BEARING, always,
                    [](json* value, const tag_read_s& read) { setReal(value, read.info->azimuth / 10.0); }},
    report_member_s{"elevation", real, RXE_FIELD_BEARING, always,
                    [](json* value, const tag_read_s& read) { setReal(value, read.info->elevation / 10.0); }},
    report_member_s{"azimuthConf", natural, RXE_FIELD_BEARING, always,
                    [](json* value, const tag_read_s& read) { setUnsigned(value, read.info->azimuthConf); }},
    report_member_s{
        "elevationConf", natural, RXE_FIELD_BEARING, always,
        [](json* value, const tag_read_s& read) { setUnsigned(value, read.info->elevationConf); }},
    report_member_s{"x", real, RXE_FIELD_LOCATION, always,
                    [](json* value, const tag_read_s& read) { setReal(value, read.info->locationX / 10.0); }},
    report_member_s{"y", real, RXE_FIELD_LOCATION, always,
                    [](json* value, const tag_read_s& read) { setReal(value, read.info->locationY / 10.0); }},
    report_member_s{"locConf", natural, RXE_FIELD_LOCATION, always,
                    [](json* value, const tag_read_s& read) { setUnsigned(value, read.info->locConf); }},
    report_member_s{"peakRssi", integer, RXE_FIELD_RSSI, always,
                    [](json* value, const tag_read_s& read) {
                        value->get_ref<json::number_integer_t&>() = read.info->rssi;
                    }},
    report_member_s{"reads", natural, RXE_FIELD_TAG_COUNT, always,
                    [](json* value, const tag_read_s& read) { setUnsigned(value, read.info->tagCount); }},
    report_member_s{"phase", real, RXE_FIELD_PHASE, always,
                    [](json* value, const tag_read_s& read) { setReal(value, read.info->phase); }},
    // kHz to MHz by way of a 32-bit float, as consumers have always seen it.
    report_member_s{"channel", real, 0, isReportChannelEnabled,
                    [](json* value, const tag_read_s&) {
                        setReal(value, static_cast<double>(static_cast<float>(currentChannel)) / 1000.0);
                    }},
    report_member_s{"PC", text, RXE_FIELD_PC, isReportPCEnabled,
                    [](json* value, const tag_read_s& read) { setWord(value, read.info->pc); }},
    report_member_s{"XPC1", text, RXE_FIELD_XPC1, isReportXPCEnabled,
                    [](json* value, const tag_read_s& read) { setWord(value, read.info->xpc1); }},
    report_member_s{"XPC2", text, RXE_FIELD_XPC1 | RXE_FIELD_XPC2, isReportXPCEnabled,
                    [](json* value, const tag_read_s& read) { setWord(value, read.info->xpc2); }},
    report_member_s{"CRC", text, RXE_FIELD_CRC, isReportCRCEnabled,
                    [](json* value, const tag_read_s& read) { setWord(value, read.info->crc); }},
    report_member_s{"userDefined", text, 0, isUserDefinedDataEnabled,
                    [](json* value, const tag_read_s&) { setText(value, getUserDefinedData()); }},
};
static_assert(reportMembers.size() <= 32);

// The shape of the object in memory: bit n stands for row n of reportMembers. It
// is 0, which is no report's shape, while the object is empty or holds members
// that no row knows.
std::uint32_t builtShape = 0;
// The values inside tag_info_json, by row; they stay where they are as long as
// the members of the shape do.
std::array<json*, reportMembers.size()> memberValues{};
json* timestampValue = nullptr;
json* typeValue = nullptr;
// What stands around the values of the shape.
std::vector<report_piece_s> layout;

std::uint32_t shapeOf(const TAG_INFO_s& info) {
    std::uint32_t shape = 0;
    for (std::size_t row = 0; row < reportMembers.size(); ++row) {
        const report_member_s& member = reportMembers[row];
        if ((info.fields & member.fields) == member.fields && member.enabled()) {
            shape |= 1U << row;
        }
    }
    return shape;
}

// Adds the pieces of an object to the layout; `before` gathers what stands before
// the next value.
void layOut(const json& object, std::string* before) {
    std::string_view separator;
    *before += '{';
    for (const auto& [key, value] : object.items()) {
        before->append(separator).append(json(key).dump()).append(":");
        separator = ",";
        if (value.is_object()) {
            layOut(value, before);
        } else {
            layout.push_back({std::exchange(*before, {}), &value});
        }
    }
    *before += '}';
}

void rebuild(std::uint32_t shape) {
    tag_info_json = json::object();
    json& data = tag_info_json["data"] = json::object();
    for (std::uint32_t rest = shape; rest != 0; rest &= rest - 1) {
        const auto row = static_cast<std::size_t>(std::countr_zero(rest));
        memberValues[row] = &(data[reportMembers[row].key] = json(reportMembers[row].kind));
    }
    timestampValue = &(tag_info_json["timestamp"] = json(text));
    typeValue = &(tag_info_json["type"] = json(text));
    layout.clear();
    std::string before;
    layOut(tag_info_json, &before);
    layout.push_back({before, nullptr});
    builtShape = shape;
}

// What is left in memory of a report that is not pending goes away here.
void forgetOldReport() {
    if (!pending && builtShape != 0) {
        tag_info_json.clear();
        builtShape = 0;
    }
}

}  // namespace

bool isReportPending() {
    return pending;
}

void clearReport() {
    pending = false;
    if (builtShape == 0) {
        tag_info_json.clear();  // the kind stays
    }
}

void buildJsonReport(const tag_read_s& read) {
    const std::uint32_t shape = shapeOf(*read.info);
    if (shape != builtShape) {
        rebuild(shape);
    }
    setText(timestampValue, *read.timeText);
    const mode_type_s* type = findModeType(getModeType());
    setText(typeValue, type != nullptr ? type->word : std::string_view());
    for (std::uint32_t rest = shape; rest != 0; rest &= rest - 1) {
        const auto row = static_cast<std::size_t>(std::countr_zero(rest));
        reportMembers[row].fill(memberValues[row], read);
    }
    pending = true;
}

const json& pendingReport() {
    forgetOldReport();
    return tag_info_json;
}

std::span<const report_piece_s> pendingReportLayout() {
    return pending && builtShape != 0 ? layout : std::span<const report_piece_s>();
}

json& reportData() {
    forgetOldReport();
    builtShape = 0;  // the caller's members belong to no shape
    pending = true;
    return tag_info_json["data"];
}
