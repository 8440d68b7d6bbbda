// SPDX-License-Identifier: MIT
#include "tag_table.hpp"

#include <spdlog/fmt/fmt.h>

#include <charconv>
#include <cmath>

#include "event.hpp"

namespace {

std::string keyOf(std::size_t reader, std::string_view epc) {
    return std::string(1, static_cast<char>(reader)).append(epc);
}

std::size_t readerIn(std::string_view key) {
    return static_cast<unsigned char>(key.front());
}

template <class Number>
std::optional<Number> as(const std::optional<double>& value) {
    return value ? std::optional(static_cast<Number>(*value)) : std::nullopt;
}

template <class Number>
void writeOr(const std::optional<Number>& value, std::string* out) {
    value ? void(fmt::format_to(std::back_inserter(*out), ",{}", *value)) : void(out->append(",null"));
}

void writeRow(const known_tag_s& tag, std::string* out) {
    fmt::format_to(std::back_inserter(*out), "[{},\"{}\"", tag.reader, std::string_view(*tag.key).substr(1));
    writeOr(tag.antenna, out);
    writeOr(tag.rssi, out);
    fmt::format_to(std::back_inserter(*out), ",{},{},{}", tag.reads, tag.firstSeen, tag.lastSeen);
    out->append(tag.state == tag_state_e::unknown   ? ",null"
                : tag.state == tag_state_e::present ? ",true"
                                                    : ",false");
    for (const auto& value : {tag.azimuth, tag.elevation, tag.x, tag.y}) {
        writeOr(value, out);
    }
    out->push_back(']');
}

void separate(std::size_t written, std::string* out) {
    if (written > 0) {
        out->push_back(',');
    }
}

// The value of a number behind `key`, such as "\"antenna\":".
std::optional<double> numberOf(std::string_view body, std::string_view key) {
    const std::string_view text = numberMember(body, key);
    double value = 0.0;
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), value);
    return parsed.ec == std::errc() && std::isfinite(value) ? std::optional(value) : std::nullopt;
}

}  // namespace

const char* tag_table_c::columns() {
    return R"(["reader","epc","antenna","rssi","reads","firstSeen","lastSeen","present","azimuth","elevation","x","y"])";
}

tag_read_s readOfReport(std::string_view body) {
    constexpr double most = 1e9;  // fits into an int
    const auto whole = [&](std::string_view key) {
        const std::optional<double> value = numberOf(body, key);
        return value && std::abs(*value) < most ? as<int>(value) : std::nullopt;
    };
    const auto part = [&](std::string_view key) { return as<float>(numberOf(body, key)); };
    tag_read_s read{.epc = epcOf(body), .antenna = whole("\"antenna\":"), .rssi = whole("\"peakRssi\":")};
    // Only an array reader has these; one look is enough for most reports.
    if (body.find("\"azimuth\":") != body.npos) {
        read.azimuth = part("\"azimuth\":");
        read.elevation = part("\"elevation\":");
    }
    if (body.find("\"locConf\":") != body.npos) {
        read.x = part("\"x\":");
        read.y = part("\"y\":");
    }
    return read;
}

void tag_table_c::noteChange(known_tag_s* tag) {
    if (!changed.has(tag)) {
        changed.pushBack(tag);
    }
}

void tag_table_c::take(std::size_t reader, const tag_read_s& read, std::int64_t at) {
    const auto [place, isNew] = tags.try_emplace(keyOf(reader, read.epc));
    known_tag_s& tag = place->second;
    if (isNew) {
        tag.reader = reader;
        tag.key = &place->first;
        tag.firstSeen = at;
    } else {
        ages.remove(&tag);
    }
    ages.pushBack(&tag);
    tag.antenna = read.antenna;
    tag.rssi = read.rssi;
    if (read.azimuth) {
        tag.azimuth = read.azimuth;
        tag.elevation = read.elevation;
    }
    if (read.x) {
        tag.x = read.x;
        tag.y = read.y;
    }
    ++tag.reads;
    tag.lastSeen = at;
    noteChange(&tag);
    if (tags.size() > capacity) {
        forgetOldest();
    }
}

void tag_table_c::takeState(std::size_t reader, std::string_view epc, tag_state_e state) {
    const auto place = tags.find(keyOf(reader, epc));
    if (place != tags.end() && place->second.state != state) {
        place->second.state = state;
        noteChange(&place->second);
    }
}

void tag_table_c::forgetOldest() {
    known_tag_s* const tag = ages.front();
    ages.remove(tag);
    if (changed.has(tag)) {
        changed.remove(tag);
    }
    gone.push_back(*tag->key);
    ++forgottenCount;
    tags.erase(*tag->key);
}

void tag_table_c::writeAll(std::string* out) const {
    std::size_t written = 0;
    for (const known_tag_s* tag = ages.front(); tag != nullptr; tag = ages.next(tag)) {
        separate(written++, out);
        writeRow(*tag, out);
    }
}

std::size_t tag_table_c::writeChanged(std::size_t most, std::string* out) {
    std::size_t written = 0;
    for (; written < most && changed.front() != nullptr; changed.remove(changed.front())) {
        separate(written++, out);
        writeRow(*changed.front(), out);
    }
    return written;
}

std::size_t tag_table_c::writeForgotten(std::size_t most, std::string* out) {
    std::size_t written = 0;
    for (; written < most && !gone.empty(); gone.pop_front()) {
        // A tag that has come back since is known.
        if (!tags.contains(gone.front())) {
            separate(written++, out);
            const std::string_view key = gone.front();
            fmt::format_to(std::back_inserter(*out), "[{},\"{}\"]", readerIn(key), key.substr(1));
        }
    }
    return written;
}

void tag_table_c::dropChanges() {
    while (changed.front() != nullptr) {
        changed.remove(changed.front());
    }
    gone.clear();
}
