// SPDX-License-Identifier: MIT
// Durations on the air, in microseconds: pure functions of a link's settings (EPC Gen2 v2.0.1,
// 6.3.1.2 to 6.3.1.6). Names are those of the standard. Any thread.
//
//   reader   | delimiter 12.5 | Tari | RTcal | TRcal, Query only | bits: Tari or RTcal - Tari |
//   tag      | preamble: 6 or 10 bits, 12 more with TRext | bits | 1 |    each M / BLF
#pragma once

#include <cstddef>
#include <cstdint>

namespace rxe {

// The settings of a link. Reader: a zero lasts Tari, a one RTcal - Tari. Tag: a bit lasts
// `miller` periods of its link frequency (BLF), which is divideRatio / TRcal. Times are
// microseconds.
struct link_s {
    // 6.25 to 25
    double tari = 0;
    // 2.5 to 3 Tari
    double rtcal = 0;
    // 1.1 to 3 RTcal
    double trcal = 0;
    // 8 or 64/3
    double divideRatio = 0;
    // 1 is FM0, else Miller 2, 4 or 8.
    unsigned miller = 1;
    // TRext: tags begin with the long preamble.
    bool pilot = false;
    // T2 in periods of the link frequency. The standard allows 3 to 20.
    double t2Periods = 11.5;
    // What a reader waits beyond T1 for a tag that stays silent.
    double t3 = 1;
};

// A link by the numbers of a data sheet: Tari in microseconds, the length of a one in Tari
// (`pie`, 1.5 to 2), DR, the link frequency in kHz (40 to 640), Miller M, TRext.
link_s makeLink(double tari, double pie, double divideRatio, double kilohertz, unsigned miller, bool pilot);

// One period of the link frequency (Tpri).
double period(const link_s& link);
// From the reader's last edge to the tag's first: max(RTcal, 10 Tpri).
double t1(const link_s& link);
// From the tag's last edge to the reader's next.
double t2(const link_s& link);
// The least time between two commands without an answer between them: 2 RTcal.
double t4(const link_s& link);

// A command's length in bits and how many of them are ones; of bits that differ from time to
// time (RN16, handle, CRC, address) half count as ones. Ones last longer than zeros, so both
// numbers are needed for the duration. Lengths are those of EPC Gen2 v2.0.1, 6.3.2.12.
struct command_s {
    double bits;
    double ones;
};

constexpr command_s ackCommand{18, 9};
constexpr command_s queryCommand{22, 11};
constexpr command_s queryAdjustCommand{9, 4.5};
// Without a message.
constexpr command_s challengeCommand{48, 22};
constexpr command_s nakCommand{8, 2};
constexpr command_s reqRnCommand{40, 19};
// Read and Write with an address of one byte; see withPointer.
constexpr command_s readCommand{58, 21};
constexpr command_s writeCommand{59, 29};
constexpr command_s killCommand{59, 28};
constexpr command_s lockCommand{60, 28};
constexpr command_s accessCommand{56, 27};

// QueryRep: two zeros and the two bits of the session, 0 to 3.
constexpr command_s queryRep(unsigned session) {
    return {4, static_cast<double>((session & 1) + (session >> 1 & 1))};
}
// A Select with a mask of 0 to 255 bits.
command_s selectCommand(unsigned maskBits);
// A BlockWrite of 1 to 255 words, and a BlockPermalock with as many words of mask.
command_s blockWriteCommand(unsigned words);
command_s blockEraseCommand();
// The command with an address that takes one byte more from 128 on and two from 16384 on
// (extensible bit vectors, EPC Gen2 v2.0.1, annex A).
command_s withPointer(command_s command, std::size_t pointer);

// Lengths of replies in bits, without preamble and end bit.
constexpr unsigned rn16Bits = 16;
// Handle and CRC: the reply to Req_RN, to Access and to the first half of a Kill.
constexpr unsigned handleBits = 32;
// Header, handle, CRC: the reply to Write, Lock and Kill.
constexpr unsigned doneBits = 33;
// Header, code, handle, CRC.
constexpr unsigned errorBits = 41;
// Header, words, handle, CRC: the reply to Read.
constexpr unsigned readBits(unsigned words) {
    return 33 + 16 * words;
}
// PC, EPC, CRC.
constexpr unsigned epc96Bits = 128;

// A command with its frame-sync.
double commandTime(const link_s& link, const command_s& command);
// The Query, which has the longer preamble with TRcal.
double queryTime(const link_s& link);
// A reply of `bits` bits with the preamble that the link asks for by TRext.
double replyTime(const link_s& link, unsigned bits);
// The same for the delayed reply to Write, Kill, Lock, BlockWrite and BlockErase, which has the
// long preamble whatever TRext says. The time that the tag needs before it is not included.
double delayedReplyTime(const link_s& link, unsigned bits);

// Durations of slots, without the command that opens them: the Query opens the first slot of a
// frame, QueryRep the others.
// No tag answers.
double emptySlot(const link_s& link);
// An RN16 comes, and is not acknowledged.
double collidedSlot(const link_s& link);
// RN16, ACK and a reply of so many bits.
double singleSlot(const link_s& link, unsigned replyBits);
// The share of frames of `bits` bits that arrive whole, 0 to 1, at the bit error rate `ber`.
double frameSuccess(double ber, unsigned bits);

}  // namespace rxe
