// SPDX-License-Identifier: MIT
// The tags that the gateway has seen since it started, for the live page. A unit without threads, clocks
// or sockets: times come as arguments.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "linked_list.hpp"

// What a report says of its tag, as far as the table shows it.
struct tag_read_s {
    std::string_view epc;                         // lower-case hex
    std::optional<int> antenna{};                 // on an array reader the beam
    std::optional<int> rssi{};                    // dBm
    std::optional<float> azimuth{}, elevation{};  // degrees
    std::optional<float> x{}, y{};                // the reader's unit
};

// Finds the members of a report's body without building a document: a body is compact JSON, as the daemon
// writes it. What is missing or not a number stays empty.
tag_read_s readOfReport(std::string_view body);

enum class tag_state_e : std::uint8_t { unknown, present, departed };

struct known_tag_s {
    std::size_t reader = 0;            // index of its source
    const std::string* key = nullptr;  // its place in the table; the EPC from the second byte on
    std::optional<int> antenna, rssi;
    std::optional<float> azimuth, elevation, x, y;
    std::uint64_t reads = 0;
    std::int64_t firstSeen = 0, lastSeen = 0;  // ms since 1970
    tag_state_e state = tag_state_e::unknown;  // by the presence events
    list_links_s<known_tag_s> byAge, byChange;
};

class tag_table_c {
  public:
    // Beyond `most` tags the one that was not read for longest is forgotten.
    explicit tag_table_c(std::size_t most) : capacity(most) {}

    // `reader` is the index of a source, up to 255; `at` in ms since 1970.
    void take(std::size_t reader, const tag_read_s& read, std::int64_t at);
    // Does not make a tag known.
    void takeState(std::size_t reader, std::string_view epc, tag_state_e state);

    // Appends all rows, oldest read first, as "[...],[...]".
    void writeAll(std::string* out) const;
    // Appends up to `most` rows that have changed and were not written here before, those that wait longest
    // first; returns how many.
    std::size_t writeChanged(std::size_t most, std::string* out);
    // Appends up to `most` pairs of reader and EPC that were forgotten; returns how many.
    std::size_t writeForgotten(std::size_t most, std::string* out);
    // What has changed up to now is known elsewhere.
    void dropChanges();
    bool hasChanges() const { return changed.front() != nullptr || !gone.empty(); }

    std::size_t size() const { return tags.size(); }
    std::uint64_t forgotten() const { return forgottenCount; }

    // The names of a row's columns as JSON.
    static const char* columns();

  private:
    void noteChange(known_tag_s* tag);
    void forgetOldest();

    std::size_t capacity;
    std::unordered_map<std::string, known_tag_s> tags;  // by a byte of the reader and the EPC
    linked_list_c<known_tag_s, &known_tag_s::byAge> ages;
    linked_list_c<known_tag_s, &known_tag_s::byChange> changed;
    std::deque<std::string> gone;  // keys
    std::uint64_t forgottenCount = 0;
};
