// SPDX-License-Identifier: MIT
#include "table.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <type_traits>
#include <utility>

namespace {

constexpr std::int64_t silenceIsLate = 1'000'000;  // microseconds; the daemon holds a batch for half of it
constexpr std::size_t longestEpc = 62;             // bytes, 496 bits by Gen2
constexpr std::uint32_t layout = 1;                // of what save() makes
constexpr int farthestRssi = 127;                  // dBm, on both sides of 0

constexpr auto hexValues = [] {
    std::array<std::int8_t, 256> values{};
    values.fill(-1);
    for (int i = 0; i < 16; ++i) {
        values[static_cast<std::size_t>("0123456789abcdef"[i])] = static_cast<std::int8_t>(i);
    }
    return values;
}();

// The bytes of a text in lower-case hex; empty when it is something else.
std::string_view packHex(std::string_view hex, std::array<char, longestEpc>* bytes) {
    if (hex.size() % 2 != 0 || hex.size() > 2 * longestEpc) {
        return {};
    }
    for (std::size_t i = 0; i < hex.size(); i += 2) {
        const int high = hexValues[static_cast<std::uint8_t>(hex[i])];
        const int low = hexValues[static_cast<std::uint8_t>(hex[i + 1])];
        if (high < 0 || low < 0) {
            return {};
        }
        (*bytes)[i / 2] = static_cast<char>(high * 16 + low);
    }
    return {bytes->data(), hex.size() / 2};
}

std::string hexOf(std::string_view bytes) {
    std::string hex;
    for (const char c : bytes) {
        const auto byte = static_cast<std::uint8_t>(c);
        hex += {"0123456789abcdef"[byte >> 4U], "0123456789abcdef"[byte & 15U]};
    }
    return hex;
}

// Appends plain values as they are in memory, and texts behind their length.
class saver_c {
  public:
    static constexpr bool loads = false;
    template <class Value>
    bool operator()(Value* value) {
        static_assert(std::has_unique_object_representations_v<Value>);
        bytes.append(reinterpret_cast<const char*>(value), sizeof *value);
        return true;
    }
    bool operator()(std::string* text) {
        auto size = static_cast<std::uint32_t>(text->size());
        (*this)(&size);
        bytes += *text;
        return true;
    }
    std::string bytes;
};

// The other way round; false when there are not enough bytes.
class loader_c {
  public:
    static constexpr bool loads = true;
    explicit loader_c(std::string_view bytes) : rest(bytes) {}
    template <class Value>
    bool operator()(Value* value) {
        static_assert(std::has_unique_object_representations_v<Value>);
        if (rest.size() < sizeof *value) {
            return false;
        }
        std::memcpy(value, rest.data(), sizeof *value);
        rest.remove_prefix(sizeof *value);
        return true;
    }
    bool operator()(std::string* text) {
        std::uint32_t size = 0;
        if (!(*this)(&size) || rest.size() < size) {
            return false;
        }
        *text = rest.substr(0, size);
        rest.remove_prefix(size);
        return true;
    }
    std::string_view rest;
};

// A value that may be absent; `none` is no value of its own.
template <class Archive, class Value>
bool keepOptional(Archive& archive, std::optional<Value>* value) {
    std::uint8_t any = value->has_value() ? 1 : 0;
    Value plain = value->value_or(Value());
    const bool whole = archive(&any) && archive(&plain);
    *value = any != 0 ? std::optional(plain) : std::nullopt;
    return whole;
}

}  // namespace

std::string_view presenceWord(presence_e event) {
    constexpr std::array<std::string_view, 3> words{"arrived", "moved", "departed"};
    return words[static_cast<std::size_t>(event)];
}

std::size_t presence_table_c::readerOf(const std::string& name) {
    const auto known = std::ranges::find(readers, name, &reader_s::name);
    if (known == readers.end()) {
        readers.emplace_back().name = name;
        return readers.size() - 1;
    }
    return static_cast<std::size_t>(known - readers.begin());
}

void presence_table_c::append(reader_s* reader, row_t* row) {
    row->second.older = reader->newest;
    row->second.newer = nullptr;
    (reader->newest == nullptr ? reader->oldest : reader->newest->second.newer) = row;
    reader->newest = row;
}

void presence_table_c::takeOut(reader_s* reader, row_t* row) {
    const tag_s& tag = row->second;
    (tag.older == nullptr ? reader->oldest : tag.older->second.newer) = tag.newer;
    (tag.newer == nullptr ? reader->newest : tag.newer->second.older) = tag.older;
}

void presence_table_c::take(std::size_t readerIndex, const sighting_s& sighting, std::int64_t now,
                            std::vector<presence_event_s>* events) {
    std::array<char, longestEpc> buffer{};
    const std::string_view epc = packHex(sighting.epc, &buffer);
    if (epc.empty()) {
        return;
    }
    reader_s& reader = readers[readerIndex];
    reader.clock.take(sighting.time, sighting.takenAt);
    reader.heardAt = now;
    const std::int64_t time = reader.clock.now();
    if (std::exchange(reader.resuming, false)) {
        reader.resumedAt = time;
    }
    departDue(readerIndex, time, events);
    auto row = reader.tags.find(epc);
    const bool isNew = row == reader.tags.end();
    if (isNew) {
        row = reader.tags.try_emplace(std::string(epc)).first;
        row->second.firstSeen = time;
        ++counts.arrived;
        ++counts.present;
    } else {
        takeOut(&reader, &*row);
    }
    append(&reader, &*row);
    tag_s& tag = row->second;
    tag.lastSeen = time;
    tag.reads += sighting.reads;
    const std::optional<int> rssi =
        sighting.rssi ? std::optional(std::clamp(*sighting.rssi, -farthestRssi, farthestRssi)) : std::nullopt;
    if (rssi && (!tag.bestRssi || *rssi > *tag.bestRssi)) {
        tag.bestRssi = static_cast<std::int16_t>(*rssi);
        tag.bestAntenna = sighting.antenna;
    }
    std::optional<std::uint16_t> from;
    if (sighting.antenna) {
        antenna_rules_s antennaRules = rules.antenna;
        antennaRules.forgottenAfter = rules.departAfter;
        from = tag.levels.take(*sighting.antenna, rssi, time, antennaRules);
    }
    if (isNew || from) {
        counts.moved += from ? 1 : 0;
        events->push_back({.event = isNew ? presence_e::arrived : presence_e::moved,
                           .reader = readerIndex,
                           .epc = std::string(sighting.epc),
                           .at = reader.clock.ownTime(time),
                           .antenna = tag.levels.present(),
                           .from = from});
    }
    makeRoom(events);
}

void presence_table_c::tick(std::int64_t now, std::vector<presence_event_s>* events) {
    for (std::size_t i = 0; i < readers.size(); ++i) {
        const std::int64_t silence = now - readers[i].heardAt - silenceIsLate;
        if (silence > 0) {
            departDue(i, readers[i].clock.now() + silence, events);
        }
    }
}

void presence_table_c::departUntil(std::size_t reader, std::int64_t at,
                                   std::vector<presence_event_s>* events) {
    departDue(reader, readers[reader].clock.clockTime(at), events);
}

void presence_table_c::resume(std::int64_t now) {
    for (reader_s& reader : readers) {
        reader.resuming = true;
        reader.resumedAt = reader.clock.now();
        reader.heardAt = now;
    }
}

// What is at the front of the list has been unseen for longest.
void presence_table_c::departDue(std::size_t index, std::int64_t clockTime,
                                 std::vector<presence_event_s>* events) {
    const reader_s& reader = readers[index];
    while (reader.oldest != nullptr) {
        const std::int64_t unseen = std::max(reader.oldest->second.lastSeen, reader.resumedAt);
        if (unseen + rules.departAfter > clockTime) {
            return;
        }
        depart(index, unseen + rules.departAfter, events);
    }
}

// The longest unseen tag of the reader, `at` by the clock that only goes forward.
void presence_table_c::depart(std::size_t index, std::int64_t at, std::vector<presence_event_s>* events) {
    reader_s& reader = readers[index];
    row_t* const row = reader.oldest;
    const tag_s& tag = row->second;
    events->push_back({.event = presence_e::departed,
                       .reader = index,
                       .epc = hexOf(row->first),
                       .at = reader.clock.ownTime(at),
                       .antenna = tag.levels.present(),
                       .from = {},
                       .firstSeen = reader.clock.ownTime(tag.firstSeen),
                       .lastSeen = reader.clock.ownTime(tag.lastSeen),
                       .reads = tag.reads,
                       .bestRssi = tag.bestRssi,
                       .bestAntenna = tag.bestAntenna});
    ++counts.departed;
    --counts.present;
    takeOut(&reader, row);
    reader.tags.erase(reader.tags.find(row->first));
}

// Of all readers, whose clocks may differ.
void presence_table_c::makeRoom(std::vector<presence_event_s>* events) {
    while (counts.present > rules.maxTags) {
        const auto seen = [](const reader_s& reader) {
            return reader.oldest == nullptr ? std::numeric_limits<std::int64_t>::max()
                                            : reader.clock.gatewayTime(reader.oldest->second.lastSeen);
        };
        const auto reader = std::ranges::min_element(readers, {}, seen);
        ++counts.early;
        depart(static_cast<std::size_t>(reader - readers.begin()), reader->clock.now(), events);
    }
}

template <class Archive>
bool presence_table_c::keepReader(Archive& archive, reader_s* reader) {
    std::uint64_t count = reader->tags.size();
    std::uint8_t resuming = reader->resuming ? 1 : 0;
    bool whole = archive(&reader->name) && reader->clock.keep(archive) && archive(&reader->resumedAt) &&
                 archive(&resuming) && archive(&count);
    reader->resuming = resuming != 0;
    row_t* row = reader->oldest;
    for (std::uint64_t i = 0; whole && i < count; ++i) {
        std::string epc = Archive::loads ? std::string() : row->first;
        whole = archive(&epc);
        if constexpr (Archive::loads) {
            const auto [place, isNew] = reader->tags.try_emplace(std::move(epc));
            whole = whole && isNew;
            row = &*place;
            if (isNew) {
                append(reader, row);
            }
        }
        tag_s& tag = row->second;
        whole = whole && archive(&tag.firstSeen) && archive(&tag.lastSeen) && archive(&tag.reads) &&
                keepOptional(archive, &tag.bestRssi) && keepOptional(archive, &tag.bestAntenna) &&
                tag.levels.keep(archive);
        row = tag.newer;
    }
    return whole;
}

template <class Archive>
bool presence_table_c::keep(Archive& archive) {
    std::uint32_t version = layout;
    std::uint64_t maxTags = rules.maxTags, count = readers.size();
    bool whole = archive(&version) && version == layout && archive(&rules.antenna.margin) &&
                 archive(&rules.antenna.holdOff) && archive(&rules.departAfter) && archive(&maxTags) &&
                 archive(&counts) && archive(&count);
    rules.maxTags = maxTags;
    for (std::uint64_t i = 0; whole && i < count; ++i) {
        if constexpr (Archive::loads) {
            readers.emplace_back();
        }
        whole = keepReader(archive, &readers[i]);
    }
    return whole;
}

std::string presence_table_c::save() {
    saver_c saver;
    constexpr std::size_t bytesPerTag = 128;
    saver.bytes.reserve(counts.present * bytesPerTag);
    keep(saver);
    return std::move(saver.bytes);
}

bool presence_table_c::load(std::string_view bytes, std::int64_t now) {
    presence_table_c loaded(rules);
    loader_c loader(bytes);
    const bool whole = loaded.keep(loader) && loader.rest.empty();
    *this = whole ? std::move(loaded) : presence_table_c(rules);
    for (reader_s& reader : readers) {
        reader.heardAt = now;
    }
    return whole;
}
