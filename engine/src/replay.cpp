// SPDX-License-Identifier: MIT
#include "replay.hpp"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "codec.hpp"
#include "files.hpp"
#include "packet_log.hpp"

namespace rxe {
namespace {

constexpr std::size_t headerSize = 24, recordSize = 12;  // as packet_log.hpp draws them
constexpr std::size_t maxLog = 1U << 30;                 // bytes; some hours of a busy radio
constexpr std::uint32_t logVersion = 1;
constexpr std::string_view magic = "RXEPKLOG";

// Microseconds, 100 years. The engine's clock adds up the times of all runs, so later times could
// overflow it.
constexpr std::int64_t maxTime = std::int64_t{100} * 366 * 24 * 3600 * 1'000'000;

// Numbers of the log are little-endian, as this processor's are.
template <typename Number>
Number numberAt(const std::vector<std::uint8_t>& bytes, std::size_t offset) {
    Number number;
    std::memcpy(&number, bytes.data() + offset, sizeof number);
    return number;
}

// What is wrong with the header, or an empty text.
std::string checkHeader(const std::vector<std::uint8_t>& bytes) {
    if (bytes.size() < headerSize || std::memcmp(bytes.data(), magic.data(), magic.size()) != 0) {
        return "is not a packet log";
    }
    const auto version = numberAt<std::uint32_t>(bytes, 8);
    return version == logVersion ? "" : "has version " + std::to_string(version) + ", which is not known";
}

// Fills packets and runs. Returns why the records cannot be played, or an empty text.
std::string indexPackets(replay_s* replay) {
    std::int64_t latest = 0;
    for (std::size_t at = headerSize; at < replay->bytes.size();) {
        const std::string where = "at byte " + std::to_string(at) + ": ";
        const std::size_t left = replay->bytes.size() - at;
        replay_packet_s packet{.offset = at + recordSize};
        if (left >= recordSize) {
            packet.time = numberAt<std::int64_t>(replay->bytes, at);
            packet.rawType = numberAt<std::uint16_t>(replay->bytes, at + 8);
            packet.length = numberAt<std::uint16_t>(replay->bytes, at + 10);
        }
        if (left < recordSize || left - recordSize < packet.length) {
            return where + "the file ends within a packet";
        }
        if (packet.length > maxPayload) {
            return where + "a packet of " + std::to_string(packet.length) + " bytes";
        }
        if (packet.time < latest) {
            return where + "the time goes backwards";
        }
        latest = packet.time;
        at += recordSize + packet.length;
        if (packet.rawType == typeShadowCounts) {  // a note of the log, which no host was given
            continue;
        }
        if (replay->packets.empty() || endsRun(*replay, replay->packets.back())) {
            replay->runs.push_back(replay->packets.size());
        }
        replay->packets.push_back(packet);
    }
    if (latest > maxTime) {
        return "holds times of more than 100 years";
    }
    replay->runs.push_back(replay->packets.size());
    return replay->packets.empty() ? "holds no packets" : "";
}

}  // namespace

bool endsRun(const replay_s& replay, const replay_packet_s& packet) {
    const std::uint8_t* const payload = replay.bytes.data() + packet.offset;
    return packet.rawType == RXE_PACKET_END_OF_RUN && packet.length >= 2 && payload[0] == 0x08 &&
           payload[1] == 0x09;
}

bool loadReplay(replay_s* replay, std::string* error) {
    *replay = {};
    const char* const path = std::getenv("RXE_REPLAY");
    if (path == nullptr || *path == '\0') {
        return true;
    }
    const std::string who = std::string("RXE_REPLAY: ") + path + ": ";
    const char* const speed = std::getenv("RXE_REPLAY_SPEED");
    const std::string_view pace = speed == nullptr || *speed == '\0' ? "original" : speed;
    if (pace != "original" && pace != "fast") {
        *error = R"(RXE_REPLAY_SPEED: must be "original" or "fast")";
        return false;
    }
    replay->fast = pace == "fast";
    std::string fault = readFile(path, maxLog, &replay->bytes);
    if (fault.empty()) {
        fault = checkHeader(replay->bytes);
    }
    if (fault.empty()) {
        fault = indexPackets(replay);
    }
    if (!fault.empty()) {
        *error = who + fault;
        *replay = {};
    }
    return fault.empty();
}

}  // namespace rxe
