// SPDX-License-Identifier: MIT
#include "gen2.hpp"

#include <algorithm>
#include <array>

#include "crc.hpp"

namespace rxe {
namespace {

constexpr std::size_t xpcWord = 0x21;   // XPC_W1 at 210h
constexpr std::uint16_t pcXi = 0x0200;  // XPC_W1 is there and not zero
constexpr std::uint16_t xpc1Xeb = 0x8000;

// How long flags outlive their cause, microseconds (EPC Gen2 v2.0.1, table 6.20, allows
// S1 500 ms to 5 s and the others more than 2 s): tags sold have 1 to 3 s and tens of seconds.
constexpr std::int64_t s1Persistence = 2000000;       // powered or not
constexpr std::int64_t s2S3SlPersistence = 20000000;  // unpowered

// The word, high byte first; 0 behind the bank's end.
std::uint16_t wordAt(const std::vector<std::uint8_t>& bank, std::size_t word) {
    return 2 * word + 1 < bank.size() ? static_cast<std::uint16_t>(bank[2 * word] << 8 | bank[2 * word + 1])
                                      : std::uint16_t{0};
}

// A password of the RESERVED bank.
std::uint32_t twoWordsAt(const tag_s& tag, std::size_t word) {
    const auto& bank = tag.banks[BANK_RESERVED];
    return static_cast<std::uint32_t>(wordAt(bank, word)) << 16 | wordAt(bank, word + 1);
}

bool bitAt(const std::uint8_t* bytes, std::size_t bit) {
    return ((bytes[bit / 8] >> (7 - bit % 8)) & 1) != 0;
}

// Makes the stored CRC anew, as a tag does after a write to PC or EPC (EPC Gen2 v2.0.1,
// 6.3.2.1.2.1).
void refreshCrc(tag_s* tag) {
    auto& bank = tag->banks[BANK_EPC];
    if (bank.size() < epcOffset) {
        return;
    }
    const std::uint16_t crc = crc16(std::span(bank).subspan(2, 2 + epcBytes(*tag)));
    bank[0] = static_cast<std::uint8_t>(crc >> 8);
    bank[1] = static_cast<std::uint8_t>(crc);
}

// What a Select action does to the flag of tags that match and that do not
// (EPC Gen2 v2.0.1, table 6.29). For a session SET means A, for SL asserted.
enum effect_e : std::uint8_t { KEEP, SET, CLEAR, FLIP };
struct action_s {
    effect_e matching;
    effect_e other;
};
constexpr std::array<action_s, 8> actions{action_s{SET, CLEAR}, {SET, KEEP},   {KEEP, CLEAR}, {FLIP, KEEP},
                                          action_s{CLEAR, SET}, {CLEAR, KEEP}, {KEEP, SET},   {KEEP, FLIP}};

// The lock bit that guards a word, and whether it also guards reading.
struct guard_s {
    std::uint16_t lock;
    bool reads;
};
guard_s guardOf(std::uint8_t bank, std::size_t word) {
    switch (bank) {
        case BANK_RESERVED:
            return {word < 2 ? LOCK_KILL : LOCK_ACCESS, true};
        case BANK_EPC:
            return {LOCK_EPC, false};
        case BANK_TID:
            return {LOCK_TID, false};
        default:
            return {LOCK_USER, false};
    }
}

// Whether the lock forbids access: locked, without the password; permalocked, always.
bool isClosed(const tag_s& tag, const guard_s& guard, bool secured) {
    const bool locked = (tag.locks & guard.lock) != 0;
    const bool forGood = (tag.locks & (guard.lock >> 1)) != 0;
    return locked && (forGood || !secured);
}

constexpr std::size_t blockWords = 4, lockableBlocks = 32;
// Whether BlockPermalock has locked the word's block; no password unlocks it.
bool blockIsLocked(const tag_s& tag, std::size_t word) {
    const std::size_t block = word / blockWords;
    return block < lockableBlocks && ((tag.lockedBlocks >> block) & 1) != 0;
}

}  // namespace

void powerUp(std::int64_t now, tag_s* tag) {
    if (now <= tag->poweredUntil) {
        return;
    }
    tag->inventoried &= 0xE;  // S0 falls back as soon as the power fails
    if (now - tag->poweredUntil > s2S3SlPersistence) {
        tag->inventoried &= 0x3;
        tag->sl = false;
    }
}

bool inventoriedB(const tag_s& tag, unsigned session, std::int64_t now) {
    return ((tag.inventoried >> session) & 1) != 0 && (session != 1 || now < tag.s1Until);
}

void setInventoried(unsigned session, bool b, std::int64_t now, tag_s* tag) {
    const auto bit = static_cast<std::uint8_t>(1U << session);
    tag->inventoried = static_cast<std::uint8_t>(b ? tag->inventoried | bit : tag->inventoried & ~bit);
    if (session == 1 && b) {
        tag->s1Until = now + s1Persistence;
    }
}

std::int64_t fallsBackAt(const tag_s& tag, unsigned session, bool powered) {
    switch (session) {
        case 0:
            return powered ? forEver : tag.poweredUntil;
        case 1:
            return tag.s1Until;
        default:
            return powered ? forEver : tag.poweredUntil + s2S3SlPersistence;
    }
}

bool matches(const SELECT_OP_s& select, const tag_s& tag) {
    const auto& memory = tag.banks[select.membank & 3];
    const std::size_t pointer = select.pointer;
    if (select.membank == BANK_RESERVED || pointer + select.length > memory.size() * 8) {
        return false;
    }
    for (std::size_t bit = 0; bit < select.length; ++bit) {
        if (bitAt(select.mask, bit) != bitAt(memory.data(), pointer + bit)) {
            return false;
        }
    }
    return true;
}

std::vector<std::uint8_t> bitsOf(std::span<const std::uint8_t> memory, std::size_t pointer,
                                 std::size_t length) {
    const std::size_t size = memory.size() * 8;
    const std::size_t bits = std::min(length, size - std::min(size, pointer));
    std::vector<std::uint8_t> cut((bits + 7) / 8);
    for (std::size_t bit = 0; bit < bits; ++bit) {
        if (bitAt(memory.data(), pointer + bit)) {
            cut[bit / 8] = static_cast<std::uint8_t>(cut[bit / 8] | 0x80 >> (bit % 8));
        }
    }
    return cut;
}

void obeySelect(const SELECT_OP_s& select, std::int64_t now, tag_s* tag) {
    const action_s& action = actions[select.action & 7];
    const effect_e effect = matches(select, *tag) ? action.matching : action.other;
    if (effect == KEEP) {
        return;
    }
    if (select.target == targetSL) {
        tag->sl = effect == SET || (effect == FLIP && !tag->sl);
    } else {
        const bool b = effect == CLEAR || (effect == FLIP && !inventoriedB(*tag, select.target, now));
        setInventoried(select.target, b, now, tag);
    }
}

backscatter_s backscatterOf(const tag_s& tag) {
    const auto& bank = tag.banks[BANK_EPC];
    if (bank.size() < epcOffset) {
        return {};
    }
    const std::size_t bytes = epcBytes(tag);
    const std::uint16_t pc = wordAt(bank, 1);
    const unsigned xpcWords = (pc & pcXi) == 0 ? 0U : (tag.xpc1 & xpc1Xeb) == 0 ? 1U : 2U;
    const std::uint16_t xpc1 = xpcWords > 0 ? tag.xpc1 : std::uint16_t{0};
    const std::uint16_t xpc2 = xpcWords > 1 ? tag.xpc2 : std::uint16_t{0};
    const auto bits = static_cast<std::uint16_t>(8 * bytes);
    // The stored CRC covers PC and EPC. With XPC words between them the tag computes another one.
    std::uint16_t crc = wordAt(bank, 0);
    if (xpcWords != 0) {
        crc = crcAfter(crcAfter(crcPreset, pc, 16), xpc1, 16);
        crc = xpcWords == 2 ? crcAfter(crc, xpc2, 16) : crc;
        crc = crcResult(crcAfter(crc, std::span(bank).subspan(epcOffset, bytes)));
    }
    return {bank.data() + epcOffset, bits, pc, xpc1, xpc2, crc, 32U + bits + 16 * xpcWords};
}

bool truncate(const SELECT_OP_s& select, std::vector<std::uint8_t>* room, backscatter_s* reply) {
    // Bits of the bank: the reply goes from behind the mask to the EPC's end.
    const std::size_t begin = select.pointer + std::size_t{select.length};
    const std::size_t end = epcOffset * 8 + reply->epcBits;
    if (select.membank != BANK_EPC || begin < epcOffset * 8 || begin + 16 > end) {
        return false;
    }
    const std::size_t bits = end - begin;
    // Five zero bits in front, neither PC nor XPC, and a CRC over just that.
    std::uint16_t crc = crcAfter(crcPreset, 0, 5);
    room->assign((bits + 7) / 8, 0);
    for (std::size_t bit = 0; bit < bits; ++bit) {
        const bool isOne = bitAt(reply->epc, begin - epcOffset * 8 + bit);
        crc = crcAfter(crc, isOne ? 1 : 0, 1);
        if (isOne) {
            (*room)[bit / 8] = static_cast<std::uint8_t>((*room)[bit / 8] | 0x80 >> (bit % 8));
        }
    }
    *reply = {.epc = room->data(),
              .epcBits = static_cast<std::uint16_t>(bits),
              .crc = crcResult(crc),
              .replyBits = static_cast<unsigned>(5 + bits + 16)};
    return true;
}

std::uint32_t killPassword(const tag_s& tag) {
    return twoWordsAt(tag, 0);
}
std::uint32_t accessPassword(const tag_s& tag) {
    return twoWordsAt(tag, 2);
}

tag_error_e readMemory(const tag_s& tag, std::uint8_t bank, std::size_t pointer, std::size_t words,
                       bool secured, std::vector<std::uint8_t>* data) {
    const auto& memory = tag.banks[bank & 3];
    const std::size_t size = memory.size() / 2;
    data->clear();
    const bool xpc =
        bank == BANK_EPC && pointer >= xpcWord && pointer < xpcWord + 2 && (wordAt(memory, 1) & pcXi) != 0;
    if (xpc && pointer + words <= xpcWord + 2) {
        const std::size_t end = words == 0 ? xpcWord + 2 : pointer + words;
        for (std::size_t word = pointer; word < end; ++word) {
            const std::uint16_t value = word == xpcWord ? tag.xpc1 : tag.xpc2;
            data->push_back(static_cast<std::uint8_t>(value >> 8));
            data->push_back(static_cast<std::uint8_t>(value));
        }
        return TAG_OK;
    }
    if (pointer >= size || pointer + words > size) {
        return TAG_OVERRUN;
    }
    // A whole read of the EPC bank ends with the EPC, when it begins in front of that
    // end (EPC Gen2 v2.0.1, 6.3.2.12.3.2).
    const std::size_t epcEnd = (epcOffset + epcBytes(tag)) / 2;
    const std::size_t bankEnd = bank == BANK_EPC && pointer < epcEnd ? epcEnd : size;
    const std::size_t end = words == 0 ? bankEnd : pointer + words;
    for (std::size_t word = pointer; word < end; ++word) {
        const guard_s guard = guardOf(bank, word);
        if (guard.reads && isClosed(tag, guard, secured)) {
            return TAG_LOCKED;
        }
    }
    data->assign(memory.begin() + static_cast<std::ptrdiff_t>(2 * pointer),
                 memory.begin() + static_cast<std::ptrdiff_t>(2 * end));
    return TAG_OK;
}

tag_error_e writeMemory(std::uint8_t bank, std::size_t pointer, std::span<const std::uint16_t> words,
                        bool secured, tag_s* tag) {
    auto& memory = tag->banks[bank & 3];
    if (pointer + words.size() > memory.size() / 2) {
        return TAG_OVERRUN;
    }
    for (std::size_t i = 0; i < words.size(); ++i) {
        // The tag itself keeps the CRC in word 0.
        if (isClosed(*tag, guardOf(bank, pointer + i), secured) || (bank == BANK_EPC && pointer + i == 0) ||
            (bank == BANK_USER && blockIsLocked(*tag, pointer + i))) {
            return TAG_LOCKED;
        }
    }
    for (std::size_t i = 0; i < words.size(); ++i) {
        memory[2 * (pointer + i)] = static_cast<std::uint8_t>(words[i] >> 8);
        memory[2 * (pointer + i) + 1] = static_cast<std::uint8_t>(words[i]);
    }
    if (bank == BANK_EPC) {
        refreshCrc(tag);
    }
    return TAG_OK;
}

tag_error_e lockBlocks(std::uint8_t bank, std::size_t pointer, std::span<const std::uint16_t> mask,
                       bool secured, tag_s* tag) {
    if (bank != BANK_USER) {
        return TAG_NOT_SUPPORTED;
    }
    if (!secured) {
        return TAG_NO_PRIVILEGE;
    }
    const std::size_t words = tag->banks[BANK_USER].size() / 2;
    const std::size_t blocks = std::min(lockableBlocks, (words + blockWords - 1) / blockWords);
    std::uint32_t locked = tag->lockedBlocks;
    for (std::size_t i = 0; i < 16 * mask.size(); ++i) {
        const std::size_t block = 16 * pointer + i;
        if (((mask[i / 16] << (i % 16)) & 0x8000) == 0) {
            continue;
        }
        if (block >= blocks) {
            return TAG_OVERRUN;
        }
        locked |= std::uint32_t{1} << block;
    }
    tag->lockedBlocks = locked;
    return TAG_OK;
}

tag_error_e lockMemory(std::uint32_t payload, bool secured, tag_s* tag) {
    if (!secured) {
        return TAG_NO_PRIVILEGE;
    }
    const std::uint32_t mask = payload >> 10 & 0x3FF;
    const std::uint32_t after = (tag->locks & ~mask) | (payload & mask);
    for (const lock_e lock : {LOCK_KILL, LOCK_ACCESS, LOCK_EPC, LOCK_TID, LOCK_USER}) {
        const std::uint32_t pair = lock | lock >> 1;
        const bool forGood = (tag->locks & (lock >> 1)) != 0;
        if (forGood && ((after ^ tag->locks) & pair) != 0) {
            return TAG_LOCKED;
        }
    }
    tag->locks = static_cast<std::uint16_t>(after);
    return TAG_OK;
}

}  // namespace rxe
