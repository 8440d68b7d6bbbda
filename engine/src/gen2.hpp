// SPDX-License-Identifier: MIT
// A tag by EPC Gen2 v2.0.1: its flags and how long they last (6.3.2.2), its answers to Select
// and Query, its memory behind locks and passwords. Radio thread only; times are microseconds
// of the engine's clock.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "rxe.h"
#include "world.hpp"

namespace rxe {

// The flag that a Select works on: 0 to 3 are the sessions, this is SL.
constexpr std::uint8_t targetSL = 4;

// The answer of a tag's memory: an error code (EPC Gen2 v2.0.1, annex I), or TAG_OK for a
// success, which has no code in the standard.
enum tag_error_e : std::uint8_t {
    TAG_OK = 0xFF,
    TAG_OTHER = 0x00,
    // A block permalock outside USER.
    TAG_NOT_SUPPORTED = 0x01,
    // A lock without the access password; a kill with a zero kill password.
    TAG_NO_PRIVILEGE = 0x02,
    // An address behind the bank's end.
    TAG_OVERRUN = 0x03,
    TAG_LOCKED = 0x04,
    // Too little power for a write.
    TAG_WEAK_POWER = 0x0B,
};

// The tag has power again from `now` on; it was last seen powered at tag->poweredUntil. Flags
// fall back whose persistence is over: S0 at once, S2, S3 and SL after 20 s without power.
void powerUp(std::int64_t now, tag_s* tag);

// Whether the inventoried flag of a session, 0 to 3, is B. S1 falls back 2 s after it was
// set, with power and without.
bool inventoriedB(const tag_s& tag, unsigned session, std::int64_t now);
// Sets the flag of a session, 0 to 3, to B or A. For S1 at B its 2 s begin.
void setInventoried(unsigned session, bool b, std::int64_t now, tag_s* tag);

// When a flag that is B falls back to A, microseconds of the engine's clock, if the tag keeps its
// power or, without `powered`, gets none: forEver when it does not.
std::int64_t fallsBackAt(const tag_s& tag, unsigned session, bool powered);

// Whether the tag takes part in a round that a Query with these values opens: `sel` 0 and 1
// call all tags, 2 those with SL deasserted, 3 those with SL asserted; `session` 0 to 3;
// `wantsB` is the inventoried flag that the Query asks for.
inline bool takesPart(const tag_s& tag, std::uint8_t sel, unsigned session, bool wantsB, std::int64_t now) {
    const bool selected = sel < 2 || tag.sl == (sel == 3);
    return selected && inventoriedB(tag, session, now) == wantsB;
}

// Applies action and target of a Select to the tag, by whether the tag matches its mask (EPC
// Gen2 v2.0.1, table 6.29).
void obeySelect(const SELECT_OP_s& select, std::int64_t now, tag_s* tag);
// Whether the mask matches. A mask that reaches beyond the bank's end does not match, nor does
// any mask on RESERVED.
bool matches(const SELECT_OP_s& select, const tag_s& tag);
// `length` bits of a memory from bit `pointer` on, fewer where the memory ends: bytes with the first
// bit on top and zeros behind the last one.
std::vector<std::uint8_t> bitsOf(std::span<const std::uint8_t> memory, std::size_t pointer,
                                 std::size_t length);

// What a tag backscatters when it is acknowledged (EPC Gen2 v2.0.1, 6.3.2.12.2.4): PC, XPC words,
// EPC, and a CRC over all that. Words that are not sent are 0: XPC_W1 without the XI bit of the
// PC, XPC_W2 without the XEB bit of XPC_W1.
struct backscatter_s {
    // Points into the tag's bank, or into the room that truncate was given.
    const std::uint8_t* epc = nullptr;
    std::uint16_t epcBits = 0;
    std::uint16_t pc = 0;
    std::uint16_t xpc1 = 0;
    std::uint16_t xpc2 = 0;
    std::uint16_t crc = 0;
    // All that is sent, PC to CRC.
    unsigned replyBits = 0;
};
backscatter_s backscatterOf(const tag_s& tag);
// Cuts `*reply` short, after a Select that asked for truncation: five zero bits, what follows
// the mask in the EPC, and a CRC over these. `*room` gets the bits, from the first byte's most
// significant bit on. False when less than a word follows the mask, when the mask does not end
// within the EPC, or when it is on another bank: then the tag answers whole and `*reply` has
// not changed.
bool truncate(const SELECT_OP_s& select, std::vector<std::uint8_t>* room, backscatter_s* reply);

// From words 0 to 3 of RESERVED; 0 for a tag without a password.
std::uint32_t killPassword(const tag_s& tag);
std::uint32_t accessPassword(const tag_s& tag);

// Memory as an access meets it. `secured` tells whether the access password was given, or is
// zero. `bank` is 0 to 3; addresses and counts are words. 0 words read to the bank's end, and in
// the EPC bank to the end of the EPC. `*data` gets the words, high byte first. A request that
// fails changes nothing in the tag.
tag_error_e readMemory(const tag_s& tag, std::uint8_t bank, std::size_t pointer, std::size_t words,
                       bool secured, std::vector<std::uint8_t>* data);
tag_error_e writeMemory(std::uint8_t bank, std::size_t pointer, std::span<const std::uint16_t> words,
                        bool secured, tag_s* tag);
// BlockPermalock: locks blocks of four USER words for good, up to 32 blocks. A mask bit stands
// for a block, the most significant bit of the first word for block 16 * `pointer`.
tag_error_e lockBlocks(std::uint8_t bank, std::size_t pointer, std::span<const std::uint16_t> mask,
                       bool secured, tag_s* tag);
// Lock: `payload` has ten mask bits above ten action bits, as on the air. TAG_LOCKED when it
// would change a pair of bits whose permalock bit is set.
tag_error_e lockMemory(std::uint32_t payload, bool secured, tag_s* tag);

}  // namespace rxe
