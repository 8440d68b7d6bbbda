// SPDX-License-Identifier: MIT
// What lies in front of the radio and around it: tags, antennas, input ports,
// temperatures. The scenario fills it at RXE_connect; from then on the radio
// thread alone owns it. Whoever wants to change it from another thread (the
// control socket) posts an event, which the radio thread applies between two
// air commands, at a time of the engine's clock.
//
// Places are metres in a right-handed frame: x to the right, y away from the
// wall, z up. Times are microseconds of the engine's clock.
#ifndef ENGINE_WORLD_HPP
#define ENGINE_WORLD_HPP

#include <array>
#include <atomic>
#include <cstdint>
#include <limits>
#include <mutex>
#include <string>
#include <vector>

#include "rxe.h"

namespace rxe {

constexpr std::int64_t FOR_EVER = std::numeric_limits<std::int64_t>::max();
constexpr std::uint16_t MAX_PORTS = 16;  // antenna ports, numbered from 1
constexpr std::uint16_t ELEMENTS = 14;   // of the array; element n has the settings of port n + 1
constexpr std::size_t MAX_GPIS = 4;

// What the reader is. ANY has every port, beam and parameter of all of them:
// antenna ids up to MAX_PORTS are ports and those above are beams.
enum class reader_model_e : std::uint8_t { ANY, PN5100, PN8200, QDX4400 };

struct place_s {
    float x = 0;
    float y = 0;
    float z = 0;
};

// Bytes of CRC and PC in front of the EPC in its bank, and of the whole bank: 31 words of EPC are
// the most that the PC's length field tells.
constexpr std::size_t EPC_OFFSET = 4, EPC_BANK_BYTES = EPC_OFFSET + 62;

enum bank_e : std::uint8_t { BANK_RESERVED, BANK_EPC, BANK_TID, BANK_USER, BANK_COUNT };

// Ten lock bits in the order of the Lock command's action field (EPC Gen2
// v2.0.1, 6.3.2.12.3.5), the kill password's pair on top: lock, permalock.
enum lock_e : std::uint16_t {
    LOCK_KILL = 0x200,
    LOCK_ACCESS = 0x080,
    LOCK_EPC = 0x020,
    LOCK_TID = 0x008,
    LOCK_USER = 0x002,
    // A permalock bit is the lock bit shifted right by one.
};

// One tag. Memories hold words most significant byte first:
//   RESERVED: kill password 4, access password 4   EPC: CRC 2, PC 2, EPC
// The EPC bank has room for the longest EPC; the PC's length field tells how much of it is one.
// What a round looks at for every tag stands in front, in one line of the cache.
struct alignas(64) tag_s {
    // Tells tags apart for ever, counted from 1 by addTag: a tag that has left
    // gives its place in the list to a later one.
    std::uint32_t id = 0;
    bool killed = false;
    // The radio's own state of this tag; nobody else writes these four.
    bool sl = false;
    std::uint8_t inventoried = 0;  // bit n: flag of session n is B
    std::int64_t s1Until = 0;      // when S1 falls back to A
    std::int64_t poweredUntil = 0;

    std::int64_t enters = 0;  // in the field from this time
    std::int64_t leaves = FOR_EVER;

    std::array<std::vector<std::uint8_t>, BANK_COUNT> banks;
    std::uint16_t xpc1 = 0;  // XPC_W1 and XPC_W2, in the EPC bank at words 21h and 22h
    std::uint16_t xpc2 = 0;
    // PC bits 17h to 1Fh: 0 for a GS1 EPC, 100h and the AFI for an ISO one.
    std::uint16_t numbering = 0;
    std::uint16_t locks = 0;         // lock_e
    std::uint32_t lockedBlocks = 0;  // bit n: block n of USER, four words each, is locked for good
    float sensitivity = -18;         // dBm at the tag that wake it; a write takes 4 dB more

    place_s place;     // at the time `placedAt`
    place_s velocity;  // metres a second
    std::int64_t placedAt = 0;
};

struct antenna_s {
    place_s place;
    float gain = 6;  // dBi
    bool connected = true;
    bool paFailed = false;  // its amplifier gives nothing
};

struct gpi_s {
    bool high = false;
    std::int64_t since = 0;  // time of the last change
};

// How the waves go. With shadow 0 only distance counts.
struct air_s {
    double exponent = 2.0;  // of the path loss beyond 1 m; 2 is free space
    double shadowDb = 0;    // standard deviation of a loss fixed for each pair of tag and antenna
    double fadeDb = 0.5;    // standard deviation from read to read
    bool errors = true;     // frames get lost near the edge
};

struct world_s {
    std::vector<tag_s> tags;
    std::uint32_t tagsMade = 0;  // the id of the last tag
    std::uint32_t freeHint = 0;  // where addTag looks next for the place of a tag that has left
    // Counts whatever changes who can be heard where: a tag added, moved,
    // gone, written or killed, an antenna lost, an amplifier failed. The radio
    // looks at the field anew when it differs.
    std::uint64_t changes = 0;

    std::array<antenna_s, MAX_PORTS + 1> antennas{};  // by port number; 0 is the array
    std::array<gpi_s, MAX_GPIS> gpis{};               // by port - 1
    air_s air;
    std::int16_t paTemp = 41;  // degrees Celsius
    std::int16_t ambTemp = 29;
    reader_model_e model = reader_model_e::ANY;
    std::uint32_t dbCapacity = 65536;  // tags the radio's database holds
};

// Radio thread. All three count a change; `tag` is an index into world.tags.
// Indices of tags that are present never move; addTag may reuse the place of a
// tag whose `leaves` has passed, under a new id.
std::uint32_t addTag(tag_s tag, std::int64_t now, world_s* world);
void moveTag(std::uint32_t tag, place_s place, place_s velocity, std::int64_t now, world_s* world);
void removeTag(std::uint32_t tag, std::int64_t now, world_s* world);
// Bytes of the EPC, as the PC's length field tells; 0 for a tag without a bank.
std::size_t epcBytes(const tag_s& tag);
// Index of the tag in the field with this EPC, or -1.
std::int64_t findTag(const world_s& world, const std::vector<std::uint8_t>& epc, std::int64_t now);

place_s placeAt(const tag_s& tag, std::int64_t now);
inline bool isPresent(const tag_s& tag, std::int64_t now) {
    return now >= tag.enters && now < tag.leaves && !tag.killed;
}
// Whether an antenna id of an olio is a beam of the array rather than a port.
constexpr bool isBeam(reader_model_e model, std::uint16_t antenna) {
    return model == reader_model_e::QDX4400 || (model == reader_model_e::ANY && antenna > MAX_PORTS);
}

// --- Events: posted by the scenario's timeline and the control socket's
// --- thread, applied by the radio thread (applyEvent, in events.cpp, of the
// --- scenario side, which also sends the packets that tell of them).

enum class event_e : std::uint8_t {
    GPI,         // port, flag: high
    ANTENNA,     // port, flag: connected
    PA_FAILURE,  // port, flag: failed, value: 1 when it gives too much power, 0 too little
    PA_TEMP,     // value: degrees Celsius
    AMB_TEMP,    // value
    FAIL,        // operation and parameter, value: status, count: how often (0: no end), after
    TAG_ENTER,   // tag
    TAG_MOVE,    // epc, place, velocity
    TAG_LEAVE,   // epc
    DATABASE,    // flag: full, else nearly so; by tags that have been read elsewhere
    FAULT,       // the run ends with an error
    PACKET,      // rawType, bytes: a packet to send as it stands
};

struct event_s {
    event_e kind = event_e::GPI;
    std::int64_t due = 0;  // 0: at once
    std::uint16_t port = 0;
    bool flag = false;
    int value = 0;
    std::uint32_t count = 0;
    std::string operation;    // name of the RXE_ function; empty for any
    int parameter = -1;       // id that the operation has to be for; -1 for any
    std::uint32_t after = 0;  // calls that still work before the first that fails
    tag_s tag;
    std::vector<std::uint8_t> bytes;  // EPC, or a payload
    std::uint16_t rawType = 0;
    place_s place;
    place_s velocity;
};

// Any thread posts; the radio thread takes. `waiting` lets the radio thread
// pass by without the lock.
struct event_queue_s {
    std::mutex mutex;
    std::vector<event_s> events;
    std::atomic<bool> waiting{false};
};

void postEvent(event_s event, event_queue_s* queue);
std::vector<event_s> takeEvents(event_queue_s* queue);

}  // namespace rxe

#endif
