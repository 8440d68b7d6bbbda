// SPDX-License-Identifier: MIT
// The log file, the line in the system log at the start, and the counts of errors and
// warnings that heartbeats and alarms report. A line of the file:
//
//   2026-03-01T08:05:09.007Z INFO radio text
//
// Units call logInfo("radio", " text", number). The name of the unit and the wording of a line
// stay as they are: users search the log for them.
#pragma once

#include <atomic>
#include <concepts>
#include <cstdint>
#include <sstream>
#include <string>
#include <string_view>

// Ascending. Level debug is written only with the argument -v.
enum class log_level_e : std::uint8_t { debug, info, warning, error };

namespace logger_detail {
// The lowest level that is written. Written once by configureLogs, read by any
// thread. Until then it is above every level, so nothing is written.
constexpr int noLevel = static_cast<int>(log_level_e::error) + 1;
inline std::atomic<int> lowestLevel{noLevel};
}  // namespace logger_detail

// Writes one line with the user's id to the system log (ident "tarnwick", LOG_LOCAL1). Main
// thread, once.
void setup_syslog();

// Configures the log: "tarnwick.log" in the working directory, rotated at
// 5242880 bytes; also to standard output with `cli`; level debug only with
// `verbose`. Its first line is the version, which must be stored by now (versions.hpp). Main
// thread, once. Returns 0.
int configureLogs(bool cli, bool verbose);

// Called by the logging library before it truncates a full log file: moves
// filename to ".1", ".1" to ".2" and so on; ".5" is the oldest that is kept. `size` in bytes is
// not used. A move that fails is skipped.
void RotationHandler(const char* filename, unsigned size);

// Errors and warnings since the start. The logCounted functions below count, also a line whose
// level is off; the logUncounted ones do not. Any thread.
void incrementErrorCount();
void incrementWarningCount();
std::uint64_t getErrorCount();
std::uint64_t getWarningCount();

// Whether a line of this level would be written. For callers that would have to compute the text
// first. Any thread, one atomic load.
inline bool isLogLevelEnabled(log_level_e level) {
    return static_cast<int>(level) >= logger_detail::lowestLevel.load(std::memory_order_relaxed);
}

// Writes one line: the bare name of the unit, then the text, which by custom
// begins with a blank. A text of more than 16 KiB is cut, and a note with its length
// follows. The file gets a warning or an error at once, other lines when a hundred of
// a level or 8 KiB have come together. When the disk is full the first lines wait in memory; as
// soon as there is room again a warning tells how many others are missing. Any thread. The engine
// thread does not wait for another thread that is writing, but leaves its line to that thread
// (turn.hpp).
void logLine(log_level_e level, std::string_view unit, std::string_view text);

// A part of a line that comes from outside, such as a client's request: the log shows it
// as appendPrintable (util.hpp) does, with at most 4 KiB, so that it can neither forge
// a line nor fill the disk.
struct escaped_s {
    std::string_view text;
};

namespace logger_detail {
// Appends one part of a line. An 8-bit integer is a number here, and not a character.
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

// Formats and writes one line, unless the level is off.
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
// as numbers), or any value with operator<<. Nothing is formatted when the level
// is off. A text from outside must be an escaped_s. Any thread.
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
// For what the counted line before it does not say, such as the true cause, and for failures
// that are not part of the counts in status and heartbeats. Any thread.
template <class... Parts>
void logUncountedError(std::string_view unit, const Parts&... parts) {
    logger_detail::write(log_level_e::error, unit, parts...);
}
template <class... Parts>
void logUncountedWarning(std::string_view unit, const Parts&... parts) {
    logger_detail::write(log_level_e::warning, unit, parts...);
}
// Counts an error, then writes the line. Heartbeats and status show the count. Any thread.
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
