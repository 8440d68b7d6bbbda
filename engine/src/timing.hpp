// SPDX-License-Identifier: MIT
// Durations on the air, in microseconds: pure functions of a link's settings
// (EPC Gen2 v2.0.1, 6.3.1.2 to 6.3.1.6).
#ifndef ENGINE_TIMING_HPP
#define ENGINE_TIMING_HPP

#include <cstddef>
#include <cstdint>

namespace rxe {

// How reader and tag talk. The reader's symbols: a zero lasts Tari, a one
// RTcal - Tari. The tag's: a bit lasts `miller` periods of its link frequency.
struct link_s {
    double tari = 0;
    double rtcal = 0;
    double trcal = 0;
    double divideRatio = 0;   // 8 or 64/3
    unsigned miller = 1;      // 1 is FM0, else Miller 2, 4 or 8
    bool pilot = false;       // TRext: tags begin with the long preamble
    double t2Periods = 11.5;  // T2 in periods of the link frequency, 3 to 20
    double t3 = 1;            // what a reader waits beyond T1 for a tag that stays silent
};

// From the numbers of a data sheet: data-1 lasts `pie` Tari, the link frequency is in kHz.
link_s makeLink(double tari, double pie, double divideRatio, double kilohertz, unsigned miller, bool pilot);

double period(const link_s& link);  // of the link frequency
double t1(const link_s& link);      // from the reader's last edge to the tag's first
double t2(const link_s& link);      // from the tag's last edge to the reader's next
double t4(const link_s& link);      // least time between two commands without an answer

// A command's length in bits and how many of them are ones, with half of
// whatever is random (RN16, handle, CRC, address).
struct command_s {
    double bits;
    double ones;
};

constexpr command_s ACK{18, 9};
constexpr command_s QUERY{22, 11};
constexpr command_s QUERY_ADJUST{9, 4.5};
constexpr command_s CHALLENGE{48, 22};  // without a message
constexpr command_s NAK{8, 2};
constexpr command_s REQ_RN{40, 19};
constexpr command_s READ{58, 21};
constexpr command_s WRITE{59, 29};
constexpr command_s KILL{59, 28};
constexpr command_s LOCK{60, 28};
constexpr command_s ACCESS{56, 27};

// Its two bits of the session decide how long it takes.
constexpr command_s queryRep(unsigned session) {
    return {4, static_cast<double>((session & 1) + (session >> 1 & 1))};
}
// A Select and a block write of so many bits and words.
command_s selectCommand(unsigned maskBits);
command_s blockWriteCommand(unsigned words);
command_s blockEraseCommand();
// The command with an address that takes one byte more from 128 on and two from 16384 on
// (extensible bit vectors, EPC Gen2 v2.0.1, annex A).
command_s withPointer(command_s command, std::size_t pointer);

// Replies in bits.
constexpr unsigned RN16_BITS = 16;
constexpr unsigned HANDLE_BITS = 32;
constexpr unsigned DONE_BITS = 33;   // Write, Lock, Kill
constexpr unsigned ERROR_BITS = 41;  // header, code, handle, CRC
constexpr unsigned readBits(unsigned words) {
    return 33 + 16 * words;
}
constexpr unsigned EPC96_BITS = 128;  // PC, EPC, CRC

double commandTime(const link_s& link, const command_s& command);
double queryTime(const link_s& link);  // with the longer preamble
double replyTime(const link_s& link, unsigned bits);
// Replies to writes and the like come with the long preamble, whatever the link's setting.
double delayedReplyTime(const link_s& link, unsigned bits);

// Slots without the command that opens them, so that the first slot of a
// frame, which the Query opens, and the others are told alike.
double emptySlot(const link_s& link);
double collidedSlot(const link_s& link);
double singleSlot(const link_s& link, unsigned replyBits);
// The part of frames that arrive whole.
double frameSuccess(double ber, unsigned bits);

}  // namespace rxe

#endif
