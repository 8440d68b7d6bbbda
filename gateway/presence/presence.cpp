// SPDX-License-Identifier: MIT
#include "presence.hpp"

#include <array>
#include <charconv>
#include <iterator>
#include <nlohmann/json.hpp>
#include <optional>

#include "event.hpp"

namespace {

// The number behind `"key":` in a body; nothing when it is not there or does not fit. What stands behind a
// decimal point is left out.
template <class Number>
std::optional<Number> numberIn(std::string_view body, std::string_view key) {
    const std::string_view text = numberMember(body, key);
    Number number{};
    const bool isNumber = std::from_chars(text.data(), text.data() + text.size(), number).ec == std::errc();
    return isNumber ? std::optional(number) : std::nullopt;
}

}  // namespace

bool presence_c::load(std::string_view snapshot, std::int64_t now) {
    readers.clear();
    lives.clear();
    return table.load(snapshot, now);
}

std::size_t presence_c::readerOf(std::int64_t boot) {
    const auto known = readers.find(boot);
    if (known != readers.end()) {
        return known->second;
    }
    const std::size_t reader = table.readerOf(nameOfReader(boot));
    readers[boot] = reader;
    lives.resize(std::max(lives.size(), reader + 1));
    lives[reader] = boot;
    return reader;
}

void presence_c::takeReport(std::int64_t boot, std::int64_t takenAt, std::string_view body,
                            std::int64_t now) {
    const sighting_s sighting{.epc = epcOf(body),
                              .antenna = numberIn<std::uint16_t>(body, "\"antenna\":"),
                              .rssi = numberIn<int>(body, "\"peakRssi\":"),
                              .reads = numberIn<std::uint64_t>(body, "\"reads\":").value_or(1),
                              .time = microsecondsOf(textMember(body, "timestamp")),
                              .takenAt = takenAt};
    table.take(readerOf(boot), sighting, now, &events);
}

std::size_t presence_c::derive(std::vector<new_entry_s>* entries, std::int64_t now) {
    std::vector<new_entry_s> all;
    std::size_t bytes = 0;
    const auto tell = [&](std::int64_t takenAt) {
        for (const presence_event_s& event : events) {
            all.push_back(entryOf(event, takenAt));
            bytes += all.back().body.size();
        }
        events.clear();
    };
    all.reserve(entries->size());
    for (new_entry_s& entry : *entries) {
        all.push_back(std::move(entry));
        if (all.back().stream == stream_e::tags) {
            const std::int64_t takenAt = all.back().takenAt;
            takeReport(all.back().boot, takenAt, all.back().body, now);
            tell(takenAt);
        }
    }
    table.tick(now, &events);
    tell(nowMicroseconds());
    *entries = std::move(all);
    return bytes;
}

new_entry_s presence_c::entryOf(const presence_event_s& event, std::int64_t takenAt) const {
    nlohmann::json body = {
        {"event", presenceWord(event.event)}, {"epc", event.epc}, {"at", utcText(event.at)}};
    const auto add = [&](const char* key, const auto& value) {
        if (value) {
            body[key] = *value;
        }
    };
    add("antenna", event.antenna);
    add("from", event.from);
    if (event.event == presence_e::departed) {
        body["firstSeen"] = utcText(event.firstSeen);
        body["lastSeen"] = utcText(event.lastSeen);
        body["reads"] = event.reads;
        add("bestRssi", event.bestRssi);
        add("bestAntenna", event.bestAntenna);
    }
    return {.stream = stream_e::presence,
            .boot = event.reader < lives.size() ? lives[event.reader] : 0,
            .number = std::nullopt,
            .takenAt = takenAt,
            .body = body.dump()};
}

void presence_c::replay(const entry_s& entry, std::int64_t now) {
    if (entry.stream == stream_e::tags) {
        takeReport(entry.boot, entry.takenAt, entry.body, now);
    } else if (textMember(entry.body, "event") == presenceWord(presence_e::departed)) {
        // Those that silence brought; what a report brought has come with it already.
        const std::optional<std::int64_t> at = microsecondsOf(textMember(entry.body, "at"));
        table.departUntil(readerOf(entry.boot), at.value_or(0), &events);
    }
    events.clear();
}

void presence_c::resume(const presence_rules_s& rules, std::int64_t now) {
    table.setRules(rules);
    table.resume(now);
}
