// SPDX-License-Identifier: MIT
#include "timing.hpp"

#include <algorithm>
#include <cmath>

namespace rxe {
namespace {

constexpr double delimiter = 12.5;  // microseconds

// Delimiter, data-0, RTcal: in front of each command.
double frameSync(const link_s& link) {
    return delimiter + link.tari + link.rtcal;
}

// The bits of a command: a zero lasts Tari, a one RTcal - Tari.
double symbols(const link_s& link, const command_s& command) {
    return (command.bits - command.ones) * link.tari + command.ones * (link.rtcal - link.tari);
}

// Bits of the preamble (EPC Gen2 v2.0.1, figures 6.11 and 6.15).
unsigned preambleBits(const link_s& link, bool pilot) {
    const unsigned plain = link.miller == 1 ? 6 : 10;
    return pilot ? plain + 12 : plain;
}

// The 1 is the dummy bit that ends every reply.
double reply(const link_s& link, unsigned bits, bool pilot) {
    return (preambleBits(link, pilot) + bits + 1) * link.miller * period(link);
}

}  // namespace

link_s makeLink(double tari, double pie, double divideRatio, double kilohertz, unsigned miller, bool pilot) {
    return {.tari = tari,
            .rtcal = tari * (1 + pie),
            .trcal = divideRatio / kilohertz * 1000,
            .divideRatio = divideRatio,
            .miller = miller,
            .pilot = pilot};
}

double period(const link_s& link) {
    return link.trcal / link.divideRatio;
}
double t1(const link_s& link) {
    return std::max(link.rtcal, 10 * period(link));
}
double t2(const link_s& link) {
    return link.t2Periods * period(link);
}
double t4(const link_s& link) {
    return 2 * link.rtcal;
}

command_s selectCommand(unsigned maskBits) {
    return {45.0 + maskBits, 18 + maskBits / 2.0};
}
command_s blockWriteCommand(unsigned words) {
    return {58.0 + 16 * words, 25 + 8.0 * words};
}
command_s blockEraseCommand() {
    return {58, 25};
}

command_s withPointer(command_s command, std::size_t pointer) {
    const int more = pointer < 128 ? 0 : pointer < 16384 ? 1 : 2;
    return {command.bits + 8 * more, command.ones + 4.5 * more};
}

double commandTime(const link_s& link, const command_s& command) {
    return frameSync(link) + symbols(link, command);
}
double queryTime(const link_s& link) {
    return frameSync(link) + link.trcal + symbols(link, queryCommand);
}
double replyTime(const link_s& link, unsigned bits) {
    return reply(link, bits, link.pilot);
}
double delayedReplyTime(const link_s& link, unsigned bits) {
    return reply(link, bits, true);
}

double emptySlot(const link_s& link) {
    return t1(link) + link.t3;
}
double collidedSlot(const link_s& link) {
    return t1(link) + replyTime(link, rn16Bits) + t2(link);
}
double singleSlot(const link_s& link, unsigned replyBits) {
    return collidedSlot(link) + commandTime(link, ackCommand) + t1(link) + replyTime(link, replyBits) +
           t2(link);
}

double frameSuccess(double ber, unsigned bits) {
    return std::pow(1 - ber, bits);
}

}  // namespace rxe
