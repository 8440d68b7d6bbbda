// SPDX-License-Identifier: MIT
// The names of what the daemon reports about itself: members of a heartbeat and of the reply
// to "status", and words that "status" and "events" take.
#pragma once

#include <string_view>

namespace vocabulary {

// Counters since the start of the process: tags read, of the whole reader and by port; packets
// of every type that the radio sent; messages with tag reports that left.
inline constexpr std::string_view numTagReads = "numTagReads";
inline constexpr std::string_view numTagReadsPerAntenna = "numTagReadsPerAntenna";
inline constexpr std::string_view numRadioPacketsRxed = "numRadioPacketsRxed";
inline constexpr std::string_view numDataMessagesTxed = "numDataMessagesTxed";

// The process: percent of one processor since the last look, percent of the machine's memory at
// its peak, hours:minutes:seconds.
inline constexpr std::string_view cpuUtilization = "cpuUtilization";
inline constexpr std::string_view ramUtilization = "ramUtilization";
inline constexpr std::string_view uptime = "uptime";

// Errors and warnings that were counted since the start, published or not.
inline constexpr std::string_view numErrors = "numErrors";
inline constexpr std::string_view numWarnings = "numWarnings";

// The radio: "connected" or "disconnected", "active" or "inactive", degrees Celsius, the state of
// each port, and the echoes of one channel of the array reader.
inline constexpr std::string_view radioConnection = "radioConnection";
inline constexpr std::string_view radioActivity = "radioActivity";
inline constexpr std::string_view temperature = "temperature";
inline constexpr std::string_view antennas = "antennas";
inline constexpr std::string_view aarEcho = "aarEcho";

// The two words of the connection, which an antenna has too, and of the activity.
inline constexpr char connected[] = "connected";
inline constexpr char disconnected[] = "disconnected";
inline constexpr char active[] = "active";
inline constexpr char inactive[] = "inactive";

// All stats. They are the list that a heartbeat has from the start; "events" adds to it.
inline constexpr std::string_view stats[] = {
    numTagReads,
    numTagReadsPerAntenna,
    numRadioPacketsRxed,
    numDataMessagesTxed,
    cpuUtilization,
    ramUtilization,
    uptime,
    numErrors,
    numWarnings,
    radioConnection,
    radioActivity,
    temperature,
    antennas,
    aarEcho,
};

}  // namespace vocabulary
