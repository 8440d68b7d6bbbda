// SPDX-License-Identifier: MIT
#include "accesses.hpp"

#include <algorithm>
#include <array>
#include <span>

#include "carrier.hpp"
#include "clock.hpp"
#include "delivery.hpp"
#include "gen2.hpp"

namespace rxe {
namespace {

constexpr float writeMargin = 4;    // dB above the sensitivity that a write takes
constexpr double writeTime = 2000;  // microseconds that a tag needs for a word or a lock; 20 ms at most
constexpr std::uint8_t errorHeader = 0x01;
// Results of this engine beside those of rxe.h; a host takes them for general errors. TooLong: a
// read brought more words than ACCESS_INFO_s has room for, and the record has the first 2,048.
// NoTime: no channel may be used for as long as the operation takes.
constexpr std::uint8_t resultTooLong = 4, resultNoTime = 5;

// The dialogue with one tag, from its acknowledgement on.
struct session_s {
    run_s* run;
    std::size_t position;
    lit_tag_s lit;
    // The tag has given its handle.
    bool open = false;
    // The tag was given its access password, or has a zero one.
    bool secured = false;
    // The access that gave the password, for findAgain; null before there was one.
    const ACCESS_OP_s* password = nullptr;
    // The tag has power and was not given a wrong password.
    bool there = true;
    std::uint64_t succeeded = 0;  // bit id-1: this access has, on this tag
};

// The result of one radio operation. `data` points into run_s::scratch.
struct result_s {
    std::uint8_t result = RXE_ACCESS_RESULT_OK;
    std::span<const std::uint8_t> data;
};

const link_s& linkOf(const session_s& session) {
    return session.run->plan.olios[session.position].link;
}
tag_s* tagOf(const session_s& session) {
    return &session.run->radio->world.tags[session.lit.index];
}

// Microseconds of a command, T1, a reply that lasts `reply` microseconds, and T2.
double exchangeTime(const link_s& link, const command_s& command, double reply) {
    return commandTime(link, command) + t1(link) + reply + t2(link);
}

// Lets the time of a command and its reply pass; false when the tag is not there to answer.
bool exchange(session_s* session, const command_s& command, double reply) {
    run_s* const run = session->run;
    pass(run->radio, run->host, exchangeTime(linkOf(*session), command, reply));
    const radio_s& radio = *run->radio;
    session->there =
        stillLit(radio.world, run->olios[session->position].field.carrier, radio.now, &session->lit);
    return session->there;
}

// Whether the tag's reply of `bits` bits gets lost, by chance at a weak signal.
bool replyIsBroken(session_s* session, unsigned bits) {
    run_s* const run = session->run;
    const double margin = session->lit.path.atReader - run->olios[session->position].sensitivity;
    const bool safe = !run->radio->world.air.errors || margin > static_cast<double>(safeMargin);
    return !safe && unitInterval(nextRandom(&run->radio->random)) > frameSuccess(bitErrorRate(margin), bits);
}

// Microseconds of whole operations. `covered`: the word is sent XORed with a fresh RN16, which a
// Req_RN asks for. A password goes in two halves, each after a Req_RN.
double handleTime(const link_s& link) {
    return exchangeTime(link, reqRnCommand, replyTime(link, handleBits));
}
double readTime(const link_s& link, std::size_t pointer, unsigned bits) {
    return exchangeTime(link, withPointer(readCommand, pointer), replyTime(link, bits));
}
double alterTime(const link_s& link, const command_s& command, bool covered) {
    return (covered ? handleTime(link) : 0) +
           exchangeTime(link, command, writeTime + delayedReplyTime(link, doneBits));
}
double passwordTime(const link_s& link, const command_s& command, double lastReply) {
    return 2 * handleTime(link) + exchangeTime(link, command, replyTime(link, handleBits)) +
           exchangeTime(link, command, lastReply);
}
double accessCommandTime(const link_s& link) {
    return passwordTime(link, accessCommand, replyTime(link, handleBits));
}
double killTime(const link_s& link) {
    return passwordTime(link, killCommand, writeTime + delayedReplyTime(link, doneBits));
}

// Asks for the handle, which each operation needs. Returns a result of ACCESS_INFO.
std::uint8_t openHandle(session_s* session) {
    if (!exchange(session, reqRnCommand, replyTime(linkOf(*session), handleBits))) {
        return RXE_ACCESS_RESULT_NO_RESPONSE;
    }
    session->open = true;
    session->secured = accessPassword(*tagOf(*session)) == 0;
    return replyIsBroken(session, handleBits) ? std::uint8_t{RXE_ACCESS_RESULT_CRC_ERROR}
                                              : std::uint8_t{RXE_ACCESS_RESULT_OK};
}

// Both halves of a password, each under a fresh RN16. A wrong one gets no
// answer, and the tag falls silent.
bool presentPassword(session_s* session, const command_s& command, double lastReply, bool right) {
    const link_s& link = linkOf(*session);
    for (const double reply : {replyTime(link, handleBits), lastReply}) {
        if (!exchange(session, reqRnCommand, replyTime(link, handleBits)) ||
            !exchange(session, command, reply)) {
            return false;
        }
    }
    session->there = right;
    return right;
}

// The Access command. After it the tag is secured until it loses power.
std::uint8_t presentAccessPassword(session_s* session, const ACCESS_OP_s& operation) {
    const bool right = operation.payload == accessPassword(*tagOf(*session));
    if (!presentPassword(session, accessCommand, replyTime(linkOf(*session), handleBits), right)) {
        return RXE_ACCESS_RESULT_NO_RESPONSE;
    }
    session->secured = true;
    session->password = &operation;
    return replyIsBroken(session, handleBits) ? std::uint8_t{RXE_ACCESS_RESULT_CRC_ERROR}
                                              : std::uint8_t{RXE_ACCESS_RESULT_OK};
}

// The Select for SL that only this tag matches. Of an EPC longer than one mask it has the
// first 31 bytes, so tags that differ only behind them match as well.
SELECT_OP_s selectOf(const tag_s& tag) {
    constexpr std::size_t longest = 31;  // bytes, of a length in 8 bits
    SELECT_OP_s select{};
    select.enable = 1;
    select.target = targetSL;  // action 0: asserted where it matches, deasserted elsewhere
    select.membank = BANK_EPC;
    select.pointer = epcOffset * 8;
    const std::size_t bytes = std::min(epcBytes(tag), longest);
    select.length = static_cast<std::uint8_t>(8 * bytes);
    std::copy_n(tag.banks[BANK_EPC].begin() + epcOffset, bytes, select.mask);
    return select;
}

// Microseconds that findAgain takes.
double timeToFindAgain(const session_s& session) {
    const link_s& link = linkOf(session);
    const tag_s& tag = *tagOf(session);
    return selectTime(link, selectOf(tag)) + queryTime(link) +
           singleSlot(link, backscatterOf(tag).replyBits) + handleTime(link) +
           (session.password == nullptr ? 0 : accessCommandTime(link));
}

// Opens the tag again on a new channel: Select, a Query with one slot, handle, password. Returns
// a result of ACCESS_INFO.
std::uint8_t findAgain(session_s* session) {
    run_s* const run = session->run;
    radio_s& radio = *run->radio;
    const link_s& link = linkOf(*session);
    const field_s& field = run->olios[session->position].field;
    const SELECT_OP_s select = selectOf(*tagOf(*session));
    pass(run->radio, run->host, selectTime(link, select));
    session->there = litAnew(radio.world, field.carrier, radio.now, &session->lit);
    if (!session->there) {
        return RXE_ACCESS_RESULT_NO_RESPONSE;
    }
    for (const lit_tag_s& lit : field.lit) {
        obeySelect(select, radio.now, &radio.world.tags[lit.index]);
    }
    setInventoried(0, false, radio.now, tagOf(*session));
    pass(run->radio, run->host,
         queryTime(link) + singleSlot(link, backscatterOf(*tagOf(*session)).replyBits));
    tagOf(*session)->poweredUntil = radio.now;
    const std::uint8_t handle = openHandle(session);
    return handle != RXE_ACCESS_RESULT_OK || session->password == nullptr
               ? handle
               : presentAccessPassword(session, *session->password);
}

// Prepares for an operation of `microseconds`: asks for the handle if there is none yet, and hops
// first when the channel's time is too short. Returns a result of ACCESS_INFO.
std::uint8_t makeReady(session_s* session, double microseconds) {
    run_s* const run = session->run;
    const double opening = session->open ? 0 : handleTime(linkOf(*session));
    if (fits(*run, opening + microseconds)) {
        return session->open ? std::uint8_t{RXE_ACCESS_RESULT_OK} : openHandle(session);
    }
    const double again = timeToFindAgain(*session) + microseconds;
    if (!everFits(*run, again)) {
        return resultNoTime;
    }
    // The round has to ask its other tags anew afterwards.
    run->hopped = true;
    session->there = hop(run, session->position, again);
    return session->there ? findAgain(session) : resultNoTime;
}

// Whether the tag has too little power for a write.
bool isWeak(const session_s& session) {
    return session.lit.margin + session.lit.fade < writeMargin;
}

// An error reply of the tag, as the host is told of it: header and code.
result_s tagError(session_s* session, tag_error_e error) {
    std::vector<std::uint8_t>& room = session->run->scratch;
    room.assign({errorHeader, error});
    return {RXE_ACCESS_RESULT_TAG_ERROR, room};
}

// A write, lock or erase: Req_RN if `covered`, the command, the delayed reply. `change` alters
// the tag's memory and returns its answer.
template <typename Change>
result_s alter(session_s* session, const command_s& command, bool covered, Change change) {
    const link_s& link = linkOf(*session);
    if (const std::uint8_t ready = makeReady(session, alterTime(link, command, covered));
        ready != RXE_ACCESS_RESULT_OK) {
        return {ready, {}};
    }
    if (covered && !exchange(session, reqRnCommand, replyTime(link, handleBits))) {
        return {RXE_ACCESS_RESULT_NO_RESPONSE, {}};
    }
    if (!exchange(session, command, writeTime + delayedReplyTime(link, doneBits))) {
        return {RXE_ACCESS_RESULT_NO_RESPONSE, {}};
    }
    // The tag has changed also when its reply gets lost, as on real air; the host cannot know.
    const tag_error_e error = isWeak(*session) ? TAG_WEAK_POWER : change(tagOf(*session));
    if (replyIsBroken(session, error == TAG_OK ? doneBits : errorBits)) {
        return {RXE_ACCESS_RESULT_CRC_ERROR, {}};
    }
    return error == TAG_OK ? result_s{} : tagError(session, error);
}

// A count of 0 reads to the end of the bank. The command has 8 bits for the count (EPC Gen2
// v2.0.1, 6.3.2.12.3.2).
result_s read(session_s* session, const ACCESS_OP_s& access) {
    const std::size_t words = access.wordCount & 0xFFU;
    const link_s& link = linkOf(*session);
    std::vector<std::uint8_t>& data = session->run->scratch;
    tag_error_e error = TAG_OK;
    // The length of the reply is the tag's, when it goes to the end of the bank.
    const auto replyBits = [&] {
        error =
            readMemory(*tagOf(*session), access.membank, access.wordPointer, words, session->secured, &data);
        return error == TAG_OK ? readBits(static_cast<unsigned>(data.size() / 2)) : errorBits;
    };
    if (const std::uint8_t ready = makeReady(session, readTime(link, access.wordPointer, replyBits()));
        ready != RXE_ACCESS_RESULT_OK) {
        return {ready, {}};
    }
    const unsigned bits = replyBits();  // the handle tells whether the tag is secured
    if (!exchange(session, withPointer(readCommand, access.wordPointer), replyTime(link, bits))) {
        return {RXE_ACCESS_RESULT_NO_RESPONSE, {}};
    }
    if (replyIsBroken(session, bits)) {
        return {RXE_ACCESS_RESULT_CRC_ERROR, {}};
    }
    if (error != TAG_OK) {
        return tagError(session, error);
    }
    constexpr std::size_t room = sizeof(ACCESS_INFO_s::data);
    return data.size() <= room ? result_s{RXE_ACCESS_RESULT_OK, data}
                               : result_s{resultTooLong, std::span(data).first(room)};
}

result_s access(session_s* session, const ACCESS_OP_s& operation) {
    const std::uint8_t ready = makeReady(session, accessCommandTime(linkOf(*session)));
    return {ready == RXE_ACCESS_RESULT_OK ? presentAccessPassword(session, operation) : ready, {}};
}

// Quirk of the standard: a tag with a zero kill password cannot be killed, and says so only
// after both halves have been given.
result_s kill(session_s* session, const ACCESS_OP_s& operation) {
    const std::uint32_t password = killPassword(*tagOf(*session));
    const double reply = writeTime + delayedReplyTime(linkOf(*session), doneBits);
    if (const std::uint8_t ready = makeReady(session, killTime(linkOf(*session)));
        ready != RXE_ACCESS_RESULT_OK) {
        return {ready, {}};
    }
    if (!presentPassword(session, killCommand, reply, password == 0 || operation.payload == password)) {
        return {RXE_ACCESS_RESULT_NO_RESPONSE, {}};
    }
    if (password == 0) {  // such a tag cannot be killed
        return tagError(session, TAG_NO_PRIVILEGE);
    }
    if (isWeak(*session)) {
        return tagError(session, TAG_WEAK_POWER);
    }
    tagOf(*session)->killed = true;
    session->there = false;
    ++session->run->radio->world.changes;
    return {};
}

result_s lock(session_s* session, const ACCESS_OP_s& operation) {
    return alter(session, lockCommand, false,
                 [&](tag_s* tag) { return lockMemory(operation.payload, session->secured, tag); });
}

// One word of a write, the first of `words`.
result_s writeWord(session_s* session, const ACCESS_OP_s& operation, std::span<const std::uint16_t> words,
                   std::size_t pointer) {
    return alter(session, withPointer(writeCommand, pointer), true, [&](tag_s* tag) {
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

// One ACCESS_INFO. Returns whether the operation was a success.
bool report(session_s* session, std::uint8_t id, const result_s& result) {
    const run_s& run = *session->run;
    deliver(run.host, run.radio->now, RXE_PACKET_ACCESS_INFO,
            encodeAccess(id, result.result, result.data, payloadRoom(run.host)));
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
// Access types of a single radio operation. Besides these, validAccess in params.cpp admits
// only the two multi-word writes that `perform` handles, so a row is always found.
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
    byte_writer_s writer = payloadWriter(session->run->host);
    put(&writer, planned.id, 1);
    put(&writer, criteria, 1);
    put(&writer, met ? 1 : 0, 1);
    deliver(session->run->host, session->run->radio->now, RXE_PACKET_ACCESS_CRITERIA_INFO, writer.size);
    return met;
}

// Whether the olio asks for the access: bit id-1 of its mask.
bool isAsked(const planned_olio_s& planned, const planned_access_s& access) {
    return ((planned.olio.accessBitMask >> (access.id - 1)) & 1) != 0;
}

// Asked by the olio, below its stop count, and its criteria met.
bool isDue(session_s* session, const planned_access_s& planned) {
    const std::uint16_t most = planned.access.stopCount;
    return isAsked(session->run->plan.olios[session->position], planned) &&
           (most == 0 || session->run->accessDone[planned.id] < most) && meetsCriteria(session, planned);
}

// The access has worked once more; at its stop count it is over for this run.
void noteDone(session_s* session, const planned_access_s& planned) {
    run_s* const run = session->run;
    session->succeeded |= std::uint64_t{1} << (planned.id - 1);
    if (++run->accessDone[planned.id] == planned.access.stopCount) {
        byte_writer_s writer = payloadWriter(run->host);
        put(&writer, planned.id, 1);
        deliver(run->host, run->radio->now, RXE_PACKET_ACCESS_DSBL_ALARM, writer.size);
    }
}

}  // namespace

double accessTime(const plan_s& plan, const planned_olio_s& planned) {
    const link_s& link = planned.link;
    double time = 0;
    for (const planned_access_s& each : plan.accesses) {
        if (!isAsked(planned, each)) {
            continue;
        }
        const ACCESS_OP_s& access = each.access;
        const std::size_t words = std::min<std::size_t>(access.wordCount, std::size(access.data));
        switch (access.type) {
            case RXE_ACCESS_READ:
                time += readTime(link, access.wordPointer, readBits(std::max(access.wordCount & 0xFFU, 1U)));
                break;
            case RXE_ACCESS_MULTIWORD_WRITE:
                time += static_cast<double>(words) *
                        alterTime(link, withPointer(writeCommand, access.wordPointer + words), true);
                break;
            case RXE_ACCESS_BLOCK_WRITE:
                time += static_cast<double>((words + plan.blockSize - 1) / plan.blockSize) *
                        alterTime(link,
                                  withPointer(blockWriteCommand(plan.blockSize), access.wordPointer + words),
                                  false);
                break;
            case RXE_ACCESS_KILL:
                time += killTime(link);
                break;
            case RXE_ACCESS_ACCESS:
                time += accessCommandTime(link);
                break;
            case RXE_ACCESS_BLOCK_PERMALOCK:
                time += alterTime(
                    link, withPointer(blockWriteCommand(static_cast<unsigned>(words)), access.wordPointer),
                    false);
                break;
            default:  // write, lock and block erase: one command, at most as long as a covered Write
                time += alterTime(link, withPointer(writeCommand, access.wordPointer), true);
        }
    }
    return time == 0 ? 0 : handleTime(link) + time;
}

bool doAccesses(run_s* run, std::size_t position, lit_tag_s lit) {
    session_s session{run, position, lit};
    // From here on a hop holds its CW_ON back.
    beginAccesses(run);
    for (const planned_access_s& planned : run->plan.accesses) {
        if (!isDue(&session, planned)) {
            continue;
        }
        if (!perform(&session, planned)) {
            break;
        }
        noteDone(&session, planned);
        if (tagOf(session)->killed) {
            break;
        }
    }
    endAccesses(run, position);
    return session.there;
}

}  // namespace rxe
