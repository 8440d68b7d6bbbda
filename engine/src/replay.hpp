// SPDX-License-Identifier: MIT
// Playing a packet log back: RXE_REPLAY names the file, and with
// RXE_REPLAY_SPEED=fast no time passes between its packets. Each RXE_start
// delivers the next run of the log, after the last one the first again.
#ifndef ENGINE_REPLAY_HPP
#define ENGINE_REPLAY_HPP

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace rxe {

struct engine_s;

struct replay_packet_s {
    std::int64_t time = 0;  // microseconds of the clock of the engine that wrote the log
    std::uint16_t rawType = 0;
    std::uint16_t length = 0;
    std::size_t offset = 0;  // of the payload in replay_s::bytes
};

struct replay_s {
    std::vector<std::uint8_t> bytes;  // the whole file
    std::vector<replay_packet_s> packets;
    // Index of each run's first packet, and behind the last run the number of
    // packets. A run ends with its end-of-run packet; what comes between two
    // runs belongs to the later one.
    std::vector<std::size_t> runs;
    std::size_t next = 0;  // the run that the next start plays; radio thread
    bool fast = false;
    bool active() const { return !runs.empty(); }
};

// Reads what the environment names; `*replay` is empty when it names nothing.
// Returns false with one line in `*error` that names the file and the place
// when something is wrong.
bool loadReplay(replay_s* replay, std::string* error);

// Radio thread: one run. It ends as the log's did, and when the host stops it
// with a packet that says so.
void runReplay(engine_s* engine);

}  // namespace rxe

#endif
