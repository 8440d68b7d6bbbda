// SPDX-License-Identifier: MIT
// The writing side of the account of tag packets (radio.hpp): from the packet that opens an entry
// to the fate that closes it. Engine thread, unless a comment says otherwise.
//
//   openTagPacket ---> closeTagPacket, closeSentPacket      each packet is counted once, with its fate
//
// The main thread copies the counts between two packets: they change only while `packetsDone` is one
// behind `packetRxCount`.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>

#include "fates.hpp"
#include "radio/tag_trace.hpp"
#include "radio_state.hpp"
#include "zmq_intfc.hpp"

namespace radio {

using vocabulary::fate_e;

// The counts of one antenna or beam. Written by the engine thread, but for the last.
struct alignas(64) antenna_counts_s {
    // Reports sent, by form (data_analytics_e).
    std::array<std::atomic<std::uint64_t>, 3> sent{};
    // By fate_e, in which the place of `sent` stays empty.
    std::array<std::atomic<std::uint64_t>, vocabulary::fateCount> ended{};
    // Reports that count as sent because they were left behind, and could not be sent then; by form,
    // and by whether tag_data refused them. Written in a turn at tag_data.
    std::array<std::array<std::atomic<std::uint64_t>, 2>, 3> notSentLater{};
};

// `packetRxCount` as it was for the last packet that has been handled.
extern std::atomic<std::uint64_t> packetsDone;
// By antenna or beam, which may be any 16-bit number: the system gives memory only to pages of
// antennas that were counted.
extern std::array<antenna_counts_s, 65536> tagCounts;
// Those of the antenna that transmits.
extern antenna_counts_s* presentCounts;
// Those of the antenna of the last tag packet; null once that packet has its fate.
extern std::atomic<antenna_counts_s*> openCounts;
// Whether additional keys have held back the pending report.
extern bool wasHeldBack;
// Reports that left while nobody was there to hear them.
extern std::atomic<std::uint64_t> unheardCount;

// From now on this antenna transmits.
void useAntenna(std::uint16_t antenna);

// A tag packet has come.
inline void openTagPacket() {
    openCounts.store(presentCounts, std::memory_order_release);
}

// The packet has its fate, which is not `sent`. Nothing happens when it has one already, or when the
// report is not of a tag packet.
inline void closeTagPacket(fate_e fate) {
    if (antenna_counts_s* counts = openCounts.load(std::memory_order_relaxed); counts != nullptr) {
        countOne(&counts->ended[static_cast<std::size_t>(fate)]);
        openCounts.store(nullptr, std::memory_order_release);
        if (isTraced) {
            endTrace(fate, 0);
        }
    }
}

// The same for a report that was given to tag_data in this form (data_analytics_e).
inline void closeSentPacket(send_result_e result, int form) {
    if (result != send_result_e::sent) {
        closeTagPacket(result == send_result_e::refused ? fate_e::refused : fate_e::noSocket);
    } else if (antenna_counts_s* counts = openCounts.load(std::memory_order_relaxed); counts != nullptr) {
        countOne(&counts->sent[static_cast<std::size_t>(form)]);
        if (!sockets::tag_data.isHeard.load(std::memory_order_relaxed)) {
            countOne(&unheardCount);
        }
        openCounts.store(nullptr, std::memory_order_release);
        if (isTraced) {
            endTrace(fate_e::sent, form);
        }
    }
}

// Of the frames of reports.
extern const frame_owner_s reportOwner;

}  // namespace radio
