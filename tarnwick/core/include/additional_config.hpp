// SPDX-License-Identifier: MIT
// The additional-keys database: duplicate suppression on more than the EPC. The
// radio suppresses repeats by EPC alone; when a mode's report filter names
// additional keys ("TID"), two tags of one EPC are two tags, and this process
// decides which report may leave.
//
// One entry for each key, with the time of its last report that left. The
// database outlives radio stops and mode changes; only its settings follow the
// mode.
//
// Threads: the engine thread asks, the main thread sets, prints and empties. Both
// take one lock, the engine thread for a single lookup, the main thread for an
// exchange of the containers or a copy of 64 keys, never while it allocates,
// formats or frees; and it lets a waiting engine thread in before it locks again.
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

// Whether the filter is on. Written by the main thread as a mode request is
// parsed, read by the engine thread.
extern std::atomic<bool> isAddlKeysEnabled;

// Most keys that setAddlKeysFilterConfig accepts. The size before the first call
// is 20000, one more.
inline constexpr std::uint32_t maxAddlKeysDBSize = 19999;

// Turns the filter on. `useAntenna` makes the antenna part of the key; a key stays
// quiet for `seconds` (0 to 2^32) after a report; at most `maxSize` keys are held,
// but those already there stay. Main thread, radio stopped. Returns 0, or -1 when
// maxSize is above maxAddlKeysDBSize: the size is then as before, all else is set.
int setAddlKeysFilterConfig(bool useAntenna, float seconds, std::uint32_t maxSize);

// What a report's key is made of; what the report lacks has no data.
struct addl_key_parts_s {
    bool isReport = false;                    // false: there is no "data" at all
    std::array<std::string_view, 4> texts{};  // "PC", "idHex", "CRC" and "TID"
    std::string_view antenna{};               // in decimal
};

// Makes the key of a report: its texts joined, and "_" with the antenna where that counts.
// Returns 0; -1 while the filter is off; or, with one error counted and logged, the
// negative result of the accessor that would have failed, and *key holds nothing of use.
// Engine thread.
int makeAddlKey(const addl_key_parts_s& parts, std::string* key);

// The same of a report as JSON, which may hold values of another kind. Any thread.
int parse_json_for_addl_key(const nlohmann::json* report, std::string* key);

// Whether a report with this key may leave: 1, and the time is noted, or 0 when
// its quiet time has not passed. Exactly the quiet time is not enough. A new key
// always may, and takes the place of the one reported longest ago when the
// database is full. Keys have at most 65535 characters. The second form takes the
// time of day from the caller.
// Engine thread.
int report_line(const std::string& key);
int report_line(const std::string& key, const time_value_s& now);

// Forgets all keys; the settings stay. Main thread.
void resetTagInfoDB();

// "Success: " and the number of keys; `detailed` adds a line for each key, the
// one reported last first, with the time of its report and the time left. Keys that
// come or go while they are being listed may stand there or not, none twice. Returns
// 0, or -1 with *text left alone while the filter is off. Main thread.
int getCurrentTagInfoDB(std::string* text, bool detailed);
int getCurrentTagInfoDB(std::string* text, bool detailed, const time_value_s& now);
