// SPDX-License-Identifier: MIT
// The log file, the system log line at start, and the two run-wide counters
// that heartbeats and alarms report.
#pragma once

#include <atomic>
#include <concepts>
#include <cstdint>
#include <sstream>
#include <string>
#include <string_view>

enum class log_level_e : std::uint8_t { debug, info, warning, error };

namespace logger_detail {
// The lowest level that is written. Written once by configureLogs; read by any
// thread. Above every level until then.
constexpr int noLevel = static_cast<int>(log_level_e::error) + 1;
inline std::atomic<int> lowestLevel{noLevel};
}  // namespace logger_detail

// One line to the system log (ident "tarnwick", LOG_LOCAL1). Main thread, once.
void setup_syslog();

// Configures the log: "tarnwick.log" in the working directory, rotated at
// 5242880 bytes; also to standard output with `cli`; level debug only with
// `verbose`. Main thread, once. Returns 0.
int configureLogs(bool cli, bool verbose);

// Called by the logging library before it truncates a full log file: moves
// filename to ".1", ".1" to ".2" and so on; ".5" is the oldest kept.
void RotationHandler(const char* filename, unsigned size);

// Error and warning lines written since start, but for the uncounted ones. Any thread.
void incrementErrorCount();
void incrementWarningCount();
std::uint64_t getErrorCount();
std::uint64_t getWarningCount();

// Whether a line of this level would be written. Any thread, one atomic load.
inline bool isLogLevelEnabled(log_level_e level) {
    return static_cast<int>(level) >= logger_detail::lowestLevel.load(std::memory_order_relaxed);
}

// Writes one line: the bare name of the unit, then the text, which by custom
// begins with a blank. Of a text beyond 16 KiB the rest is left out, and its length
// told. The file gets a warning or an error at once, other lines when a hundred of
// a level or some kilobytes have come together. What a full disk did not take is
// told by a warning as soon as there is room. Any thread; the engine thread leaves its line
// to a thread that is writing, and a warning tells how many of them found no room.
void logLine(log_level_e level, std::string_view unit, std::string_view text);

// A part of a line that somebody outside chose, such as a client: the log shows it
// as appendPrintable (util.hpp) does, with at most 4 KiB, so that it can neither forge
// a line nor fill the disk.
struct escaped_s {
    std::string_view text;
};

namespace logger_detail {
void append(std::string& line, escaped_s part);

template <class Part>
void append(std::string& line, const Part& part) {
    if constexpr (std::convertible_to<const Part&, std::string_view>) {
        line += std::string_view(part);
    } else if constexpr (std::same_as<Part, char>) {
        line += part;
    } else if constexpr (std::integral<Part>) {
        line += std::to_string(part);
    } else {
        std::ostringstream stream;
        stream << part;
        line += stream.str();
    }
}

template <class... Parts>
void write(log_level_e level, std::string_view unit, const Parts&... parts) {
    if (!isLogLevelEnabled(level)) {
        return;
    }
    std::string text;
    (append(text, parts), ...);
    logLine(level, unit, text);
}
}  // namespace logger_detail

// One line joined from its parts: text, characters, integers (8-bit ones print
// as numbers), or anything with operator<<. Nothing is formatted when the level
// is off. Any thread.
template <class... Parts>
void logDebug(std::string_view unit, const Parts&... parts) {
    if (isLogLevelEnabled(log_level_e::debug)) {  // here, for the callers that are in a hurry
        logger_detail::write(log_level_e::debug, unit, parts...);
    }
}
template <class... Parts>
void logInfo(std::string_view unit, const Parts&... parts) {
    logger_detail::write(log_level_e::info, unit, parts...);
}
// What the counted line before it leaves open, such as its true cause, or a failure
// that status and heartbeats have never counted. Any thread.
template <class... Parts>
void logUncountedError(std::string_view unit, const Parts&... parts) {
    logger_detail::write(log_level_e::error, unit, parts...);
}
template <class... Parts>
void logUncountedWarning(std::string_view unit, const Parts&... parts) {
    logger_detail::write(log_level_e::warning, unit, parts...);
}
// Counts an error, then writes the line. Any thread.
template <class... Parts>
void logCountedError(std::string_view unit, const Parts&... parts) {
    incrementErrorCount();
    logger_detail::write(log_level_e::error, unit, parts...);
}
// Counts a warning, then writes the line. Any thread.
template <class... Parts>
void logCountedWarning(std::string_view unit, const Parts&... parts) {
    incrementWarningCount();
    logger_detail::write(log_level_e::warning, unit, parts...);
}
