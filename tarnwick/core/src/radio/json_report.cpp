// SPDX-License-Identifier: MIT
// The JSON form of a tag report. Its text is written once, member by member, when the
// tag packet comes. What joins it later (a heat map, outcomes of accesses) waits in a
// list of its own, sorted by key, and is merged in when the report leaves.
#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

#include "json_values.hpp"
#include "mode/record.hpp"
#include "radio/report_plan.hpp"
#include "radio_state.hpp"
#include "tuvr.h"

using json_text::putBytes;
using json_text::putSigned;
using json_text::putTenths;
using json_text::putUnsigned;
using json_text::putWord;

std::uint64_t eventNum = 0;

namespace {

constexpr std::size_t headerBytes = std::tuple_size_v<report_header_t>;
constexpr std::string_view opening = "{\"data\":";
constexpr std::size_t uriBytes = 1024;

// A member that joined the report after its tag packet. `text` is its value as JSON.
struct late_member_s {
    std::string key;
    std::string text;
};

// Where a member of the tag packet begins in the text, behind its comma.
struct mark_s {
    const planned_member_s* member;
    const char* begin;
};

// The report. All memory is kept for the next one. Engine thread, as all state here.
struct report_s {
    bool pending = false;
    bool everBuilt = false;
    bool ofTag = false;  // it has members of a tag packet, a timestamp and a type
    std::string error;   // why it cannot leave; empty for no reason

    std::vector<char> text;   // room for a header, then the report without late members
    std::size_t dataEnd = 0;  // behind the last member
    std::size_t end = 0;
    std::array<mark_s, 32> marks;  // the first `markCount` count
    std::size_t markCount = 0;

    std::vector<late_member_s> late;  // the first `lateCount` count, by key
    std::size_t lateCount = 0;
    std::vector<std::string> results;  // the slots of "accessResults": the first `resultCount`
    std::size_t resultCount = 0;

    std::vector<char> merged;  // as `text`, with late members
} report;

char* putPlanned(const planned_text_s& text, char* out) {
    if (!text.error.empty() && report.error.empty()) {
        report.error = text.error;
    }
    return putBytes(text.json, out);
}

char* putPlain(std::string_view text, char* out) {
    *out++ = '"';
    out = putBytes(text, out);
    *out++ = '"';
    return out;
}

char* putUri(int (*decode)(const char*, int, char*), const std::string& idHex, char* out) {
    std::array<char, uriBytes> buffer{};
    const int status = decode(idHex.c_str(), static_cast<int>(buffer.size()), buffer.data());
    if (status != 0) {
        std::snprintf(buffer.data(), buffer.size(), "failed to decode error %d", status);
    }
    const std::string_view uri = buffer.data();
    if (json_text::isPlain(uri)) {
        return putPlain(uri, out);
    }
    planned_text_s text;
    text.json = json_text::jsonString(uri, &text.error);
    return putPlanned(text, out);
}

// One member of "data": it is present when the packet has all of `fields` and the
// mode's switch is on.
struct report_member_s {
    std::string_view key;
    std::uint32_t fields;
    bool (*enabled)(const mode_configuration_s& mode);
    char* (*write)(const tag_read_s& read, const report_plan_s& plan, char* out);
};

constexpr auto always = [](const mode_configuration_s&) { return true; };

template <bool mode_configuration_s::*flag>
bool isOn(const mode_configuration_s& mode) {
    return mode.*flag;
}

template <auto TAG_INFO_s::*field>
char* number(const tag_read_s& read, const report_plan_s&, char* out) {
    return putSigned(read.info->*field, out);
}
template <auto TAG_INFO_s::*field>
char* tenths(const tag_read_s& read, const report_plan_s&, char* out) {
    return putTenths(read.info->*field, out);
}
template <auto TAG_INFO_s::*field>
char* word(const tag_read_s& read, const report_plan_s&, char* out) {
    return putWord(read.info->*field, out);
}

// By key, which is the order of the text.
constexpr std::array reportMembers{
    report_member_s{"CRC", RXE_FIELD_CRC, isOn<&mode_configuration_s::reportCRC>, word<&TAG_INFO_s::crc>},
    report_member_s{"MAC", 0, isOn<&mode_configuration_s::reportMAC>,
                    [](const tag_read_s&, const report_plan_s& plan, char* out) {
                        return putPlanned(plan.macText, out);
                    }},
    report_member_s{"PC", RXE_FIELD_PC, isOn<&mode_configuration_s::reportPC>, word<&TAG_INFO_s::pc>},
    report_member_s{"XPC1", RXE_FIELD_XPC1, isOn<&mode_configuration_s::reportXPC>, word<&TAG_INFO_s::xpc1>},
    report_member_s{"XPC2", RXE_FIELD_XPC1 | RXE_FIELD_XPC2, isOn<&mode_configuration_s::reportXPC>,
                    word<&TAG_INFO_s::xpc2>},
    report_member_s{"antenna", 0, isOn<&mode_configuration_s::reportAntenna>,
                    [](const tag_read_s&, const report_plan_s&, char* out) {
                        return putUnsigned(currentTxAntenna, out);
                    }},
    report_member_s{"antennaPortName", 0,
                    [](const mode_configuration_s& mode) { return !mode.antennaPortNames.empty(); },
                    [](const tag_read_s&, const report_plan_s& plan, char* out) {
                        return putPlanned(plan.portNameOf(static_cast<std::uint8_t>(currentTxAntenna)), out);
                    }},
    report_member_s{"azimuth", RXE_FIELD_BEARING, always, tenths<&TAG_INFO_s::azimuth>},
    report_member_s{"azimuthConf", RXE_FIELD_BEARING, always, number<&TAG_INFO_s::azimuthConf>},
    report_member_s{"channel", 0, isOn<&mode_configuration_s::reportChannel>,
                    [](const tag_read_s&, const report_plan_s&, char* out) {
                        return json_text::putMegahertz(currentChannel, out);
                    }},
    report_member_s{"elevation", RXE_FIELD_BEARING, always, tenths<&TAG_INFO_s::elevation>},
    report_member_s{"elevationConf", RXE_FIELD_BEARING, always, number<&TAG_INFO_s::elevationConf>},
    report_member_s{"epcUri", 0, isOn<&mode_configuration_s::decodeEpcUri>,
                    [](const tag_read_s& read, const report_plan_s&, char* out) {
                        return putUri(tuvr_hexToEpcUri, *read.idHex, out);
                    }},
    report_member_s{"eventNum", 0, always,
                    [](const tag_read_s& read, const report_plan_s&, char* out) {
                        return putUnsigned(read.eventNum, out);
                    }},
    // Bit 8 of the PC is the toggle: the tag holds no EPC but an ISO application
    // family identifier (Gen2 air interface, 6.3.2.1.2.2).
    report_member_s{"format", RXE_FIELD_PC, always,
                    [](const tag_read_s& read, const report_plan_s&, char* out) {
                        return putBytes((read.info->pc & 0x100) != 0 ? R"("uii")" : R"("epc")", out);
                    }},
    report_member_s{"hostName", 0, isOn<&mode_configuration_s::reportHostName>,
                    [](const tag_read_s&, const report_plan_s& plan, char* out) {
                        return putPlanned(plan.hostNameText, out);
                    }},
    report_member_s{
        "idHex", 0, always,
        [](const tag_read_s& read, const report_plan_s&, char* out) { return putPlain(*read.idHex, out); }},
    report_member_s{"locConf", RXE_FIELD_LOCATION, always, number<&TAG_INFO_s::locConf>},
    report_member_s{"peakRssi", RXE_FIELD_RSSI, always, number<&TAG_INFO_s::rssi>},
    report_member_s{"phase", RXE_FIELD_PHASE, always,
                    [](const tag_read_s& read, const report_plan_s&, char* out) {
                        return json_text::putReal(static_cast<double>(read.info->phase), out);
                    }},
    report_member_s{"reads", RXE_FIELD_TAG_COUNT, always, number<&TAG_INFO_s::tagCount>},
    report_member_s{"tagUri", 0, isOn<&mode_configuration_s::decodeTagUri>,
                    [](const tag_read_s& read, const report_plan_s&, char* out) {
                        return putUri(tuvr_hexToEpcTagUri, *read.idHex, out);
                    }},
    report_member_s{"userDefined", 0,
                    [](const mode_configuration_s& mode) { return !mode.userDefined.empty(); },
                    [](const tag_read_s&, const report_plan_s& plan, char* out) {
                        return putPlanned(plan.userDefinedText, out);
                    }},
    report_member_s{"x", RXE_FIELD_LOCATION, always, tenths<&TAG_INFO_s::locationX>},
    report_member_s{"y", RXE_FIELD_LOCATION, always, tenths<&TAG_INFO_s::locationY>},
};
static_assert(std::ranges::is_sorted(reportMembers, {}, &report_member_s::key));
static_assert(reportMembers.size() <= std::tuple_size_v<decltype(report_s::marks)>);
static_assert(std::ranges::all_of(reportMembers, [](const report_member_s& member) {
    return member.key.size() + 4 <= std::tuple_size_v<decltype(planned_member_s::start)>;
}));

// The late member of a key; made, with an empty text, when there is none.
late_member_s* lateMember(std::string_view key) {
    const auto end = report.late.begin() + static_cast<std::ptrdiff_t>(report.lateCount);
    const auto place = std::lower_bound(
        report.late.begin(), end, key,
        [](const late_member_s& member, std::string_view wanted) { return member.key < wanted; });
    if (place != end && place->key == key) {
        return &*place;
    }
    const auto index = place - report.late.begin();
    if (report.lateCount == report.late.size()) {
        report.late.emplace_back();
    }
    const auto first = report.late.begin() + index;
    const auto last = report.late.begin() + static_cast<std::ptrdiff_t>(report.lateCount++);
    std::rotate(first, last, last + 1);
    first->key.assign(key);
    return &*first;
}

// Makes the report pending. A late member does so also without a tag packet.
void expectMore() {
    report.everBuilt = report.pending = true;
}

// Makes the slots of "accessResults" a late member.
void joinResults() {
    if (report.resultCount == 0) {
        return;
    }
    std::string& text = lateMember("accessResults")->text;
    text.assign("[");
    for (std::size_t i = 0; i < report.resultCount; ++i) {
        text.append(i == 0 ? "\"" : ",\"").append(report.results[i]).append("\"");
    }
    text += ']';
}

// Writes a member into the merged text, with a comma in front.
char* putMember(std::string_view bytes, char* out) {
    *out++ = ',';
    return putBytes(bytes, out);
}
char* putMember(const late_member_s& member, char* out) {
    *out++ = ',';
    out = putPlain(member.key, out);
    *out++ = ':';
    return putBytes(member.text, out);
}

// The text of a member of the tag packet, with its key.
std::string_view memberAt(std::size_t i) {
    const char* const to =
        i + 1 < report.markCount ? report.marks[i + 1].begin - 1 : report.text.data() + report.dataEnd;
    return {report.marks[i].begin, to};
}

// Writes the report with its late members into `merged`, and returns its end.
std::size_t merge() {
    std::size_t room = headerBytes + opening.size() + report.end + 64;
    for (std::size_t i = 0; i < report.lateCount; ++i) {
        room += report.late[i].key.size() + report.late[i].text.size() + 8;
    }
    if (report.merged.size() < room) {
        report.merged.resize(room);
    }
    char* const begin = report.merged.data() + headerBytes + opening.size();
    char* out = begin;
    putBytes(opening, begin - opening.size());
    std::size_t next = 0;  // of the late ones
    for (std::size_t i = 0; i < report.markCount; ++i) {
        for (; next < report.lateCount && report.late[next].key < report.marks[i].member->key; ++next) {
            out = putMember(report.late[next], out);
        }
        out = putMember(memberAt(i), out);
    }
    for (; next < report.lateCount; ++next) {
        out = putMember(report.late[next], out);
    }
    *begin = '{';
    out += out == begin ? 1 : 0;
    out = putBytes(report.ofTag
                       ? std::string_view(report.text.data() + report.dataEnd, report.end - report.dataEnd)
                       : "}}",
                   out);
    return static_cast<std::size_t>(out - report.merged.data());
}

}  // namespace

std::vector<planned_member_s> plannedMembers(const mode_configuration_s& mode) {
    std::vector<planned_member_s> members;
    for (const report_member_s& member : reportMembers) {
        if (member.enabled(mode)) {
            planned_member_s planned{.key = member.key,
                                     .start = {},
                                     .startLength = 0,
                                     .fields = member.fields,
                                     .write = member.write};
            const std::string start = ",\"" + std::string(member.key) + "\":";
            planned.startLength = start.copy(planned.start.data(), planned.start.size());
            members.push_back(planned);
        }
    }
    return members;
}

bool isReportPending() {
    return report.pending;
}

void clearReport() {
    report.pending = report.ofTag = false;
    report.markCount = 0;
    report.lateCount = report.resultCount = 0;
    report.end = 0;
    report.error.clear();
}

void buildJsonReport(const tag_read_s& read, const report_plan_s& plan) {
    const std::size_t room = headerBytes + opening.size() + plan.room;
    if (report.text.size() < room) {
        report.text.resize(room);
    }
    char* const base = report.text.data();
    char* const data = putBytes(opening, base + headerBytes);
    char* out = data;
    const std::uint32_t fields = read.info->fields;
    mark_s* mark = report.marks.data();
    for (const planned_member_s& member : std::span(plan.members)) {
        const std::uint32_t needed = member.fields;
        if ((fields & needed) == needed) {
            *mark++ = {&member, out + 1};
            std::memcpy(out, member.start.data(), member.start.size());  // of one size, so no call
            out = member.write(read, plan, out + member.startLength);
        }
    }
    report.markCount = static_cast<std::size_t>(mark - report.marks.data());
    *data = '{';  // where the first member has its comma
    report.dataEnd = static_cast<std::size_t>(out - base);
    out = putBytes("},\"timestamp\":\"", out);
    out = putBytes(read.timeText, out);
    out = putBytes(plan.tail, out);
    report.end = static_cast<std::size_t>(out - base);
    report.ofTag = true;
    expectMore();
}

void setLateMember(std::string_view key, std::string_view value) {
    lateMember(key)->text.assign(value);
    expectMore();
}

int add_to_access_results(std::string_view text, std::size_t index) {
    if (index > report.resultCount) {
        return -1;
    }
    if (index == report.results.size()) {
        report.results.emplace_back();
    }
    report.results[index].assign(text);
    report.resultCount = std::max(report.resultCount, index + 1);
    expectMore();
    return index + 1 == report.resultCount ? 1 : 0;
}

std::string_view valueInReport(std::string_view key) {
    for (std::size_t i = 0; i < report.markCount; ++i) {
        if (report.marks[i].member->key == key) {
            return memberAt(i).substr(key.size() + 3);  // behind "key":
        }
    }
    for (std::size_t i = 0; i < report.lateCount; ++i) {
        if (report.late[i].key == key) {
            return report.late[i].text;
        }
    }
    return {};
}

finished_report_s finishReport() {
    if (!report.pending) {
        report.merged.resize(std::max(report.merged.size(), headerBytes + opening.size()));
        const char* const end =
            putBytes(report.everBuilt ? "{}" : "null", report.merged.data() + headerBytes);
        return {{report.merged.data(), static_cast<std::size_t>(end - report.merged.data())}, {}};
    }
    joinResults();
    if (report.ofTag && report.lateCount == 0) {
        return {{report.text.data(), report.end}, report.error};
    }
    const std::size_t end = merge();
    return {{report.merged.data(), end}, report.error};
}
