// SPDX-License-Identifier: MIT
// The names of what the daemon tells about itself: members of a heartbeat and of the reply
// to "status", and words that "status" and "events" take.
#pragma once

#include <string_view>

namespace vocabulary {

inline constexpr std::string_view numTagReads = "numTagReads";                      // since the start
inline constexpr std::string_view numTagReadsPerAntenna = "numTagReadsPerAntenna";  // by port
inline constexpr std::string_view numRadioPacketsRxed = "numRadioPacketsRxed";      // of every type
inline constexpr std::string_view numDataMessagesTxed = "numDataMessagesTxed";      // tag reports
inline constexpr std::string_view cpuUtilization = "cpuUtilization";                // % of one processor
inline constexpr std::string_view ramUtilization = "ramUtilization";                // % of the machine's
inline constexpr std::string_view uptime = "uptime";                                // h:mm:ss
inline constexpr std::string_view numErrors = "numErrors";                          // counted in the log
inline constexpr std::string_view numWarnings = "numWarnings";                      // counted in the log
inline constexpr std::string_view radioConnection = "radioConnection";              // a word
inline constexpr std::string_view radioActivity = "radioActivity";                  // a word
inline constexpr std::string_view temperature = "temperature";                      // degrees Celsius
inline constexpr std::string_view antennas = "antennas";                            // a word, by port
inline constexpr std::string_view aarEcho = "aarEcho";                              // array reader only

// All of them. A heartbeat tells these unless "events" adds to them.
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
