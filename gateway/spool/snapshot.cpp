// SPDX-License-Identifier: MIT
// The writer and presence. The table is in memory; on disk are now and then a snapshot of it, and all entries
// that came behind the snapshot. Together they make the table as it was at the last commit, so that after
// a kill each presence event was told once. Between two snapshots nothing of the table is written.
#include <spdlog/spdlog.h>

#include <algorithm>
#include <chrono>

#include "writer.hpp"

namespace {

// Entries between two snapshots: so many that writing snapshots costs less than writing entries.
constexpr std::uint64_t leastBetween = 20'000;
constexpr std::uint64_t entriesPerTag = 2;

std::int64_t steadyMicroseconds() {
    return std::chrono::duration_cast<std::chrono::microseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

}  // namespace

// At a start, and when a configuration turns presence on or off.
void spool_c::writer_c::openPresence() {
    presence.reset();
    state.snapshot.reset();
    state.presence.reset();
    snapshotWanted = limits.presence.has_value();
    if (!limits.presence) {
        store.forgetSnapshot();
        return;
    }
    presence = std::make_unique<presence_c>(*limits.presence,
                                            [this](std::int64_t boot) { return boots.find(boot).reader; });
    const std::optional<store_c::snapshot_s> snapshot = store.isOpen() ? store.loadSnapshot() : std::nullopt;
    const std::int64_t now = steadyMicroseconds();
    if (snapshot && !presence->load(snapshot->body, now)) {
        spdlog::error("{}: the snapshot of presence cannot be read; all tags arrive anew", file);
    }
    for (const boot_row_s& boot : boots.all()) {
        presence->meet(boot.id);
    }
    if (snapshot) {
        replayPresence(*snapshot);
    }
    presence->resume(*limits.presence, now);
    state.presence = presence->account();
}

void spool_c::writer_c::replayPresence(const store_c::snapshot_s& snapshot) {
    if (state.firstSeq > snapshot.seq + 1) {
        spdlog::warn(
            "{}: {} entries that presence needs have gone while the disk was full; some of its events "
            "may come twice",
            file, state.firstSeq - snapshot.seq - 1);
    }
    const sink_account_s reports{.name = {},
                                 .streams = streamBit(stream_e::tags) | streamBit(stream_e::presence)};
    const std::int64_t now = steadyMicroseconds();
    store.forEach(reports, snapshot.seq, state.lastSeq,
                  [&](const entry_s& entry) { presence->replay(entry, now); });
}

// Of entries that came, and of the time since; in the order in which they will be in the spool.
void spool_c::writer_c::derivePresence(work_s* fresh) {
    if (presence) {
        fresh->bytes += presence->derive(&fresh->entries, steadyMicroseconds());
        if (watch) {
            watch(fresh->entries);
        }
    }
}

bool spool_c::writer_c::isSnapshotDue(const state_s& next) const {
    const std::uint64_t between =
        std::min(std::max(leastBetween, entriesPerTag * presence->account().present), limits.maxEvents / 2);
    return snapshotWanted || !next.snapshot ||
           static_cast<std::uint64_t>(next.lastSeq - *next.snapshot) >= between;
}

// Within a transaction that brings in everything in `hand`.
void spool_c::writer_c::saveSnapshot(state_s* next) {
    next->snapshot = next->lastSeq;
    store.saveSnapshot(next->lastSeq, presence->save());
}
