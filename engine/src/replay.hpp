// SPDX-License-Identifier: MIT
// A packet log in memory, to be played back: RXE_REPLAY names the file (its format is in
// packet_log.hpp), and with RXE_REPLAY_SPEED=fast no time passes between its packets. Each
// RXE_start delivers the next run of the log, after the last one the first again.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace rxe {

struct replay_packet_s {
    // Microseconds of the clock of the engine that wrote the log; never less than that of the
    // packet before, at most 100 years.
    std::int64_t time = 0;
    std::uint16_t rawType = 0;
    // Bytes of the payload, and where it begins in replay_s::bytes.
    std::uint16_t length = 0;
    std::size_t offset = 0;
};

struct replay_s {
    // The whole file.
    std::vector<std::uint8_t> bytes;
    // Its packets, in their order; records that are only notes of the log are left out.
    std::vector<replay_packet_s> packets;
    // Index of each run's first packet, and behind the last run the number of
    // packets. A run ends with its end-of-run packet; what comes between two
    // runs belongs to the later one.
    std::vector<std::size_t> runs;
    // The run that the next start plays. Written by the radio thread.
    std::size_t next = 0;
    // Packets come at once instead of at the log's times.
    bool fast = false;
    // Whether runs are played back instead of simulated.
    bool active() const { return !runs.empty(); }
};

// Reads the log that the environment names, up to 1 GiB; `*replay` is empty when it names
// none. Returns false, with `*replay` empty and one line in `*error` that names the file and the
// place, when something is wrong:
//   RXE_REPLAY: run.log: at byte 5120: the file ends within a packet
bool loadReplay(replay_s* replay, std::string* error);

// Whether the packet, of replay.packets, is the last one of its run: an end-of-run packet whose
// payload begins with 08 09.
bool endsRun(const replay_s& replay, const replay_packet_s& packet);

}  // namespace rxe
