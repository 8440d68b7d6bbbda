// SPDX-License-Identifier: MIT
#include "event.hpp"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <functional>
#include <nlohmann/json.hpp>

namespace {

constexpr std::array<std::string_view, 3> streamNames{"tags", "events", "overflow"};
constexpr std::size_t streamsToChoose = 2;  // the first of the names

// The searcher skips most bytes, in a third of the time that find() takes.
constexpr std::string_view epcKey = "\"idHex\":\"";
const std::boyer_moore_horspool_searcher findEpcKey(epcKey.begin(), epcKey.end());

std::string_view upToQuote(std::string_view text) {
    return text.substr(0, std::min(text.find('"'), text.size()));
}

bool isHexDigit(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
}

// The daemon's "2026-03-02T10:15:30.123+0000" as RFC 3339 wants it, with a colon in the offset. Empty
// for another form.
std::string rfc3339(std::string_view time) {
    constexpr std::size_t length = 28, offsetAt = 23, minutesAt = 26;
    if (time.size() != length || (time[offsetAt] != '+' && time[offsetAt] != '-') ||
        time.find_first_not_of("0123456789-:T.+") != time.npos) {
        return {};
    }
    return std::string(time.substr(0, minutesAt)) + ":" + std::string(time.substr(minutesAt));
}

}  // namespace

std::string_view streamName(stream_e stream) {
    return streamNames[static_cast<std::size_t>(stream)];
}

std::optional<stream_e> streamOf(std::string_view word) {
    const auto* const end = streamNames.begin() + streamsToChoose;
    const auto* const name = std::find(streamNames.begin(), end, word);
    return name == end ? std::nullopt : std::optional(static_cast<stream_e>(name - streamNames.begin()));
}

std::string idOf(const entry_s& entry) {
    return std::to_string(entry.boot) + "/" +
           (entry.number ? std::to_string(*entry.number)
                         : (entry.stream == stream_e::overflow ? "o" : "s") + std::to_string(entry.seq));
}

std::string_view typeOf(const entry_s& entry) {
    if (entry.stream == stream_e::tags) {
        return "tag.read";
    }
    if (entry.stream == stream_e::overflow) {
        return "overflow";
    }
    return entry.body.ends_with("\"type\":\"heartbeat\"}") ? "heartbeat" : "alarm";
}

std::vector<attribute_s> attributesOf(const entry_s& entry) {
    std::string time = rfc3339(textMember(entry.body, "timestamp"));
    std::vector<attribute_s> attributes{
        {"specversion", "1.0"},
        {"id", idOf(entry)},
        {"source", "/readers/" + entry.reader},
        {"type", "tarnwick." + std::string(typeOf(entry))},
        {"time", time.empty() ? utcText(entry.takenAt) : std::move(time)},
    };
    if (!entry.key.empty()) {
        attributes.push_back({"subject", entry.key});
    }
    return attributes;
}

std::string structuredEvent(const entry_s& entry) {
    std::string text = "{";
    for (const auto& [name, value] : attributesOf(entry)) {
        text += "\"" + std::string(name) +
                "\":" + nlohmann::json(value).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) +
                ",";
    }
    return text + "\"datacontenttype\":\"" + std::string(eventContentType) + "\",\"data\":" + entry.body +
           "}";
}

std::string_view textMember(std::string_view body, std::string_view name) {
    const std::string key = "\"" + std::string(name) + "\":\"";
    const std::size_t at = body.find(key);
    return at == body.npos ? std::string_view() : upToQuote(body.substr(at + key.size()));
}

std::string_view epcOf(std::string_view body) {
    const auto* const at = std::search(body.begin(), body.end(), findEpcKey);
    if (at == body.end()) {
        return {};
    }
    const auto begin = static_cast<std::size_t>(at - body.begin()) + epcKey.size();
    const std::string_view epc = upToQuote(body.substr(begin));
    return std::ranges::all_of(epc, isHexDigit) ? epc : std::string_view();
}

std::string utcText(std::int64_t microseconds) {
    constexpr std::int64_t million = 1'000'000;
    const std::time_t seconds = microseconds / million;
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    std::array<char, 64> text{};
    const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S.", &parts);
    const std::string fraction = std::to_string(million + microseconds % million).substr(1);
    return std::string(text.data(), length) + fraction + "Z";
}

std::int64_t nowMicroseconds() {
    return std::chrono::duration_cast<std::chrono::microseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}
