// SPDX-License-Identifier: MIT
// The additional-keys database: duplicate suppression on more than the EPC. The radio
// suppresses repeats by EPC alone. When a mode's report filter names additional keys
// ("TID"), two tags with the same EPC count as two, and the daemon decides which report
// may leave.
//
// The database has one entry for each key, with the time of the last report that left.
// It outlives radio stops and mode changes; only its settings follow the mode.
//
// Threads: the engine thread asks, the main thread sets, prints and empties. Neither waits
// for the other: settings are single words, the main thread offers an empty database and the
// engine thread takes it at the next look-up, and the main thread copies the keys one by one while
// the engine thread goes on.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

// A time, or a difference of two: seconds and, from 0 to 999999, microseconds.
// A negative difference has negative seconds: -3.25 s is -4 and 750000.
struct time_value_s {
    std::int64_t seconds = 0;
    std::int64_t microseconds = 0;
};

namespace additional_config {
// Whether the filter is on. Written by the main thread as a mode request is
// parsed, read by the engine thread.
extern std::atomic<bool> isAddlKeysEnabled;
}  // namespace additional_config

// Most keys that setAddlKeysFilterConfig accepts. The size before the first call
// is 20000, one more.
inline constexpr std::uint32_t maxAddlKeysDBSize = 19999;

// Turns the filter on. `useAntenna` makes the antenna part of the key; a key stays
// quiet for `seconds` (0 to 2^32) after a report; at most `maxSize` keys are held,
// but those already there stay. Main thread. Returns 0, or -1 when
// maxSize is above maxAddlKeysDBSize: the size is then as before, all else is set.
int setAddlKeysFilterConfig(bool useAntenna, float seconds, std::uint32_t maxSize);

// The parts of a report's key. A part that the report does not have is a view without data.
struct addl_key_parts_s {
    // False when the report does not have "data".
    bool isReport = false;
    // "PC", "idHex", "CRC" and "TID", in hexadecimal digits as the report shows them.
    std::array<std::string_view, 4> texts{};
    // In decimal.
    std::string_view antenna{};
};

// Makes the key of a report: its texts joined, and "_" with the antenna where that counts.
// Returns 0; -1 while the filter is off; or, with one error counted and logged, the
// negative result of the JSON accessor for a part that is missing (json_fields.hpp), and
// *key must not be used.
// Engine thread.
int makeAddlKey(const addl_key_parts_s& parts, std::string* key);

// The same for a report as a JSON value, whose members may have wrong types. Any thread.
int parse_json_for_addl_key(const nlohmann::json* report, std::string* key);

// Whether a report with this key may leave: 1, and the time is stored, or 0 while its
// quiet time has not passed; exactly the quiet time is not enough. A new key may always
// leave; when the database is full it replaces the key that was reported longest ago. Keys
// have at most 65535 characters. The second form takes the time of day from the caller.
// Engine thread.
int report_line(const std::string& key);
int report_line(const std::string& key, const time_value_s& now);

// When the key that report_line refused last may leave again, in microseconds since 1970. Engine thread.
std::int64_t quietUntil();

// Forgets all keys; the settings stay. Main thread.
void resetTagInfoDB();

// "Success: " and the number of keys; `detailed` adds a line for each key, the
// one reported last first, with the time of its report and the time left. Keys that
// come or go meanwhile may be in the list or not, and none is there twice. Returns 0, or
// -1 with *text unchanged while the filter is off. Main thread.
int getCurrentTagInfoDB(std::string* text, bool detailed);
int getCurrentTagInfoDB(std::string* text, bool detailed, const time_value_s& now);
