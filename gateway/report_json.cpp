// SPDX-License-Identifier: MIT
#include "report_json.hpp"

#include <array>
#include <charconv>
#include <nlohmann/json.hpp>

#include "event.hpp"
#include "tw_msg.pb.h"
#include "twctl/decoding.hpp"

namespace {

using nlohmann::json;
using report_t = velmo::tag_data_report;

// The shortest decimal that reads back as this float.
double shortest(float value) {
    std::array<char, 64> text{};
    const auto end = std::to_chars(text.data(), text.data() + text.size(), value).ptr;
    double result = value;
    std::from_chars(text.data(), end, result);
    return result;
}

double tenths(std::int32_t value) {
    return value / 10.0;
}

std::string pcBytes(const report_t& report, bool reduced) {
    std::string pc = report.pc();
    if (reduced && pc.size() == 2) {
        std::swap(pc[0], pc[1]);
    }
    return pc;
}

// A member of "data": when the report has it, and its value.
struct member_s {
    const char* key;
    bool (report_t::*has)() const;
    json (*value)(const report_t& report);
};

// The words of XPC and the format come from parts of a field and are not here.
constexpr std::array members{
    member_s{"CRC", &report_t::has_crc, [](const report_t& r) -> json { return hexText(r.crc()); }},
    member_s{"MAC", &report_t::has_mac, [](const report_t& r) -> json { return r.mac(); }},
    member_s{"antenna", &report_t::has_antenna, [](const report_t& r) -> json { return r.antenna(); }},
    member_s{"antennaPortName", &report_t::has_antenna_port_name,
             [](const report_t& r) -> json { return r.antenna_port_name(); }},
    member_s{"azimuth", &report_t::has_azimuthx10,
             [](const report_t& r) -> json { return tenths(r.azimuthx10()); }},
    member_s{"azimuthConf", &report_t::has_azimuth_confidence,
             [](const report_t& r) -> json { return r.azimuth_confidence(); }},
    member_s{"channel", &report_t::has_channel,
             [](const report_t& r) -> json { return r.channel() / 1000.0; }},
    member_s{"elevation", &report_t::has_elevationx10,
             [](const report_t& r) -> json { return tenths(r.elevationx10()); }},
    member_s{"elevationConf", &report_t::has_elevation_confidence,
             [](const report_t& r) -> json { return r.elevation_confidence(); }},
    member_s{"eventNum", &report_t::has_event_num, [](const report_t& r) -> json { return r.event_num(); }},
    member_s{"hostName", &report_t::has_host_name, [](const report_t& r) -> json { return r.host_name(); }},
    member_s{"idHex", &report_t::has_tag_id, [](const report_t& r) -> json { return hexText(r.tag_id()); }},
    member_s{"locConf", &report_t::has_location_confidence,
             [](const report_t& r) -> json { return r.location_confidence(); }},
    member_s{"peakRssi", &report_t::has_rssi_int, [](const report_t& r) -> json { return r.rssi_int(); }},
    member_s{"phase", &report_t::has_phase, [](const report_t& r) -> json { return shortest(r.phase()); }},
    member_s{"reads", &report_t::has_tag_count, [](const report_t& r) -> json { return r.tag_count(); }},
    member_s{"userDefined", &report_t::has_user_defined,
             [](const report_t& r) -> json { return r.user_defined(); }},
    member_s{"x", &report_t::has_xx10, [](const report_t& r) -> json { return tenths(r.xx10()); }},
    member_s{"y", &report_t::has_yx10, [](const report_t& r) -> json { return tenths(r.yx10()); }},
};

void addProtocolControl(const report_t& report, bool reduced, json* data) {
    constexpr unsigned char isUii = 0x01;  // bit 8 of the PC, in its high byte
    if (report.pc().size() == 2) {
        const std::string pc = pcBytes(report, reduced);
        (*data)["PC"] = hexText(pc);
        (*data)["format"] = (static_cast<unsigned char>(pc[0]) & isUii) != 0 ? "uii" : "epc";
    }
    const std::string xpc = hexText(report.xpc());
    constexpr std::size_t word = 4;  // digits
    if (xpc.size() >= word) {
        (*data)["XPC1"] = xpc.substr(0, word);
    }
    if (xpc.size() >= 2 * word) {
        (*data)["XPC2"] = xpc.substr(word, word);
    }
}

// The daemon's form, with milliseconds and an offset without a colon.
std::string timeText(std::uint64_t milliseconds) {
    constexpr std::size_t upToMilliseconds = 23;
    return utcText(static_cast<std::int64_t>(milliseconds) * 1'000).substr(0, upToMilliseconds) + "+0000";
}

}  // namespace

std::string jsonOfBinary(std::string_view bytes, bool reduced) {
    constexpr std::uint64_t lastTime = 253'402'300'799'999;  // ms, the end of the year 9999
    report_t report;
    if (!report.ParseFromArray(bytes.data(), static_cast<int>(bytes.size())) || !report.has_tag_id() ||
        report.timestamp_millis() > lastTime) {
        return {};
    }
    json data = json::object();
    for (const member_s& member : members) {
        if ((report.*member.has)()) {
            data[member.key] = member.value(report);
        }
    }
    addProtocolControl(report, reduced, &data);
    json document{{"data", data}, {"timestamp", timeText(report.timestamp_millis())}};
    if (reduced) {
        document["type"] = "BEARING";
    }
    return document.dump(-1, ' ', false, json::error_handler_t::replace);
}
