// SPDX-License-Identifier: MIT
// A tag as EPC Gen2 v2.0.1 has it: flags and what they remember, answers to
// Select and Query, memory behind locks and passwords. Radio thread only;
// times are microseconds of the engine's clock.
#ifndef ENGINE_GEN2_HPP
#define ENGINE_GEN2_HPP

#include <cstdint>
#include <span>
#include <vector>

#include "rxe.h"
#include "world.hpp"

namespace rxe {

constexpr std::uint8_t TARGET_SL = 4;  // of a Select; 0 to 3 are the sessions

// What a tag's memory answers; the codes are those of annex I.
enum tag_error_e : std::uint8_t {
    TAG_OK = 0xFF,  // no error: not a code of the standard
    TAG_OTHER = 0x00,
    TAG_NOT_SUPPORTED = 0x01,
    TAG_NO_PRIVILEGE = 0x02,
    TAG_OVERRUN = 0x03,
    TAG_LOCKED = 0x04,
    TAG_WEAK_POWER = 0x0B,
};

// The tag has power from `now` on after a time without: flags whose time is
// over fall back.
void powerUp(std::int64_t now, tag_s* tag);

bool inventoriedB(const tag_s& tag, unsigned session, std::int64_t now);
// Sets or clears the flag of a session; S1 begins to run down.
void setInventoried(unsigned session, bool b, std::int64_t now, tag_s* tag);

// Whether a Query with this `sel`, session and flag (true: B) has the tag take part.
inline bool takesPart(const tag_s& tag, std::uint8_t sel, unsigned session, bool wantsB, std::int64_t now) {
    const bool selected = sel < 2 || tag.sl == (sel == 3);
    return selected && inventoriedB(tag, session, now) == wantsB;
}

void obeySelect(const SELECT_OP_s& select, std::int64_t now, tag_s* tag);
bool matches(const SELECT_OP_s& select, const tag_s& tag);

// What a tag backscatters: PC, XPC words, EPC, and a CRC over all that. Words that are not sent
// are 0: XPC_W1 without the XI bit of the PC, XPC_W2 without the XEB bit of XPC_W1.
struct backscatter_s {
    const std::uint8_t* epc = nullptr;
    std::uint16_t epcBits = 0;
    std::uint16_t pc = 0;
    std::uint16_t xpc1 = 0;
    std::uint16_t xpc2 = 0;
    std::uint16_t crc = 0;
    unsigned replyBits = 0;
};
backscatter_s backscatterOf(const tag_s& tag);
// The reply after a Select that asked for truncation: what follows the mask in
// the EPC. False when that is less than a word, and the tag answers whole.
bool truncate(const SELECT_OP_s& select, std::vector<std::uint8_t>* room, backscatter_s* reply);

std::uint32_t killPassword(const tag_s& tag);
std::uint32_t accessPassword(const tag_s& tag);

// Memory as an access meets it; `secured` tells whether the password was
// given. Addresses and counts are words, 0 words of a read go to the bank's end.
tag_error_e readMemory(const tag_s& tag, std::uint8_t bank, std::size_t pointer, std::size_t words,
                       bool secured, std::vector<std::uint8_t>* data);
tag_error_e writeMemory(std::uint8_t bank, std::size_t pointer, std::span<const std::uint16_t> words,
                        bool secured, tag_s* tag);
// Locks USER blocks for good, four words each: a mask bit for a block, the first
// bit of the first word for block 16 * `pointer`.
tag_error_e lockBlocks(std::uint8_t bank, std::size_t pointer, std::span<const std::uint16_t> mask,
                       bool secured, tag_s* tag);
// `payload`: ten mask bits above ten action bits.
tag_error_e lockMemory(std::uint32_t payload, bool secured, tag_s* tag);

}  // namespace rxe

#endif
