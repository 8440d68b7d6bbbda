// SPDX-License-Identifier: MIT
// How much processor, memory and time the process has used (getrusage(2), sysinfo(2)).
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/sysinfo.h>
#include <sys/time.h>

#include <cstdint>
#include <ctime>

#include "requests/report.hpp"

namespace requests {

namespace {

std::int64_t microseconds(const timeval& time) {
    return std::int64_t{time.tv_sec} * 1'000'000 + time.tv_usec;
}

// Bytes of the machine's memory.
std::uint64_t totalMemory() {
    struct sysinfo info = {};
    sysinfo(&info);
    return std::uint64_t{info.totalram} * info.mem_unit;
}

}  // namespace

int get_cpu_util() {
    // Time of day and time used at the last call, in microseconds. Main thread.
    static bool firstCall = true;
    static std::int64_t lastTime = 0;
    static std::int64_t lastUsed = 0;

    timeval now{};
    gettimeofday(&now, nullptr);
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const std::int64_t used = microseconds(usage.ru_utime) + microseconds(usage.ru_stime);
    const std::int64_t elapsed = microseconds(now) - lastTime;
    const std::int64_t usedSince = used - lastUsed;
    const bool first = firstCall;
    firstCall = false;
    lastTime = microseconds(now);
    lastUsed = used;
    if (first) {
        return 0;
    }
    return elapsed == 0 ? -10 : static_cast<int>(usedSince * 1000 / elapsed);
}

int get_mem_util() {
    static const std::uint64_t total = totalMemory();
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    // ru_maxrss is in kilobytes.
    return total == 0 ? 0 : static_cast<int>(static_cast<std::uint64_t>(usage.ru_maxrss) * 1'024'000 / total);
}

int get_proc_uptime() {
    const time_t now = time(nullptr);
    struct stat status = {};
    const time_t started = stat("/proc/self/stat", &status) == 0 ? status.st_mtime : 100;
    return static_cast<int>(now - started);
}

}  // namespace requests
