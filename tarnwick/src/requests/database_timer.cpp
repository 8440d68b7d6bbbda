// SPDX-License-Identifier: MIT
// The one-shot timer that empties the engine's tag database at a quiet hour.
#include "logger.hpp"
#include "requests.hpp"
#include "requests/news.hpp"

#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

namespace {

bool isZero(const timespec& time) {
    return time.tv_sec == 0 && time.tv_nsec == 0;
}

}  // namespace

void handleDatabaseTimer() {
    std::uint64_t expiries = 0;
    if (read(database_timer, &expiries, sizeof expiries) != sizeof expiries) {
        logCountedError("requests", " failed to read database reset timer: ", std::strerror(errno));
    }
}

int cancel_database_timer() {
    if (database_timer < 1) {
        return 0;
    }
    itimerspec armed = {};
    if (timerfd_gettime(database_timer, &armed) != 0) {
        logCountedError("requests", " failed to get database reset timer: ", std::strerror(errno));
    }
    if (isZero(armed.it_value) && isZero(armed.it_interval)) {
        return 0;
    }
    const itimerspec disarmed = {};
    if (timerfd_settime(database_timer, TFD_TIMER_ABSTIME, &disarmed, nullptr) != 0) {
        logCountedError("requests", " failed to set database reset timer: ", std::strerror(errno));
    }
    return 0;
}
