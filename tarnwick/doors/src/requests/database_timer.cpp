// SPDX-License-Identifier: MIT
// The reset of the engine's tag database, at once when it is full, or by a one-shot timer at a
// quiet hour after it has become nearly full; and the command that sets the hour. Main thread.
#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <ctime>

#include "additional_config.hpp"
#include "command_words.hpp"
#include "engine_io/parameters.hpp"
#include "logger.hpp"
#include "requests.hpp"
#include "requests/news.hpp"
#include "requests/report.hpp"
#include "util.hpp"

namespace requests {

namespace {

// Local time of day of the reset. Written by databaseResetHandler, read when the
// timer is armed.
int database_reset_hour = 0;
int database_reset_min = 0;

bool isZero(const timespec& time) {
    return time.tv_sec == 0 && time.tv_nsec == 0;
}

// The timer as it is; zeros, with one error counted and logged, when it cannot be read.
itimerspec readTimer() {
    itimerspec armed = {};
    if (timerfd_gettime(database_timer, &armed) != 0) {
        logCountedError("requests", " failed to get database reset timer: ", std::strerror(errno));
    }
    return armed;
}

bool isArmed() {
    const itimerspec timer = readTimer();
    return !isZero(timer.it_value) || !isZero(timer.it_interval);
}

void setTimer(const itimerspec& timer) {
    if (timerfd_settime(database_timer, TFD_TIMER_ABSTIME, &timer, nullptr) != 0) {
        logCountedError("requests", " failed to set database reset timer: ", std::strerror(errno));
    }
}

// The next moment at which the clock shows the reset time, today or tomorrow. mktime handles
// days of 23 and 25 hours and the end of a month.
tm nextReset() {
    const time_t now = time(nullptr);
    tm local{};
    localtime_r(&now, &local);
    local.tm_sec = 0;
    local.tm_min = database_reset_min;
    local.tm_hour = database_reset_hour;
    local.tm_isdst = -1;
    tm today = local;
    if (mktime(&today) > now) {
        return today;
    }
    ++local.tm_mday;
    mktime(&local);
    return local;
}

// Logs and publishes what failed during a reset; silent for 0.
void noteResetFailure(RXE_API_STATUS status, const char* what) {
    if (status == RXE_OK) {
        return;
    }
    std::string text = what + (" (" + std::to_string(static_cast<int>(status)) + ")");
    logError(&text, report_error.database);
}

void emptyDatabases() {
    noteResetFailure(RXE_resetDb(), "Failed to reset database while resetting database");
    resetTagInfoDB();
}

}  // namespace

void scheduleDatabaseReset(const DB_WARNING_s& filling) {
    if (isArmed()) {
        return;  // one warning for each arming
    }
    tm reset = nextReset();
    itimerspec timer = {};
    timer.it_value.tv_sec = mktime(&reset);
    setTimer(timer);

    // A warning that could not be decoded arrives with zeros.
    const std::uint64_t capacity = std::uint64_t{filling.used} + filling.free;
    const std::uint64_t percent = capacity == 0 ? 0 : std::uint64_t{100} * filling.used / capacity;
    char moment[64] = {};
    asctime_r(&reset, moment);
    std::string text = sprintfStr("Database warning: %d%% full. Will reset at %s (or earlier)",
                                  static_cast<int>(percent), moment);
    logWarning(&text, report_warning.database);
}

void handleDatabaseTimer() {
    std::uint64_t expiries = 0;
    if (read(database_timer, &expiries, sizeof expiries) != sizeof expiries) {
        logCountedError("requests", " failed to read database reset timer: ", std::strerror(errno));
    }
    std::string text = "Resetting database";
    logWarning(&text, report_warning.database);
    reset_database();
}

int reset_database() {
    if (isStartOngoing()) {
        noteResetFailure(RXE_stop(), "Failed to stop RXE before resetting database");
        emptyDatabases();
        noteResetFailure(RXE_start(), "Failed to restart RXE while resetting database");
    } else {
        emptyDatabases();
    }
    return cancel_database_timer();
}

int cancel_database_timer() {
    if (database_timer >= 1 && isArmed()) {
        setTimer({});
    }
    return 0;
}

int databaseResetHandler(std::vector<std::string>* tokens, std::string* reply) {
    *reply = "Success: ";
    std::string time;
    if (tokens->size() > 1) {
        if (getParamValue(std::string(vocabulary::resetTime.name), tokens, &time) != 0) {
            return 0;
        }
        const std::vector<std::string> parts = split(time.c_str(), ':');
        if (parts.size() != 2) {
            sprintfStr(reply, "Failure: database_reset time must be of the form HH:MM (received %s)",
                       time.c_str());
            return 0;
        }
        // Quirk: a part that is not a number throws, which ends the daemon (documented).
        const unsigned long long hour = std::stoull(parts[0]);
        const unsigned long long minute = std::stoull(parts[1]);
        if (hour > 23) {
            sprintfStr(reply, "Failure: database_reset time hours must be less than 24 (received %s)",
                       parts[0].c_str());
            return 0;
        }
        if (minute >= 60) {
            sprintfStr(reply, "Failure: database_reset time minutes must be less than 60 (received %s)",
                       parts[1].c_str());
            return 0;
        }
        database_reset_hour = static_cast<int>(hour);
        database_reset_min = static_cast<int>(minute);
    }
    sprintfStrAppend(reply, "time: %02d:%02d", database_reset_hour, database_reset_min);
    return 0;
}

}  // namespace requests
