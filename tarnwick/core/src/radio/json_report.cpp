// SPDX-License-Identifier: MIT
// The JSON form of a tag report. Its text is written once, member by member, when the
// tag packet comes. Members that come later (a heat map, outcomes of accesses) are in a
// list of their own, sorted by key, and are merged into the text when the report leaves.
#include <algorithm>
#include <array>
#include <cstdio>
#include <span>
#include <utility>

#include "additional_config.hpp"
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

std::atomic<std::uint64_t> radio::eventNum{0};
bool radio::isPending = false;

// One member of "data": it is present when the packet has all of `fields` and the
// mode's switch is on.
struct report_member_s {
    std::string_view key;
    std::uint32_t fields;
    bool (*enabled)(const mode_configuration_s& mode);
    char* (*write)(const tag_read_s& read, const report_plan_s& plan, char* out);
    std::size_t keyPart = 0;  // its place in keyParts; filled for all rows below
};

namespace {

// The members from which a key of the additional-keys database is made.
constexpr std::array<std::string_view, 5> keyParts{"PC", "idHex", "CRC", "TID", "antenna"};
constexpr std::size_t tidPart = 3;  // the only one that comes behind the tag packet
constexpr std::size_t antennaPart = 4;
constexpr std::size_t noPart = keyParts.size();
constexpr std::size_t keyPartOf(std::string_view key) {
    return static_cast<std::size_t>(std::ranges::find(keyParts, key) - keyParts.begin());
}

constexpr std::size_t headerBytes = std::tuple_size_v<report_header_t>;
constexpr std::string_view opening = "{\"data\":";
constexpr std::size_t uriBytes = 1024;

// A member that came after the tag packet: "key":value in the late bytes. Keys are
// texts that need no escaping.
struct late_member_s {
    std::size_t begin;
    std::size_t keyLength;
    std::size_t end;
};

// A slot of "accessResults": its text in the late bytes.
struct slot_s {
    std::size_t begin;
    std::size_t length;
};

// Where a member of the tag packet begins in the text, behind its comma.
struct mark_s {
    const report_member_s* row;
    const char* begin;
};

// The report. Its memory is kept for the next one. Engine thread, as all state in this file.
struct report_s {
    bool everBuilt = false;
    bool ofTag = false;  // it has members of a tag packet, a timestamp and a type
    std::string error;   // why it cannot leave; empty for no reason

    std::vector<char> text;   // room for a header, then the report without late members
    std::size_t dataEnd = 0;  // behind the last member
    std::size_t end = 0;
    std::array<mark_s, 32> marks;  // the first `markCount` count
    std::size_t markCount = 0;

    std::vector<late_member_s> late;  // by key
    std::vector<slot_s> results;
    std::vector<char> lateBytes;  // of both; the first `lateSize` count
    std::size_t lateSize = 0;

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

constexpr auto always = [](const mode_configuration_s&) { return true; };

template <bool report_switches_s::*flag>
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
constexpr auto reportMembers =
    [](auto rows) {
        for (report_member_s& row : rows) {
            row.keyPart = keyPartOf(row.key);
        }
        return rows;
    }(std::array{
        report_member_s{"CRC", RXE_FIELD_CRC, isOn<&mode_configuration_s::reportCRC>, word<&TAG_INFO_s::crc>},
        report_member_s{"MAC", 0, isOn<&mode_configuration_s::reportMAC>,
                        [](const tag_read_s&, const report_plan_s& plan, char* out) {
                            return putPlanned(plan.macText, out);
                        }},
        report_member_s{"PC", RXE_FIELD_PC, isOn<&mode_configuration_s::reportPC>, word<&TAG_INFO_s::pc>},
        report_member_s{"XPC1", RXE_FIELD_XPC1, isOn<&mode_configuration_s::reportXPC>,
                        word<&TAG_INFO_s::xpc1>},
        report_member_s{"XPC2", RXE_FIELD_XPC1 | RXE_FIELD_XPC2, isOn<&mode_configuration_s::reportXPC>,
                        word<&TAG_INFO_s::xpc2>},
        report_member_s{"antenna", 0, isOn<&mode_configuration_s::reportAntenna>,
                        [](const tag_read_s&, const report_plan_s&, char* out) {
                            return putUnsigned(radio::currentTxAntenna, out);
                        }},
        report_member_s{"antennaPortName", 0,
                        [](const mode_configuration_s& mode) { return !mode.antennaPortNames.empty(); },
                        [](const tag_read_s&, const report_plan_s& plan, char* out) {
                            return putPlanned(
                                plan.portNameOf(static_cast<std::uint8_t>(radio::currentTxAntenna)), out);
                        }},
        report_member_s{"azimuth", RXE_FIELD_BEARING, always, tenths<&TAG_INFO_s::azimuth>},
        report_member_s{"azimuthConf", RXE_FIELD_BEARING, always, number<&TAG_INFO_s::azimuthConf>},
        report_member_s{"channel", 0, isOn<&mode_configuration_s::reportChannel>,
                        [](const tag_read_s&, const report_plan_s&, char* out) {
                            return json_text::putMegahertz(radio::currentChannel, out);
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
        // Bit 8 of the PC is the toggle: it is set when the tag does not have an EPC, but an ISO
        // application family identifier (EPC Gen2, 6.3.2.1.2.2).
        report_member_s{"format", RXE_FIELD_PC, always,
                        [](const tag_read_s& read, const report_plan_s&, char* out) {
                            return putBytes((read.info->pc & 0x100) != 0 ? R"("uii")" : R"("epc")", out);
                        }},
        report_member_s{"hostName", 0, isOn<&mode_configuration_s::reportHostName>,
                        [](const tag_read_s&, const report_plan_s& plan, char* out) {
                            return putPlanned(plan.hostNameText, out);
                        }},
        report_member_s{"idHex", 0, always,
                        [](const tag_read_s& read, const report_plan_s&, char* out) {
                            return putPlain(*read.idHex, out);
                        }},
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
    });
static_assert(std::ranges::is_sorted(reportMembers, {}, &report_member_s::key));
static_assert(reportMembers.size() <= std::tuple_size_v<decltype(report_s::marks)>);
static_assert(std::ranges::all_of(reportMembers, [](const report_member_s& member) {
    return member.key.size() + 4 <= std::tuple_size_v<decltype(planned_member_s::start)>;
}));

std::string_view bytesOf(const late_member_s& member) {
    return {report.lateBytes.data() + member.begin, member.end - member.begin};
}
std::string_view keyOf(const late_member_s& member) {
    return bytesOf(member).substr(1, member.keyLength);
}
std::string_view valueOf(const late_member_s& member) {
    return bytesOf(member).substr(member.keyLength + 3);  // behind "key":
}

// Makes room for `count` more late bytes. Returns where they begin.
char* lateRoom(std::size_t count) {
    if (report.lateBytes.size() - report.lateSize < count) {
        report.lateBytes.resize(2 * (report.lateSize + count));
    }
    return report.lateBytes.data() + report.lateSize;
}
// The late bytes end at `end` now. Returns the index at which the new ones begin.
std::size_t takeLate(const char* end) {
    return std::exchange(report.lateSize, static_cast<std::size_t>(end - report.lateBytes.data()));
}

// Moves the last late bytes, from `begin` on, to the place of those that they replace, if they fit
// there, and returns their index. So a report stays small when outcomes come many times.
std::size_t placeOfNew(std::size_t begin, std::size_t oldBegin, std::size_t oldLength) {
    const std::size_t length = report.lateSize - begin;
    if (length > oldLength) {
        return begin;
    }
    std::memcpy(report.lateBytes.data() + oldBegin, report.lateBytes.data() + begin, length);
    report.lateSize = begin;
    return oldBegin;
}

// Writes "key": of a late member, with room for `valueBytes` bytes of value. Returns where the value
// begins.
char* beginLate(std::string_view key, std::size_t valueBytes) {
    char* out = lateRoom(key.size() + 3 + valueBytes);
    out = putPlain(key, out);
    *out++ = ':';
    return out;
}

// Puts the member into the list, in place of an older value of the key. `key` may be another text
// than the one in the bytes.
void endLate(std::string_view key, const char* end) {
    const std::size_t begin = takeLate(end);
    const std::size_t length = report.lateSize - begin;
    std::size_t from = 0;
    for (std::size_t to = report.late.size(); from < to;) {
        const std::size_t middle = (from + to) / 2;
        const int order = keyOf(report.late[middle]).compare(key);
        if (order == 0) {
            late_member_s& old = report.late[middle];
            old.begin = placeOfNew(begin, old.begin, old.end - old.begin);
            old.end = old.begin + length;
            return;
        }
        (order < 0 ? from : to) = order < 0 ? middle + 1 : middle;
    }
    report.late.insert(report.late.begin() + static_cast<std::ptrdiff_t>(from),
                       {begin, key.size(), begin + length});
}

// Makes the report pending. A late member does this also without a tag packet.
void expectMore() {
    report.everBuilt = radio::isPending = true;
}

// Makes the slots of "accessResults" a late member.
void joinResults() {
    if (report.results.empty()) {
        return;
    }
    std::size_t room = 2;
    for (const slot_s& slot : report.results) {
        room += slot.length + 3;
    }
    constexpr std::string_view key = "accessResults";
    char* out = beginLate(key, room);
    char before = '[';
    for (const slot_s& slot : report.results) {
        *out++ = std::exchange(before, ',');
        out = putPlain({report.lateBytes.data() + slot.begin, slot.length}, out);
    }
    *out++ = ']';
    endLate(key, out);
}

// Writes a member into the merged text, with a comma in front.
char* putMember(std::string_view bytes, char* out) {
    *out++ = ',';
    return putBytes(bytes, out);
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
    for (const late_member_s& member : report.late) {
        room += member.end - member.begin + 1;
    }
    if (report.merged.size() < room) {
        report.merged.resize(room);
    }
    char* const begin = report.merged.data() + headerBytes + opening.size();
    char* out = begin;
    putBytes(opening, begin - opening.size());
    auto next = report.late.begin();
    for (std::size_t i = 0; i < report.markCount; ++i) {
        for (; next != report.late.end() && keyOf(*next) < report.marks[i].row->key; ++next) {
            out = putMember(bytesOf(*next), out);
        }
        out = putMember(memberAt(i), out);
    }
    for (; next != report.late.end(); ++next) {
        out = putMember(bytesOf(*next), out);
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
            planned_member_s planned{.row = &member,
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

void clearReport() {
    radio::isPending = report.ofTag = false;
    report.markCount = 0;
    report.late.clear();
    report.results.clear();
    report.lateSize = 0;
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
            *mark++ = {member.row, out + 1};
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
    endLate(key, putBytes(value, beginLate(key, value.size())));
    expectMore();
}

void setLateText(std::string_view key, std::string_view text) {
    endLate(key, putPlain(text, beginLate(key, text.size() + 2)));
    expectMore();
}

int add_to_access_results(std::string_view text, std::size_t index) {
    if (index > report.results.size()) {
        return -1;
    }
    const std::size_t begin = takeLate(putBytes(text, lateRoom(text.size())));
    if (index == report.results.size()) {
        report.results.push_back({begin, text.size()});
    } else {
        slot_s& old = report.results[index];
        old = {placeOfNew(begin, old.begin, old.length), text.size()};
    }
    expectMore();
    return index + 1 == report.results.size() ? 1 : 0;
}

addl_key_parts_s keyPartsOfReport() {
    addl_key_parts_s parts{.isReport = radio::isPending, .texts = {}, .antenna = {}};
    const auto take = [&parts](std::size_t part, std::string_view value) {
        if (part < parts.texts.size()) {
            parts.texts[part] = value.substr(1, value.size() - 2);  // without its quotes
        } else if (part == antennaPart) {
            parts.antenna = value;
        }
    };
    for (std::size_t i = 0; i < report.markCount; ++i) {
        const report_member_s& row = *report.marks[i].row;
        if (row.keyPart != noPart) {
            take(row.keyPart, memberAt(i).substr(row.key.size() + 3));  // behind "key":
        }
    }
    for (const late_member_s& member : report.late) {
        if (keyOf(member) == keyParts[tidPart]) {
            take(tidPart, valueOf(member));
        }
    }
    return parts;
}

finished_report_s finishReport() {
    if (!radio::isPending) {
        report.merged.resize(std::max(report.merged.size(), headerBytes + opening.size()));
        const char* const end =
            putBytes(report.everBuilt ? "{}" : "null", report.merged.data() + headerBytes);
        return {{report.merged.data(), static_cast<std::size_t>(end - report.merged.data())}, {}};
    }
    joinResults();
    if (report.ofTag && report.late.empty()) {
        return {{report.text.data(), report.end}, report.error};
    }
    const std::size_t end = merge();
    return {{report.merged.data(), end}, report.error};
}
