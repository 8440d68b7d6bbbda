// SPDX-License-Identifier: MIT
// Finds the daemon's log by the process that listens on its reply socket: each daemon has a
// working directory of its own.
#include "alarms.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "decoding.hpp"
#include "sockets.hpp"

namespace {

// "2026-03-02T10:15:30.123Z ERROR requests text": time, level, the unit that logged, text.
bool isAlarm(std::string_view line) {
    const std::size_t level = line.find(' ');
    const std::string_view rest = line.substr(std::min(level, line.size()));
    return rest.starts_with(" ERROR ") || rest.starts_with(" WARNING ");
}

// The line without " requests", the unit of all published alarms, and without control
// characters: the log holds texts of the engine.
std::string shown(std::string line) {
    constexpr std::string_view unit = " requests ";
    const std::size_t level = line.find(' ');
    if (const std::size_t end = line.find(' ', level + 1); line.compare(end, unit.size(), unit) == 0) {
        line.erase(end, unit.size() - 1);
    }
    return decodeTextFrame(line);
}

// Appends the alarms of one file. Returns 0 or the errno; of a file that could not be opened
// for another reason EIO.
int readAlarms(const std::filesystem::path& path, std::vector<std::string>* lines) {
    errno = 0;
    std::ifstream file(path);
    if (!file) {
        return errno != 0 ? errno : EIO;
    }
    for (std::string line; std::getline(file, line);) {
        if (isAlarm(line)) {
            lines->push_back(shown(line));
        }
    }
    return 0;
}

}  // namespace

alarms_s lastAlarms(const std::string& endpoint, std::size_t count) {
    const pid_t daemon = listenerOf(endpoint);
    if (daemon <= 0) {
        return {{}, "the log cannot be found: the daemon is not a process of this machine"};
    }
    const std::filesystem::path log = "/proc/" + std::to_string(daemon) + "/cwd/tarnwick.log";
    alarms_s alarms;
    // The rotated log may be missing: a young daemon has none.
    readAlarms(log.string() + ".1", &alarms.lines);
    if (const int error = readAlarms(log, &alarms.lines); error != 0) {
        return {{},
                error == EACCES
                    ? "the log cannot be read; run as root or as the user of the daemon"
                    : "tarnwick.log in the daemon's directory: " + std::string(std::strerror(error))};
    }
    const std::size_t surplus = alarms.lines.size() - std::min(count, alarms.lines.size());
    alarms.lines.erase(alarms.lines.begin(), alarms.lines.begin() + static_cast<std::ptrdiff_t>(surplus));
    return alarms;
}
