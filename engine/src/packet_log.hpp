// SPDX-License-Identifier: MIT
// The packet log: a file with every packet that went to the host. Numbers are little-endian.
//
//   header   | "RXEPKLOG" | version: 4 = 1 | reserved: 4 | start: 8 |
//   record   | time: 8 | raw type: 2 | length: 2 | payload: length |
//
// `start` is the time of day in microseconds since 1970, 0 with the fast
// clock; `time` is microseconds of the engine's clock, which starts at
// RXE_connect.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <mutex>

#include "rxe.h"

namespace rxe {

// The raw type of a record that is not a packet. It comes before the end of each run and counts
// writes with the shadow flag since RXE_connect, numbers most significant byte first:
//
//   | repeated the stored value, so never reached the radio: 4 | reached it: 4 |
constexpr std::uint16_t typeShadowCounts = 0;

// Closes a file for unique_ptr.
struct close_file_s {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

struct packet_log_s {
    // Guards `file` and `latest`; held for one record, never during a callback.
    std::mutex mutex;
    std::unique_ptr<std::FILE, close_file_s> file;
    // Time of the last record, microseconds.
    std::int64_t latest = 0;
    // Whether `file` is open, for the radio thread's quick look.
    std::atomic<bool> open{false};
};

// Any thread. A log that is open already is closed first; a file of this name
// is replaced. False when it cannot be written, for one because its directory
// is not there.
bool openLog(const char* path, bool fastClock, packet_log_s* log);
// False when what was left could not be written; true when no log is open.
bool closeLog(packet_log_s* log);

// Radio thread. The engine's clock may run ahead of the real one and is set back
// by a stop; in the log time never goes backwards. A record that cannot be
// written, on a full disk for one, ends the log.
void logPacket(std::int64_t now, const RXE_packet_s& packet, packet_log_s* log);
// Radio thread. Writes what the library still holds, so that the file can be read meanwhile.
void flushLog(packet_log_s* log);

}  // namespace rxe
