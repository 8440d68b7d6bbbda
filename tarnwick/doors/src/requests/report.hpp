// SPDX-License-Identifier: MIT
// What the process says about itself: settings of the `events` command, the
// alarms, and the sources that the heartbeat and the `status` command share.
// Private to requests. Main thread.
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

// Which errors are published on `events`; all are logged and counted.
struct report_error_s {
    bool antenna = true;
    bool radio = true;
    bool tarnwick = true;
    bool database = true;
};
extern report_error_s report_error;

// The same for warnings, and the temperatures above which one is given, in
// degrees Celsius.
struct report_warning_s {
    std::int16_t paLimit = 105;
    std::int16_t ambientLimit = 75;
    bool tarnwick = true;
    bool radio_api = true;
    bool database = true;
};
extern report_warning_s report_warning;

// Time between two heartbeats. Zero and less make them follow without pause.
extern std::chrono::seconds heartbeat_period;

// What a heartbeat tells, by name. It only grows: a name can come twice, and a
// name that is not known is passed over.
extern std::vector<std::string> heartbeat_stats;

// ---- alarms (alarms.cpp, antennas.cpp) ---------------------------------------

// What the radio last told by itself, in degrees Celsius.
inline constexpr std::int8_t noTemperature = -127;
extern std::int8_t current_amb_temp;
extern std::int8_t current_pa_temp;

// A temperature that the radio reports as high: warns above the limit, and only
// when it has moved by more than 5 degrees since the one that was last looked at.
void noteHighAmbientTemperature(std::int8_t celsius);
void noteHighPATemperature(std::int8_t celsius);

// A temperature that the radio reports as critical: always an error.
void noteCriticalAmbientTemperature(std::int8_t celsius);
void noteCriticalPATemperature(std::int8_t celsius);

// By port. A port is an antenna number from 1, or an element of the array reader
// from 0.
inline constexpr std::size_t alarmPorts = 15;
extern std::array<bool, alarmPorts> disconnected_antenna;

// First and last port of this reader.
std::pair<unsigned, unsigned> reportedPorts();

// Notes that an antenna was lost or found again. A state that is already known,
// and a port outside the table, change nothing and are silent.
void noteAntenna(unsigned port, bool disconnected);

// Notes that a power amplifier failed; once for each port.
void noteAmplifierFailure(unsigned port);

// ---- sources of heartbeat and status -----------------------------------------

// The plain counters of both, by name.
struct counter_stat_s {
    std::string_view name;
    std::uint64_t (*read)();
};
const counter_stat_s* findCounter(std::string_view name);  // null when it is none

// Tag reads by port; beams of the array reader without a read are absent.
std::map<unsigned, std::uint64_t> getTagReadsByPort();

struct temperatures_s {
    std::int16_t ambient;  // degrees Celsius, -273 when the radio gives no answer
    std::int16_t pa;
};
temperatures_s readTemperatures();

// The words of the two states of the connection, of an antenna and of the radio.
const char* connectionWord(bool connected);
const char* activityWord(bool active);

// Hours, minutes and seconds.
struct clock_time_s {
    unsigned long hours, minutes, seconds;
};
clock_time_s getUptime();

int getTemperatureJson(bool active, nlohmann::json* out);
int getAntennaStateJson(bool active, nlohmann::json* out);
int getNumTagReadsPerAntennaJson(nlohmann::json* out);

// Echo results of one channel of the array reader, by frequency in kHz and
// element; each call shows the next enabled channel. Empty when the radio gives none.
int getEchoStateJson(nlohmann::json* out);

// ---- the process (process_stats.cpp) -------------------------------------------

// Tenths of a percent of one processor since the previous call of any caller;
// 0 at the first, -10 when no time has passed.
int get_cpu_util();

// Peak resident memory in tenths of a percent of the machine's.
int get_mem_util();

// Seconds since the process started.
int get_proc_uptime();

}  // namespace requests
