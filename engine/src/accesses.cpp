// SPDX-License-Identifier: MIT
// Access commands on one tag, from its handle to the last operation: how long
// they take, what the tag answers, and what gets lost on the way.
#include <algorithm>
#include <array>
#include <span>

#include "delivery.hpp"
#include "run_state.hpp"

namespace rxe {
namespace {

constexpr float WRITE_MARGIN = 4;    // dB above the sensitivity that a write takes
constexpr double WRITE_TIME = 2000;  // microseconds that a tag needs for a word or a lock; 20 ms at most
constexpr std::uint8_t ERROR_HEADER = 0x01;

struct session_s {
    run_s* run;
    std::size_t position;
    lit_tag_s lit;
    bool secured = false;
    bool there = true;            // the tag is in the dialogue: it has power and was given no wrong password
    std::uint64_t succeeded = 0;  // bit id-1: this access has, on this tag
};

// What one radio operation brought.
struct result_s {
    std::uint8_t result = RXE_ACCESS_RESULT_OK;
    std::span<const std::uint8_t> data;
};

const link_s& linkOf(const session_s& session) {
    return session.run->plan.olios[session.position].link;
}
tag_s* tagOf(const session_s& session) {
    return &session.run->engine->radio.world.tags[session.lit.index];
}

// A command and its reply pass; false when the tag is not there to answer.
bool exchange(session_s* session, const command_s& command, double reply) {
    run_s* const run = session->run;
    const link_s& link = linkOf(*session);
    pass(run, commandTime(link, command) + t1(link) + reply + t2(link));
    const radio_s& radio = run->engine->radio;
    session->there =
        stillLit(radio.world, run->olios[session->position].field.carrier, radio.now, &session->lit);
    return session->there;
}

bool replyIsBroken(session_s* session, unsigned bits) {
    run_s* const run = session->run;
    const double margin = session->lit.path.atReader - run->olios[session->position].sensitivity;
    const bool safe = !run->engine->radio.world.air.errors || margin > static_cast<double>(SAFE_MARGIN);
    return !safe &&
           unitInterval(nextRandom(&run->engine->radio.random)) > frameSuccess(bitErrorRate(margin), bits);
}

std::uint8_t openHandle(session_s* session) {
    if (!exchange(session, REQ_RN, replyTime(linkOf(*session), HANDLE_BITS))) {
        return RXE_ACCESS_RESULT_NO_RESPONSE;
    }
    session->secured = accessPassword(*tagOf(*session)) == 0;
    return replyIsBroken(session, HANDLE_BITS) ? std::uint8_t{RXE_ACCESS_RESULT_CRC_ERROR}
                                               : std::uint8_t{RXE_ACCESS_RESULT_OK};
}

result_s tagError(session_s* session, tag_error_e error) {
    std::vector<std::uint8_t>& room = session->run->scratch;
    room.assign({ERROR_HEADER, error});
    return {RXE_ACCESS_RESULT_TAG_ERROR, room};
}

// A write, lock or erase: a fresh RN16 to cover it, the command, the delayed
// reply. `change` alters the tag and says how it took it.
template <typename Change>
result_s alter(session_s* session, const command_s& command, bool covered, Change change) {
    const link_s& link = linkOf(*session);
    if (covered && !exchange(session, REQ_RN, replyTime(link, HANDLE_BITS))) {
        return {RXE_ACCESS_RESULT_NO_RESPONSE, {}};
    }
    if (!exchange(session, command, WRITE_TIME + delayedReplyTime(link, DONE_BITS))) {
        return {RXE_ACCESS_RESULT_NO_RESPONSE, {}};
    }
    const tag_error_e error = session->lit.margin < WRITE_MARGIN ? TAG_WEAK_POWER : change(tagOf(*session));
    if (replyIsBroken(session, error == TAG_OK ? DONE_BITS : ERROR_BITS)) {
        return {RXE_ACCESS_RESULT_CRC_ERROR, {}};
    }
    return error == TAG_OK ? result_s{} : tagError(session, error);
}

result_s read(session_s* session, const ACCESS_OP_s& access) {
    const std::size_t words = access.wordCount & 0xFFU;
    const link_s& link = linkOf(*session);
    // The length of the reply is the tag's, when it goes to the end of the bank.
    std::vector<std::uint8_t>& data = session->run->scratch;
    const tag_error_e error =
        readMemory(*tagOf(*session), access.membank, access.wordPointer, words, session->secured, &data);
    const unsigned bits = error == TAG_OK ? readBits(static_cast<unsigned>(data.size() / 2)) : ERROR_BITS;
    if (!exchange(session, withPointer(READ, access.wordPointer), replyTime(link, bits))) {
        return {RXE_ACCESS_RESULT_NO_RESPONSE, {}};
    }
    if (replyIsBroken(session, bits)) {
        return {RXE_ACCESS_RESULT_CRC_ERROR, {}};
    }
    return error == TAG_OK ? result_s{RXE_ACCESS_RESULT_OK, data} : tagError(session, error);
}

// Both halves of a password, each under a fresh RN16. A wrong one gets no
// answer, and the tag falls silent.
bool presentPassword(session_s* session, const command_s& command, double lastReply, bool right) {
    const link_s& link = linkOf(*session);
    for (const double reply : {replyTime(link, HANDLE_BITS), lastReply}) {
        if (!exchange(session, REQ_RN, replyTime(link, HANDLE_BITS)) || !exchange(session, command, reply)) {
            return false;
        }
    }
    session->there = right;
    return right;
}

result_s access(session_s* session, const ACCESS_OP_s& operation) {
    const bool right = operation.payload == accessPassword(*tagOf(*session));
    if (!presentPassword(session, ACCESS, replyTime(linkOf(*session), HANDLE_BITS), right)) {
        return {RXE_ACCESS_RESULT_NO_RESPONSE, {}};
    }
    session->secured = true;
    return {replyIsBroken(session, HANDLE_BITS) ? std::uint8_t{RXE_ACCESS_RESULT_CRC_ERROR}
                                                : std::uint8_t{RXE_ACCESS_RESULT_OK},
            {}};
}

result_s kill(session_s* session, const ACCESS_OP_s& operation) {
    const std::uint32_t password = killPassword(*tagOf(*session));
    const double reply = WRITE_TIME + delayedReplyTime(linkOf(*session), DONE_BITS);
    if (!presentPassword(session, KILL, reply, password == 0 || operation.payload == password)) {
        return {RXE_ACCESS_RESULT_NO_RESPONSE, {}};
    }
    if (password == 0) {  // such a tag cannot be killed
        return tagError(session, TAG_NO_PRIVILEGE);
    }
    if (session->lit.margin < WRITE_MARGIN) {
        return tagError(session, TAG_WEAK_POWER);
    }
    tagOf(*session)->killed = true;
    session->there = false;
    ++session->run->engine->radio.world.changes;
    return {};
}

result_s lock(session_s* session, const ACCESS_OP_s& operation) {
    return alter(session, LOCK, false,
                 [&](tag_s* tag) { return lockMemory(operation.payload, session->secured, tag); });
}

// One word of a write, the first of `words`.
result_s writeWord(session_s* session, const ACCESS_OP_s& operation, std::span<const std::uint16_t> words,
                   std::size_t pointer) {
    return alter(session, withPointer(WRITE, pointer), true, [&](tag_s* tag) {
        return writeMemory(operation.membank, pointer, words.first(1), session->secured, tag);
    });
}

result_s writeBlock(session_s* session, const ACCESS_OP_s& operation, std::span<const std::uint16_t> words,
                    std::size_t pointer) {
    const command_s command = withPointer(blockWriteCommand(static_cast<unsigned>(words.size())), pointer);
    return alter(session, command, false, [&](tag_s* tag) {
        return writeMemory(operation.membank, pointer, words, session->secured, tag);
    });
}

result_s eraseBlock(session_s* session, const ACCESS_OP_s& operation) {
    const std::vector<std::uint16_t> zeros(operation.wordCount);
    return alter(session, withPointer(blockEraseCommand(), operation.wordPointer), false, [&](tag_s* tag) {
        return writeMemory(operation.membank, operation.wordPointer, zeros, session->secured, tag);
    });
}

result_s writeSingle(session_s* session, const ACCESS_OP_s& operation) {
    const std::array<std::uint16_t, 1> word{operation.wordCount};
    return writeWord(session, operation, word, operation.wordPointer);
}

result_s permalockBlocks(session_s* session, const ACCESS_OP_s& operation) {
    std::array<std::uint16_t, std::size(ACCESS_OP_s{}.data)> mask;
    std::copy_n(operation.data, mask.size(), mask.begin());
    const auto words = std::span(mask).first(operation.wordCount);
    const command_s command = withPointer(blockWriteCommand(operation.wordCount), operation.wordPointer);
    return alter(session, command, false, [&](tag_s* tag) {
        return lockBlocks(operation.membank, operation.wordPointer, words, session->secured, tag);
    });
}

bool report(session_s* session, std::uint8_t id, const result_s& result) {
    engine_s* const engine = session->run->engine;
    deliver(engine, TYPE_ACCESS_INFO, encodeAccess(id, result.result, result.data, payloadRoom(engine)));
    return result.result == RXE_ACCESS_RESULT_OK;
}

bool one(session_s* session, const planned_access_s& planned,
         result_s (*operate)(session_s*, const ACCESS_OP_s&)) {
    return report(session, planned.id, operate(session, planned.access));
}

// Several operations under one access id, each with a report of its own.
bool several(session_s* session, const planned_access_s& planned, std::size_t step,
             result_s (*operate)(session_s*, const ACCESS_OP_s&, std::span<const std::uint16_t>,
                                 std::size_t)) {
    const std::size_t count = std::min<std::size_t>(planned.access.wordCount, std::size(planned.access.data));
    std::array<std::uint16_t, std::size(ACCESS_OP_s{}.data)> words;
    std::copy_n(planned.access.data, count, words.begin());
    for (std::size_t at = 0; at < count; at += step) {
        const auto part = std::span(words).subspan(at, std::min(step, count - at));
        if (!report(session, planned.id,
                    operate(session, planned.access, part, planned.access.wordPointer + at))) {
            return false;
        }
    }
    return true;
}

struct kind_s {
    std::uint8_t type;
    result_s (*operate)(session_s*, const ACCESS_OP_s&);
};
// The types that are one radio operation; no other one than these and the two
// of several can be configured.
constexpr std::array kinds{
    kind_s{RXE_ACCESS_READ, read},
    kind_s{RXE_ACCESS_WRITE, writeSingle},
    kind_s{RXE_ACCESS_KILL, kill},
    kind_s{RXE_ACCESS_LOCK, lock},
    kind_s{RXE_ACCESS_ACCESS, access},
    kind_s{RXE_ACCESS_BLOCK_ERASE, eraseBlock},
    kind_s{RXE_ACCESS_BLOCK_PERMALOCK, permalockBlocks},
};

bool perform(session_s* session, const planned_access_s& planned) {
    switch (planned.access.type) {
        case RXE_ACCESS_MULTIWORD_WRITE:
            return several(session, planned, 1, writeWord);
        case RXE_ACCESS_BLOCK_WRITE:
            return several(session, planned, session->run->plan.blockSize, writeBlock);
        default:
            break;
    }
    return one(session, planned, std::ranges::find(kinds, planned.access.type, &kind_s::type)->operate);
}

// An access with a criteria index runs on tags on which the access of that id
// has succeeded just before; one with a stop count, that many times in a run.
bool meetsCriteria(session_s* session, const planned_access_s& planned) {
    const std::uint8_t criteria = planned.access.criteriaIdx;
    if (criteria == 0) {
        return true;
    }
    const bool met = ((session->succeeded >> (criteria - 1)) & 1) != 0;
    byte_writer_s writer = payloadWriter(session->run->engine);
    put(&writer, planned.id, 1);
    put(&writer, criteria, 1);
    put(&writer, met ? 1 : 0, 1);
    deliver(session->run->engine, TYPE_ACCESS_CRITERIA_INFO, writer.size);
    return met;
}

bool isDue(session_s* session, const planned_access_s& planned) {
    const std::uint64_t mask = session->run->plan.olios[session->position].olio.accessBitMask;
    const std::uint16_t most = planned.access.stopCount;
    return ((mask >> (planned.id - 1)) & 1) != 0 &&
           (most == 0 || session->run->accessDone[planned.id] < most) && meetsCriteria(session, planned);
}

// The access has worked once more; at its stop count it is over for this run.
void noteDone(session_s* session, const planned_access_s& planned) {
    engine_s* const engine = session->run->engine;
    session->succeeded |= std::uint64_t{1} << (planned.id - 1);
    if (++session->run->accessDone[planned.id] == planned.access.stopCount) {
        byte_writer_s writer = payloadWriter(engine);
        put(&writer, planned.id, 1);
        deliver(engine, TYPE_ACCESS_DSBL_ALARM, writer.size);
    }
}

}  // namespace

bool doAccesses(run_s* run, std::size_t position, lit_tag_s lit) {
    session_s session{run, position, lit};
    bool open = false;
    for (const planned_access_s& planned : run->plan.accesses) {
        if (!isDue(&session, planned)) {
            continue;
        }
        if (!open) {
            const std::uint8_t handle = openHandle(&session);
            if (handle != RXE_ACCESS_RESULT_OK) {
                report(&session, planned.id, {handle, {}});
                break;
            }
            open = true;
        }
        if (!perform(&session, planned)) {
            break;
        }
        noteDone(&session, planned);
        if (tagOf(session)->killed) {
            break;
        }
    }
    return session.there;
}

}  // namespace rxe
