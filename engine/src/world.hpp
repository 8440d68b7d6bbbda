// SPDX-License-Identifier: MIT
// The world around the radio: tags, antennas, input ports, temperatures. RXE_connect fills it
// from the scenario; from then on the radio thread alone reads and writes it. The control
// thread, which wants to change it, posts an event, and the radio thread applies the event
// between two air commands, at a time of the engine's clock.
//
// Places are metres in a right-handed frame: x to the right, y away from the
// wall, z up. Times are microseconds of the engine's clock, which starts with 0
// at RXE_connect.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <future>
#include <limits>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "rxe.h"

namespace rxe {

// A time that never comes; the length of a stay that does not end.
constexpr std::int64_t forEver = std::numeric_limits<std::int64_t>::max();
// The time of what has not happened yet.
constexpr std::int64_t never = -1;
// Antenna ports are numbered from 1 to this. Port 0 stands for the array.
constexpr std::uint16_t maxPorts = 16;
// The elements of the array, numbered from 0. Element n has the settings of port n + 1.
constexpr std::uint16_t arrayElements = 14;
// General purpose inputs, numbered from 1.
constexpr std::size_t maxGpis = 4;

// What the reader is. ANY has every port, beam and parameter of all of them:
// antenna ids up to maxPorts are ports and those above are beams.
enum class reader_model_e : std::uint8_t { ANY, PN5100, PN8200, QDX4400 };

// A place in metres, or a velocity in metres a second.
struct place_s {
    float x = 0;
    float y = 0;
    float z = 0;
};

// Bytes of CRC and PC in front of the EPC in its bank, and of the whole bank. 31 words of EPC are
// the most that the PC's length field tells (EPC Gen2 v2.0.1, 6.3.2.1.2.2).
constexpr std::size_t epcOffset = 4, epcBankBytes = epcOffset + 62;

// Memory banks by their number on the air.
enum bank_e : std::uint8_t { BANK_RESERVED, BANK_EPC, BANK_TID, BANK_USER, BANK_COUNT };

// Ten lock bits in the order of the Lock command's action field (EPC Gen2
// v2.0.1, 6.3.2.12.3.5), the kill password's pair on top: lock, permalock.
// The permalock bit of a pair is the lock bit shifted right by one.
enum lock_e : std::uint16_t {
    LOCK_KILL = 0x200,
    LOCK_ACCESS = 0x080,
    LOCK_EPC = 0x020,
    LOCK_TID = 0x008,
    LOCK_USER = 0x002,
};

// One tag. Memories hold words most significant byte first:
//   RESERVED: kill password 4, access password 4   EPC: CRC 2, PC 2, EPC
// The EPC bank has room for the longest EPC; the PC's length field tells how much of it is one.
// The members that a round looks at for every tag come first, within one line of the cache.
struct alignas(64) tag_s {
    // Counted from 1 in the order in which tags are added. A later tag may get the index of one
    // that has left, but never its id.
    std::uint32_t id = 0;
    // A killed tag never answers again and counts as not present (EPC Gen2 v2.0.1, 6.3.2.12.3.4).
    bool killed = false;

    // The tag's volatile state. Only the functions of gen2.hpp and field.hpp write these four.
    // The flag SL.
    bool sl = false;
    // Bit n is set while the flag of session n is B.
    std::uint8_t inventoried = 0;
    // When the flag of session 1 falls back to A.
    std::int64_t s1Until = 0;
    // The tag had power up to this time, the last at which the radio looked.
    std::int64_t poweredUntil = 0;

    // The tag is in the field from `enters` on until before `leaves`.
    std::int64_t enters = 0;
    std::int64_t leaves = forEver;

    std::array<std::vector<std::uint8_t>, BANK_COUNT> banks;
    // XPC_W1 and XPC_W2, in the EPC bank at words 21h and 22h; 0 where the tag has none.
    std::uint16_t xpc1 = 0;
    std::uint16_t xpc2 = 0;
    // PC bits 17h to 1Fh: 0 for a GS1 EPC, 100h and the AFI for an ISO one.
    std::uint16_t numbering = 0;
    // The bits of lock_e that are set; 0 is unlocked.
    std::uint16_t locks = 0;
    // Bit n: block n of USER, four words each, is locked for good.
    std::uint32_t lockedBlocks = 0;
    // The power at the tag that wakes it, dBm; a write needs 4 dB more.
    float sensitivity = -18;

    // The place at the time `placedAt`, from where the tag moves at `velocity`.
    place_s place;
    place_s velocity;
    std::int64_t placedAt = 0;
};

// What held a reply or a read back, so that the host did not hear of it.
enum class suppressor_e : std::uint8_t {
    LEVEL_FILTER,   // the RSSI threshold
    ID_FILTER,      // no enabled id filter matches the EPC
    REPORT_FILTER,  // the filter of last reports
};

// The last that became of a tag, for the question "tag" of the control socket. It does not stand
// in tag_s, whose size counts for each tag that a round looks at. Antennas are those of olios,
// ports or beams.
struct history_s {
    // Of the tag, see historyOf.
    std::uint32_t id = 0;
    std::uint16_t singulatedOn = 0;
    std::uint16_t suppressedOn = 0;
    // When the reader last had the whole EPC, reported or not, and when something held the tag back.
    std::int64_t singulatedAt = never;
    std::int64_t suppressedAt = never;
    suppressor_e suppressedBy = suppressor_e::LEVEL_FILTER;
};

// An antenna of a port, or the whole array at index 0.
struct antenna_s {
    place_s place;
    // dBi
    float gain = 6;
    // A lost antenna radiates nothing and hears nothing.
    bool connected = true;
    // Its amplifier has failed: the antenna hears and does not transmit.
    bool paFailed = false;
};

// The level of a general purpose input and when it changed last, 0 when it has not.
struct gpi_s {
    bool high = false;
    std::int64_t since = 0;
};

// How waves travel between antennas and tags.
struct air_s {
    // Exponent of the path loss beyond 1 m, 1 to 6; 2 is free space.
    double exponent = 2.0;
    // Standard deviation in dB of a loss that each pair of tag and antenna has for good, as from
    // what stands between them. With 0 only distance counts.
    double shadowDb = 0;
    // Standard deviation in dB of a loss that is another one for each read.
    double fadeDb = 0.5;
    // Frames get lost near the edge; without, each frame arrives whole.
    bool errors = true;
};

struct world_s {
    // A tag keeps its index while it is present; see addTag.
    std::vector<tag_s> tags;
    // The id of the last tag made.
    std::uint32_t tagsMade = 0;
    // Where addTag goes on to look for a tag that has left, whose entry it takes.
    std::uint32_t freeHint = 0;
    // Counts the changes after which other tags may be in reach: a tag added, moved, removed or
    // killed, an antenna lost or back, an amplifier failed or good again. When the count differs
    // from that of the last look, the radio works out the field anew.
    std::uint64_t changes = 0;
    // By the tag's index; historyOf makes room.
    std::vector<history_s> histories;

    // By port number; 0 is the array.
    std::array<antenna_s, maxPorts + 1> antennas{};
    // By port - 1.
    std::array<gpi_s, maxGpis> gpis{};
    air_s air;
    // Degrees Celsius as the host is shown them.
    std::int16_t paTemp = 41;
    std::int16_t ambTemp = 29;
    reader_model_e model = reader_model_e::ANY;
    // How many tags the radio's database holds, 1 to 10,000,000.
    std::uint32_t dbCapacity = 65536;
};

// Radio thread. All three count a change; `tag` is an index into world.tags. addTag gives the
// tag an id and returns its index, which may be that of a tag that has left.
std::uint32_t addTag(tag_s tag, std::int64_t now, world_s* world);
void moveTag(std::uint32_t tag, place_s place, place_s velocity, std::int64_t now, world_s* world);
// The tag is not in the field from `now` on.
void removeTag(std::uint32_t tag, std::int64_t now, world_s* world);
// Bytes of the EPC by the length field of the PC, 0 to 62; 0 for a tag without an EPC bank.
std::size_t epcBytes(const tag_s& tag);
// Indices of all tags in the field with this EPC. Looks at every tag.
std::vector<std::uint32_t> findTags(const world_s& world, const std::vector<std::uint8_t>& epc,
                                    std::int64_t now);

// An empty history for the tag at the index, with room for it.
history_s* beginHistory(std::uint32_t tag, world_s* world);
// The history of the tag at the index, an empty one when the last belongs to a tag that has left.
// Valid until the next call.
inline history_s* historyOf(std::uint32_t tag, world_s* world) {
    const bool known = tag < world->histories.size() && world->histories[tag].id == world->tags[tag].id;
    return known ? &world->histories[tag] : beginHistory(tag, world);
}
// The reader has the whole EPC of the tag at `now`, or something has held the tag back. `antenna` is
// that of the olio.
inline void noteSingulated(std::uint16_t antenna, std::uint32_t tag, std::int64_t now, world_s* world) {
    history_s* const history = historyOf(tag, world);
    history->singulatedAt = now;
    history->singulatedOn = antenna;
}
void noteSuppressed(suppressor_e by, std::uint16_t antenna, std::uint32_t tag, std::int64_t now,
                    world_s* world);

// Where a tag is at `now`: it moves in a straight line from its last place.
// Metres in single precision.
place_s placeAt(const tag_s& tag, std::int64_t now);
inline bool isPresent(const tag_s& tag, std::int64_t now) {
    return now >= tag.enters && now < tag.leaves && !tag.killed;
}
// Whether an antenna id of an olio is a beam of the array rather than a port. On a QDX4400 all
// ids are beams.
constexpr bool isBeam(reader_model_e model, std::uint16_t antenna) {
    return model == reader_model_e::QDX4400 || (model == reader_model_e::ANY && antenna > maxPorts);
}

// --- Events: posted by the control socket's thread and scheduled by the
// --- scenario, applied by the radio thread (applyDueEvents in events.hpp),
// --- which also sends the packets that tell of them.

// The kinds of events, each with the members of event_s that it uses.
enum class event_e : std::uint8_t {
    GPI,          // port, flag: high
    ANTENNA,      // port, flag: connected
    PA_FAILURE,   // port, flag: failed, value: 1 when it gives too much power, 0 too little
    PA_TEMP,      // value: degrees Celsius
    AMB_TEMP,     // value: degrees Celsius
    FAIL,         // operation and parameter, value: status, count: how often (0: no end), after
    TAG_ENTER,    // tag
    TAG_MOVE,     // epc, place, velocity
    TAG_LEAVE,    // epc
    DATABASE,     // flag: full, else nearly so; by tags that have been read elsewhere
    FAULT,        // the run ends with an error
    PACKET,       // rawType, bytes: a packet to send as it stands
    ASK_TAG,      // bytes: an EPC, answer; changes nothing
    ASK_FAILING,  // changes nothing; the control thread answers it
};

struct event_s {
    event_e kind = event_e::GPI;
    // Microseconds of the engine's clock; the event comes at once when this time has passed.
    std::int64_t due = 0;
    // Antenna port 1 to maxPorts, or input 1 to maxGpis.
    std::uint16_t port = 0;
    // These three mean what event_e says for the kind.
    bool flag = false;
    int value = 0;
    std::uint32_t count = 0;
    // Name of the RXE_ operation that is to fail; empty for any.
    std::string operation;
    // Id that the operation has to be for; -1 for any.
    int parameter = -1;
    // Calls that still work before the first that fails.
    std::uint32_t after = 0;
    // `leaves` is how long it stays, as if it entered at 0.
    tag_s tag;
    // An EPC, or the payload of a packet.
    std::vector<std::uint8_t> bytes;
    // RXE_PACKET_ type of the packet.
    std::uint16_t rawType = 0;
    // Metres, and metres a second.
    place_s place;
    place_s velocity;
    // Where the radio thread puts the reply to a question; null for all other events.
    std::shared_ptr<std::promise<std::string>> answer;
};

// Events on their way to the radio thread. Any thread posts; the radio thread takes. It reads
// `waiting` before each slot, so that it takes the lock only when there is an event. There is
// not a limit to their number.
struct event_queue_s {
    std::mutex mutex;
    std::vector<event_s> events;
    std::atomic<bool> waiting{false};
};

// Any thread. The caller wakes the radio thread.
void postEvent(event_s event, event_queue_s* queue);
// Radio thread: takes all that have been posted, in their order.
std::vector<event_s> takeEvents(event_queue_s* queue);

}  // namespace rxe
