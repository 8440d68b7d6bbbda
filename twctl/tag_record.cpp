// SPDX-License-Identifier: MIT
#include "tag_record.hpp"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <ctime>
#include <nlohmann/json.hpp>

#include "decoding.hpp"
#include "tw_msg.pb.h"

namespace {

using nlohmann::json;

// Reads the member when it is there and of that type.
template <class Value>
void take(const json& object, const char* key, Value* out) {
    const auto member = object.find(key);
    if (member == object.end()) {
        return;
    }
    if constexpr (std::is_same_v<Value, std::string>) {
        if (member->is_string()) {
            *out = member->template get<std::string>();
        }
    } else if (std::is_floating_point_v<typename Value::value_type> ? member->is_number()
                                                                    : member->is_number_integer()) {
        *out = member->template get<typename Value::value_type>();
    }
}

bool readJson(std::string_view text, tag_record_s* record) {
    const json root = json::parse(text, nullptr, false);
    if (!root.is_object() || !root.contains("data") || !root["data"].is_object()) {
        return false;
    }
    const json& data = root["data"];
    take(root, "timestamp", &record->time);
    take(root, "type", &record->type);
    take(data, "idHex", &record->epc);
    take(data, "antenna", &record->antenna);
    take(data, "peakRssi", &record->rssi);
    take(data, "reads", &record->reads);
    take(data, "channel", &record->channel);
    take(data, "eventNum", &record->eventNum);
    return !record->epc.empty();
}

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

bool readBinary(std::string_view bytes, tag_record_s* record) {
    constexpr double kilohertz = 1000.0;  // to a MHz
    velmo::tag_data_report report;
    if (!report.ParseFromArray(bytes.data(), static_cast<int>(bytes.size())) || !report.has_tag_id()) {
        return false;
    }
    record->epc = hexText(report.tag_id());
    if (report.has_timestamp_millis()) {
        record->time = localTime(report.timestamp_millis());
    }
    if (report.has_antenna()) {
        record->antenna = report.antenna();
    }
    if (report.has_rssi_int()) {
        record->rssi = report.rssi_int();
    }
    if (report.has_tag_count()) {
        record->reads = report.tag_count();
    }
    if (report.has_channel()) {
        record->channel = report.channel() / kilohertz;
    }
    if (report.has_event_num()) {
        record->eventNum = report.event_num();
    }
    return true;
}

bool beginsWith(std::string_view epc, std::string_view prefix) {
    return epc.size() >= prefix.size() &&
           std::equal(prefix.begin(), prefix.end(), epc.begin(),
                      [](unsigned char a, unsigned char b) { return std::tolower(a) == std::tolower(b); });
}

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

template <class Value>
std::string csvNumber(const std::optional<Value>& value) {
    return value ? json(*value).dump() : "";  // the shortest text that reads back as the number
}

}  // namespace

const char* const csvHeader = "time,epc,antenna,rssi,reads,channel,eventNum,type";

bool readTagFrame(std::string_view frame, tag_record_s* record) {
    *record = {};
    const std::optional<tag_frame_s> parts = splitTagFrame(frame);
    if (!parts) {
        return readJson(frame, record);
    }
    return parts->kind == 0 ? readJson(parts->body, record) : readBinary(parts->body, record);
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

std::string csvLine(const tag_record_s& record) {
    const std::string fields[] = {csvField(record.time),      csvField(record.epc),
                                  csvNumber(record.antenna),  csvNumber(record.rssi),
                                  csvNumber(record.reads),    csvNumber(record.channel),
                                  csvNumber(record.eventNum), csvField(record.type)};
    std::string line;
    for (const std::string& field : fields) {
        line += (&field == fields ? "" : ",") + field;
    }
    return line;
}
