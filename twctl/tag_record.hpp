// SPDX-License-Identifier: MIT
// What a tag report says, whatever its form.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// A member is empty when the report does not carry it.
struct tag_record_s {
    std::string time;  // local time, as "2026-03-02T10:15:30.123+0000"
    std::string epc;   // lower-case hex digits
    std::optional<std::int64_t> antenna;
    std::optional<std::int64_t> rssi;   // dBm
    std::optional<std::int64_t> reads;  // since the tag's last report
    std::optional<double> channel;      // MHz
    std::optional<std::uint64_t> eventNum;
    std::string type;  // of the mode; empty in the binary forms
};

// False for a frame that is no tag report in any of the three forms.
bool readTagFrame(std::string_view frame, tag_record_s* record);

// Which reports are wanted. Empty lists want all.
struct tag_filter_s {
    std::vector<std::string> epcPrefixes;  // hex digits of either case
    std::vector<std::int64_t> antennas;    // on an array reader beams
};
bool wantsAll(const tag_filter_s& filter);
bool isWanted(const tag_filter_s& filter, const tag_record_s& record);

// The columns of the CSV form, and a report in them. A member that the report
// does not carry is an empty field; texts are quoted where RFC 4180 asks for it.
extern const char* const csvHeader;
std::string csvLine(const tag_record_s& record);
