// SPDX-License-Identifier: MIT
// What the process says about itself: settings of the `events` command, the alarms, and the
// sources that the heartbeat and the `status` command share. Private to requests. Main thread.
//
// Alarms come from the news of the radio side (radio_news.cpp). Each one is counted and logged;
// the settings decide which are published too.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "rxe.h"

namespace requests {

// ---- settings, in memory only: a restart brings the defaults back -----------
// Written by the `events` command, read by the heartbeat and by all that alarms.

// Which errors are published on `events`. All errors are logged and counted, also those that are
// not published.
struct report_error_s {
    bool antenna = true;   // lost and found antennas
    bool radio = true;     // failed amplifiers, runs that ended by an error, the engine's error log
    bool tarnwick = true;  // errors and warnings of the radio side of this process
    bool database = true;  // a full tag database, and resets of it that failed
};
extern report_error_s report_error;

// The same for warnings, and the temperatures above which a warning is given.
struct report_warning_s {
    std::int16_t paLimit = 105;      // degrees Celsius
    std::int16_t ambientLimit = 75;  // degrees Celsius
    bool tarnwick = true;            // shown and set, and without effect
    bool radio_api = true;           // errors of the engine's interface
    bool database = true;            // a database that is nearly full or is being reset
};
// Quirk: the limit of the amplifier is compared with the ambient temperature.
extern report_warning_s report_warning;

// Time between two heartbeats. With zero and less they follow without pause. A new period
// counts from the next heartbeat on.
extern std::chrono::seconds heartbeat_period;

// What a heartbeat tells, by name. The list only grows: a name can come twice, and a name that
// is not known is ignored.
extern std::vector<std::string> heartbeat_stats;

// ---- alarms (alarms.cpp, antennas.cpp) ---------------------------------------

// What the radio last reported without being asked, in degrees Celsius; noTemperature before
// the first report.
inline constexpr std::int8_t noTemperature = -127;
extern std::int8_t current_amb_temp;
extern std::int8_t current_pa_temp;

// A temperature that the radio reports as high. Warns when it is above the limit and differs by
// more than 5 degrees from the last one that passed this test.
void noteHighAmbientTemperature(std::int8_t celsius);
void noteHighPATemperature(std::int8_t celsius);

// A temperature that the radio reports as critical: always an error.
// The limits do not count.
void noteCriticalAmbientTemperature(std::int8_t celsius);
void noteCriticalPATemperature(std::int8_t celsius);

// Lost antennas, by port. A port is an antenna number from 1, or an element of the array reader
// from 0. Written by noteAntenna, read by heartbeat and status.
// Ports 0 to 14; others are ignored.
inline constexpr std::size_t alarmPorts = 15;
extern std::array<bool, alarmPorts> disconnected_antenna;

// First and last port of this reader, both included.
std::pair<unsigned, unsigned> reportedPorts();

// Notes that an antenna was lost or found again. A state that is already known,
// and a port outside the table, change nothing and are silent.
void noteAntenna(unsigned port, bool disconnected);

// Notes that a power amplifier failed; once for each port.
void noteAmplifierFailure(unsigned port);

// ---- sources of heartbeat and status -----------------------------------------

// The plain counters of both, by name.
// They count from the start of the process; `read` may be called at any time.
struct counter_stat_s {
    std::string_view name;
    std::uint64_t (*read)();
};
// Null for a name that is not a counter.
const counter_stat_s* findCounter(std::string_view name);

// Tag reads by port since the start. On the array reader the ports are beams, and those without
// a read are absent.
std::map<unsigned, std::uint64_t> getTagReadsByPort();

// Degrees Celsius, -273 when the radio does not answer.
struct temperatures_s {
    std::int16_t ambient;
    std::int16_t pa;  // power amplifier
};

// Asks the radio.
temperatures_s readTemperatures();

// "connected" or "disconnected", of the radio and of an antenna; "active" or "inactive".
const char* connectionWord(bool connected);
const char* activityWord(bool active);

// Time since the start of the process.
// Minutes and seconds are 0 to 59, hours are not limited.
struct clock_time_s {
    unsigned long hours, minutes, seconds;
};
// Never negative, although the clock of the machine may be set back.
clock_time_s getUptime();

// Each replaces *out and returns 0. `active` is whether the radio runs: then the first tells
// what the radio last reported and the second does not ask it.
int getTemperatureJson(bool active, nlohmann::json* out);
int getAntennaStateJson(bool active, nlohmann::json* out);
int getNumTagReadsPerAntennaJson(nlohmann::json* out);

// Echo results of one channel of the array reader, by frequency in kHz and element, in tenths of
// dBm. Each call shows the next enabled channel; behind the last one the first follows. Empty
// when the radio gives none.
int getEchoStateJson(nlohmann::json* out);

// ---- the process (process_stats.cpp) -------------------------------------------

// Tenths of a percent of one processor since the previous call, whichever caller made it; 0 at
// the first call, -10 when no time has passed.
int get_cpu_util();

// Peak resident memory in tenths of a percent of the machine's memory.
int get_mem_util();

// Seconds since the process started, by the clock of the machine; negative when that was set
// back.
int get_proc_uptime();

}  // namespace requests
