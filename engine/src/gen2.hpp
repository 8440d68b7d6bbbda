// SPDX-License-Identifier: MIT
// A tag as EPC Gen2 v2.0.1 has it: flags and what they remember, answers to
// Select and Query, memory behind locks and passwords. Radio thread only;
// times are microseconds of the engine's clock.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "rxe.h"
#include "world.hpp"

namespace rxe {

// The flag that a Select works on: 0 to 3 are the sessions, this is SL.
constexpr std::uint8_t targetSL = 4;

// What a tag's memory answers; the codes are those of annex I. TAG_OK is not a code of
// the standard: it stands for a success.
enum tag_error_e : std::uint8_t {
    TAG_OK = 0xFF,
    TAG_OTHER = 0x00,
    TAG_NOT_SUPPORTED = 0x01,
    TAG_NO_PRIVILEGE = 0x02,
    TAG_OVERRUN = 0x03,
    TAG_LOCKED = 0x04,
    TAG_WEAK_POWER = 0x0B,
};

// The tag has power again from `now` on, after tag->poweredUntil. Flags fall back that have
// outlived their persistence: S0 at once, S2, S3 and SL after 20 s without power.
void powerUp(std::int64_t now, tag_s* tag);

// Whether the inventoried flag of a session, 0 to 3, is B. S1 falls back 2 s after it was
// set, with power and without.
bool inventoriedB(const tag_s& tag, unsigned session, std::int64_t now);
// Sets or clears the flag of a session; S1 begins to run down.
void setInventoried(unsigned session, bool b, std::int64_t now, tag_s* tag);

// Whether a Query with this `sel`, session and flag (true: B) has the tag take part.
inline bool takesPart(const tag_s& tag, std::uint8_t sel, unsigned session, bool wantsB, std::int64_t now) {
    const bool selected = sel < 2 || tag.sl == (sel == 3);
    return selected && inventoriedB(tag, session, now) == wantsB;
}

// Applies action and target of a Select, by whether the tag matches its mask.
void obeySelect(const SELECT_OP_s& select, std::int64_t now, tag_s* tag);
// Whether the mask matches: a mask that reaches beyond the bank's end does not.
bool matches(const SELECT_OP_s& select, const tag_s& tag);

// What a tag backscatters: PC, XPC words, EPC, and a CRC over all that. Words that are not sent
// are 0: XPC_W1 without the XI bit of the PC, XPC_W2 without the XEB bit of XPC_W1.
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
// The reply after a Select that asked for truncation: what follows the mask in
// the EPC. False when that is less than a word, and the tag answers whole.
bool truncate(const SELECT_OP_s& select, std::vector<std::uint8_t>* room, backscatter_s* reply);

// 0 for a tag without a password.
std::uint32_t killPassword(const tag_s& tag);
std::uint32_t accessPassword(const tag_s& tag);

// Memory as an access meets it; `secured` tells whether the access password was
// given, or is zero. Addresses and counts are words, 0 words of a read go to the bank's end.
// A request that fails changes nothing.
tag_error_e readMemory(const tag_s& tag, std::uint8_t bank, std::size_t pointer, std::size_t words,
                       bool secured, std::vector<std::uint8_t>* data);
tag_error_e writeMemory(std::uint8_t bank, std::size_t pointer, std::span<const std::uint16_t> words,
                        bool secured, tag_s* tag);
// Locks USER blocks for good, four words each: a mask bit for a block, the first
// bit of the first word for block 16 * `pointer`.
tag_error_e lockBlocks(std::uint8_t bank, std::size_t pointer, std::span<const std::uint16_t> mask,
                       bool secured, tag_s* tag);
// `payload`: ten mask bits above ten action bits, as the Lock command has them.
tag_error_e lockMemory(std::uint32_t payload, bool secured, tag_s* tag);

}  // namespace rxe
