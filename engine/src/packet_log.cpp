// SPDX-License-Identifier: MIT
#include "packet_log.hpp"

#include <algorithm>
#include <chrono>

namespace rxe {
namespace {

constexpr std::uint32_t logVersion = 1;

// The header as it lies in the file.
struct log_header_s {
    char magic[8];
    std::uint32_t version;
    std::uint32_t reserved12;
    std::int64_t start;
};
static_assert(sizeof(log_header_s) == 24);

// The caller holds the lock. False when the last bytes could not be written.
bool closeLocked(packet_log_s* log) {
    log->open.store(false, std::memory_order_relaxed);
    return log->file == nullptr || std::fclose(log->file.release()) == 0;
}

// Microseconds since 1970.
std::int64_t timeOfDay() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::microseconds>(now).count();
}

}  // namespace

bool openLog(const char* path, bool fastClock, packet_log_s* log) {
    const std::lock_guard lock(log->mutex);
    closeLocked(log);
    log->file.reset(std::fopen(path, "wbe"));
    if (log->file == nullptr) {
        return false;
    }
    const log_header_s header{
        {'R', 'X', 'E', 'P', 'K', 'L', 'O', 'G'}, logVersion, 0, fastClock ? 0 : timeOfDay()};
    if (std::fwrite(&header, sizeof header, 1, log->file.get()) != 1 || std::fflush(log->file.get()) != 0) {
        closeLocked(log);
        return false;
    }
    log->latest = 0;
    log->open.store(true, std::memory_order_relaxed);
    return true;
}

bool closeLog(packet_log_s* log) {
    const std::lock_guard lock(log->mutex);
    return closeLocked(log);
}

void logPacket(std::int64_t now, const RXE_packet_s& packet, packet_log_s* log) {
    // Asked for each packet, so without the lock while no log is open.
    if (!log->open.load(std::memory_order_relaxed)) {
        return;
    }
    const std::lock_guard lock(log->mutex);
    if (log->file == nullptr) {
        return;
    }
    log->latest = std::max(log->latest, now);
    const std::size_t size = sizeof packet + packet.length;
    if (std::fwrite(&log->latest, sizeof log->latest, 1, log->file.get()) != 1 ||
        std::fwrite(&packet, 1, size, log->file.get()) != size) {
        closeLocked(log);
    }
}

void flushLog(packet_log_s* log) {
    const std::lock_guard lock(log->mutex);
    if (log->file != nullptr && std::fflush(log->file.get()) != 0) {
        closeLocked(log);
    }
}

}  // namespace rxe
