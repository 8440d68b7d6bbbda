// SPDX-License-Identifier: MIT
// The members of a record have the names of the JSON form; rows below tell how the fields of the
// binary form become them.
#include "tag_record.hpp"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <ctime>

#include "decoding.hpp"

namespace {

using nlohmann::json;

// A member that is a text, or nothing.
std::string textAt(const json& object, const char* key) {
    const auto member = object.find(key);
    return member != object.end() && member->is_string() ? member->get<std::string>() : "";
}

// A member that is a whole number, or nothing.
std::optional<std::int64_t> integerAt(const json& object, const char* key) {
    const auto member = object.find(key);
    return member != object.end() && member->is_number_integer() ? std::optional(member->get<std::int64_t>())
                                                                 : std::nullopt;
}

// {"data":{"idHex":"3034...",...},"timestamp":"...","type":"SIMPLE"}. False without an EPC.
bool readJson(std::string_view text, tag_record_s* record) {
    const json root = json::parse(text, nullptr, false);
    if (!root.is_object() || !root.contains("data") || !root["data"].is_object()) {
        return false;
    }
    record->members = root["data"];
    record->time = textAt(root, "timestamp");
    record->type = textAt(root, "type");
    record->epc = textAt(record->members, "idHex");
    return !record->epc.empty();
}

// Milliseconds since 1970 as the JSON form writes a time.
std::string localTime(std::uint64_t milliseconds) {
    const auto seconds = static_cast<std::time_t>(milliseconds / 1000);
    std::tm local{};
    char date[32] = "", zone[8] = "", text[64];
    if (localtime_r(&seconds, &local) != nullptr) {
        std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &local);
        std::strftime(zone, sizeof zone, "%z", &local);
    }
    std::snprintf(text, sizeof text, "%s.%03u%s", date, static_cast<unsigned>(milliseconds % 1000), zone);
    return text;
}

// The numbers of a binary report under their names in the JSON form, with what divides
// them; fields of 32 and 64 bits alike.
struct number_field_s {
    const char* field;
    const char* member;
    double divisor = 1;  // 1: a whole number
};
constexpr number_field_s numberFields[] = {
    {"rssi_int", "peakRssi"},
    {"antenna", "antenna"},
    {"tag_count", "reads"},
    {"event_num", "eventNum"},
    {"channel", "channel", 1000},
    {"azimuthx10", "azimuth", 10},
    {"elevationx10", "elevation", 10},
    {"azimuth_confidence", "azimuthConf"},
    {"elevation_confidence", "elevationConf"},
    {"xx10", "x", 10},
    {"yx10", "y", 10},
    {"location_confidence", "locConf"},
    {"phase", "phase"},
};

void takeNumbers(const json& fields, json* members) {
    for (const number_field_s& row : numberFields) {
        const auto value = fields.find(row.field);
        if (value != fields.end()) {
            (*members)[row.member] = row.divisor == 1 ? *value : json(value->get<double>() / row.divisor);
        }
    }
}

// The texts, and words of memory in hex: PC is one word ("3000"), XPC one or two of them. In the
// reduced form the bytes of PC come low byte first.
void takeTexts(const json& fields, bool reduced, json* members) {
    constexpr std::pair<const char*, const char*> texts[] = {{"mac", "MAC"},
                                                             {"host_name", "hostName"},
                                                             {"antenna_port_name", "antennaPortName"},
                                                             {"user_defined", "userDefined"},
                                                             {"tag_id", "idHex"},
                                                             {"crc", "CRC"}};
    for (const auto& [field, member] : texts) {
        if (fields.contains(field)) {
            (*members)[member] = fields[field];
        }
    }
    if (const std::string pc = textAt(fields, "pc"); pc.size() == 4) {
        (*members)["PC"] = reduced ? pc.substr(2) + pc.substr(0, 2) : pc;
    }
    if (const std::string xpc = textAt(fields, "xpc"); xpc.size() >= 4) {
        (*members)["XPC1"] = xpc.substr(0, 4);
        if (xpc.size() > 4) {
            (*members)["XPC2"] = xpc.substr(4);
        }
    }
}

// `reduced` is the form of a BEARING mode. False without an EPC.
bool readBinary(std::string_view bytes, bool reduced, tag_record_s* record) {
    const std::optional<json> fields = binaryFields(bytes);
    if (!fields || !fields->contains("tag_id")) {
        return false;
    }
    if (const auto time = integerAt(*fields, "timestamp_millis")) {
        record->time = localTime(static_cast<std::uint64_t>(*time));
    }
    takeNumbers(*fields, &record->members);
    takeTexts(*fields, reduced, &record->members);
    record->epc = textAt(record->members, "idHex");
    return true;
}

// Hex digits, of either case.
bool beginsWith(std::string_view epc, std::string_view prefix) {
    return epc.size() >= prefix.size() &&
           std::equal(prefix.begin(), prefix.end(), epc.begin(),
                      [](unsigned char a, unsigned char b) { return std::tolower(a) == std::tolower(b); });
}

// RFC 4180, 2.6 and 2.7: quoted where a comma, a quotation mark or a line end stands in it.
std::string csvField(const std::string& text) {
    if (text.find_first_of(",\"\r\n") == std::string::npos) {
        return text;
    }
    std::string quoted = "\"";
    for (const char c : text) {
        quoted += c == '"' ? "\"\"" : std::string(1, c);
    }
    return quoted + "\"";
}

// Whether a member is memory of a tag: "TID", or "USER[0-1]" for a range of words.
bool isMemory(std::string_view name) {
    constexpr std::string_view banks[] = {"RESERVED", "EPC", "TID", "USER"};
    const std::string_view words = name.substr(std::min(name.find('['), name.size()));
    const std::string_view bank = name.substr(0, name.size() - words.size());
    return std::ranges::find(banks, bank) != std::end(banks) &&
           (words.empty() || (words.ends_with(']') && words.find(',') == words.npos));
}

// A text as it is, the elements of a list with "; " between, all else as JSON.
std::string plain(const json& value) {
    if (value.is_string()) {
        return value.get<std::string>();
    }
    if (!value.is_array()) {
        return value.is_null() ? "" : value.dump(-1, ' ', false, json::error_handler_t::replace);
    }
    std::string text;
    for (const json& element : value) {
        text += (text.empty() ? "" : "; ") + plain(element);
    }
    return text;
}

std::string memoryText(const json& members) {
    std::string text;
    for (const auto& [name, value] : members.items()) {
        if (isMemory(name)) {
            text += (text.empty() ? "" : "; ") + name + "=" + plain(value);
        }
    }
    return text;
}

}  // namespace

const columns_t& usualColumns() {
    static const columns_t columns{
        "time",     "epc",  "antenna", "rssi",      "reads",       "channel",
        "eventNum", "type", "azimuth", "elevation", "azimuthConf", "elevationConf",
        "x",        "y",    "locConf", "phase",     "memory",      "accessResults"};
    return columns;
}

const columns_t& knownColumns() {
    static const columns_t columns = [] {
        columns_t all = usualColumns();
        for (const char* more :
             {"antennaPortName", "CRC", "PC", "XPC1", "XPC2", "MAC", "hostName", "tagUri", "epcUri",
              "userDefined", "format", "HEATMAP", "RESERVED", "EPC", "TID", "USER"}) {
            all.emplace_back(more);
        }
        return all;
    }();
    return columns;
}

bool isColumn(const std::string& name) {
    return isMemory(name) || std::ranges::find(knownColumns(), name) != knownColumns().end();
}

std::string columnText(const tag_record_s& record, const std::string& column) {
    if (column == "time" || column == "type" || column == "epc") {
        return column == "time" ? record.time : column == "type" ? record.type : record.epc;
    }
    if (column == "memory") {
        return memoryText(record.members);
    }
    const auto member = record.members.find(column == "rssi" ? "peakRssi" : column);
    return member == record.members.end() ? "" : plain(*member);
}

bool readTagFrame(std::string_view frame, tag_record_s* record) {
    constexpr std::uint8_t jsonKind = 0, reducedKind = 2;
    *record = {};
    const std::optional<tag_frame_s> parts = splitTagFrame(frame);
    const bool isReport = !parts ? readJson(frame, record)
                          : parts->kind == jsonKind
                              ? readJson(parts->body, record)
                              : readBinary(parts->body, parts->kind == reducedKind, record);
    record->antenna = integerAt(record->members, "antenna");
    record->reads = integerAt(record->members, "reads");
    return isReport;
}

bool wantsAll(const tag_filter_s& filter) {
    return filter.epcPrefixes.empty() && filter.antennas.empty();
}

bool isWanted(const tag_filter_s& filter, const tag_record_s& record) {
    const bool epc =
        filter.epcPrefixes.empty() || std::ranges::any_of(filter.epcPrefixes, [&](const std::string& prefix) {
            return beginsWith(record.epc, prefix);
        });
    const bool antenna =
        filter.antennas.empty() ||
        (record.antenna && std::ranges::find(filter.antennas, *record.antenna) != filter.antennas.end());
    return epc && antenna;
}

std::string csvHeader(const columns_t& columns) {
    std::string line;
    for (const std::string& column : columns) {
        line += (line.empty() ? "" : ",") + column;
    }
    return line;
}

std::string csvLine(const tag_record_s& record, const columns_t& columns) {
    std::string line;
    for (const std::string& column : columns) {
        line += (&column == &columns.front() ? "" : ",") + csvField(columnText(record, column));
    }
    return line;
}
