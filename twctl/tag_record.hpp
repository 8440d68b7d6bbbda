// SPDX-License-Identifier: MIT
// What a tag report says, in each of its three forms, and how it is shown in columns.
//
// The binary forms carry numbers in tenths and memory as bytes; here they are as in the JSON
// form, so that a filter or a column means the same for all three.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// One report. A member is empty when the report does not carry it.
struct tag_record_s {
    std::string time;  // local time, as "2026-03-02T10:15:30.123+0000"
    std::string epc;   // lower-case hex digits
    std::string type;  // of the mode; empty in the binary forms
    std::optional<std::int64_t> antenna;
    std::optional<std::int64_t> reads;  // since the tag's last report
    // All members of "data" of the JSON form; of a binary report the same names and units.
    nlohmann::json members = nlohmann::json::object();
};

// Replaces *record. False for a frame that is not a tag report in any of the three forms.
bool readTagFrame(std::string_view frame, tag_record_s* record);

// Which reports are wanted. Empty lists want all.
struct tag_filter_s {
    std::vector<std::string> epcPrefixes;  // hex digits of either case
    std::vector<std::int64_t> antennas;    // on an array reader beams
};
bool wantsAll(const tag_filter_s& filter);

// Whether the report's EPC begins with one of the prefixes and its antenna is one of the
// list. A report without an antenna is not wanted where the list has one.
bool isWanted(const tag_filter_s& filter, const tag_record_s& record);

// A column shows one member of a report by its name. Five have names of their own: "time",
// "type", "epc", "rssi" (dBm), and "memory", which is all tag memory as
// "TID=e280...; USER[0-1]=...".
using columns_t = std::vector<std::string>;

// The columns of the CSV form when none are chosen.
const columns_t& usualColumns();

// Every name that can be chosen, without the memory keys such as "USER[0-1]".
const columns_t& knownColumns();

// Whether a name can be chosen, memory keys of one range included.
bool isColumn(const std::string& name);

// What a report says in a column, as text; the elements of lists with "; " between.
// Empty when the report does not carry it.
std::string columnText(const tag_record_s& record, const std::string& column);

// A report, or the names themselves, as comma-separated values: an empty field for what
// the report does not carry, texts quoted where RFC 4180 asks for it.
std::string csvHeader(const columns_t& columns = usualColumns());
std::string csvLine(const tag_record_s& record, const columns_t& columns = usualColumns());
