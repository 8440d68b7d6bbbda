// SPDX-License-Identifier: MIT
#include "radio/tag_account.hpp"

#include <sys/time.h>

#include <algorithm>
#include <bitset>
#include <chrono>
#include <cstddef>
#include <numeric>
#include <thread>

#include "radio.hpp"

namespace radio {

std::atomic<std::uint64_t> packetsDone{0};
std::array<antenna_counts_s, 65536> tagCounts{};
antenna_counts_s* presentCounts = tagCounts.data();
std::atomic<antenna_counts_s*> openCounts{nullptr};
bool wasHeldBack = false;
std::atomic<std::uint64_t> unheardCount{0};

namespace {

constexpr auto relaxed = std::memory_order_relaxed;
constexpr auto acquire = std::memory_order_acquire;

// The antennas that have transmitted, in the order of their first time, and their number; first the one
// before any. Written by the engine thread, read by the main thread.
std::array<std::atomic<std::uint16_t>, 65536> antennas{};
std::atomic<std::uint32_t> antennaCount{1};
// By antenna: whether it is among them. Engine thread.
std::bitset<65536> isKnown{1};

// When the process began, and so all counts.
const timeval since = [] {
    timeval now{};
    gettimeofday(&now, nullptr);
    return now;
}();

// The antenna and the form of a report that is left behind.
constexpr unsigned formShift = 16;
std::uint32_t originOfReport() {
    const auto form = static_cast<std::uint32_t>(data_analytics_type.load(relaxed));
    return static_cast<std::uint32_t>(openCounts.load(relaxed) - tagCounts.data()) | form << formShift;
}

void noteNotSent(std::uint32_t origin, send_result_e result) {
    const std::size_t refused = result == send_result_e::refused ? 1 : 0;
    countOne(&tagCounts[origin & 0xFFFF].notSentLater[origin >> formShift][refused]);
}

// Adds the counts of an antenna to the account, which main takes between two packets.
void addCounts(std::uint16_t antenna, account_s* account) {
    const antenna_counts_s& counts = tagCounts[antenna];
    antenna_account_s row{.antenna = antenna, .tagPackets = 0, .fates = {}};
    const auto fate = [&row](fate_e which) -> std::uint64_t& {
        return row.fates[static_cast<std::size_t>(which)];
    };
    for (std::size_t i = 0; i < row.fates.size(); ++i) {
        row.fates[i] = counts.ended[i].load(acquire);
    }
    for (std::size_t form = 0; form < counts.sent.size(); ++form) {
        const std::uint64_t noSocket = counts.notSentLater[form][0].load(acquire);
        const std::uint64_t refused = counts.notSentLater[form][1].load(acquire);
        const std::uint64_t sent = counts.sent[form].load(acquire) - noSocket - refused;
        fate(fate_e::sent) += sent;
        fate(fate_e::noSocket) += noSocket;
        fate(fate_e::refused) += refused;
        account->forms[form] += sent;
    }
    row.tagPackets = std::accumulate(row.fates.begin(), row.fates.end(), std::uint64_t{0});
    if (&counts == openCounts.load(acquire)) {
        ++row.tagPackets;
        account->pending = true;
    }
    if (row.tagPackets != 0) {
        account->byAntenna.push_back(row);
    }
}

account_s copyAccount() {
    account_s account;
    account.since = since;
    account.tagPackets = tagReadCount.load(acquire);
    account.nextEventNum = eventNum.load(acquire);
    account.unheard = unheardCount.load(acquire);
    const std::uint32_t count = antennaCount.load(acquire);
    for (std::uint32_t i = 0; i < count; ++i) {
        addCounts(antennas[i].load(acquire), &account);
    }
    return account;
}

}  // namespace

const frame_owner_s reportOwner{originOfReport, noteNotSent};

void useAntenna(std::uint16_t antenna) {
    presentCounts = &tagCounts[antenna];
    if (!isKnown[antenna]) {
        isKnown.set(antenna);
        const std::uint32_t count = antennaCount.load(relaxed);
        antennas[count].store(antenna, relaxed);
        antennaCount.store(count + 1, std::memory_order_release);
    }
}

}  // namespace radio

bool takeAccount(account_s* account) {
    using namespace radio;
    constexpr std::chrono::seconds patience{1};
    const auto deadline = std::chrono::steady_clock::now() + patience;
    do {
        const std::uint64_t before = packetsDone.load(acquire);
        if (packetRxCount.load(relaxed) == before) {
            *account = copyAccount();
            if (packetRxCount.load(relaxed) == before) {
                std::ranges::sort(account->byAntenna, {}, &antenna_account_s::antenna);
                return true;
            }
        }
        std::this_thread::yield();
    } while (std::chrono::steady_clock::now() < deadline);
    return false;
}
