// SPDX-License-Identifier: MIT
#include "writer.hpp"

#include <fcntl.h>
#include <spdlog/spdlog.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "trim.hpp"
#include "wakeup.hpp"

namespace {

using namespace std::chrono_literals;
using steady_t = std::chrono::steady_clock;

constexpr auto commitEvery = 50ms;
constexpr std::size_t commitAt = 500;       // entries
constexpr auto retryEvery = 500ms;          // while nothing can be written
constexpr off_t reserveSize = 1 << 20;      // bytes
constexpr std::int64_t worthATrim = 1'000;  // entries that all sinks have, when a sender waits

}  // namespace

bool spool_c::writer_c::open(const spool_config_s& config, std::string* error) {
    limits = config;
    const std::string& directory = config.directory;
    file = directory + "/spool.db";
    reserve = directory + "/spool.reserve";
    std::error_code failure;
    std::filesystem::create_directory(directory, failure);
    lock.fd = ::open((directory + "/spool.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0640);
    if (lock.fd < 0) {
        *error = directory + ": " + std::strerror(errno);
        return false;
    }
    if (flock(lock.fd, LOCK_EX | LOCK_NB) != 0) {
        *error = directory + ": another twgate uses this spool";
        return false;
    }
    try {
        try {
            openStore();
        } catch (const database_error_s& broken) {
            if (!broken.isBroken()) {
                throw;
            }
            moveAside(broken.what());
            openStore();
        }
    } catch (const std::exception& problem) {
        *error = file + ": " + problem.what();
        return false;
    }
    holdReserve();
    publish(false);
    return true;
}

void spool_c::writer_c::openStore() {
    store.open(file, limits.syncFull, &state, &boots);
    openPresence();
}

// Room on a full disk for the cursors, without which nothing would be delivered or removed any more.
void spool_c::writer_c::holdReserve() const {
    const descriptor_s opened{::open(reserve.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0640)};
    if (opened.fd < 0 || posix_fallocate(opened.fd, 0, reserveSize) != 0) {
        freeReserve();
    }
}

void spool_c::writer_c::freeReserve() const {
    ::unlink(reserve.c_str());
}

// Also the log of the database goes aside, which belongs to it.
void spool_c::writer_c::moveAside(const std::string& why) {
    store.close();
    const std::string aside = ".broken-" + utcText(nowMicroseconds());
    for (const char* part : {"", "-wal", "-shm"}) {
        std::error_code absent;
        std::filesystem::rename(file + part, file + aside + part, absent);
    }
    spdlog::error("{}: {}; it is now {}{}, and a new one begins", file, why, file, aside);
}

// In the middle of a run the accounts are in memory and go on. What the file held is lost.
void spool_c::writer_c::beginAnew() {
    state_s fresh;
    store.open(file, limits.syncFull, &fresh, &boots);
    ++generation;
    state_s next = state;
    const std::vector<boot_row_s> known = boots.all();
    try {
        store.begin();
        for (const boot_row_s& boot : known) {
            store.saveBoot(boot);
        }
        dropAll(&store, &next, known.empty() ? 0 : known.back().id);
        store.saveSources(next.sources);
        store.saveTotal(next.lastSeq, next.bytes);
        store.saveSinks(next.sinks);
        store.commit();
    } catch (const std::exception&) {
        store.close();
        throw;
    }
    state = std::move(next);
    snapshotWanted = presence != nullptr;
}

void spool_c::writer_c::run() {
    for (bool last = false; !last;) {
        {
            std::unique_lock guard(mutex);
            const auto isWanted = [this] {
                return ending || flushWanted || queue.isAwaited || newSinks || newLimits || suspect ||
                       queue.entries.size() >= commitAt;
            };
            const auto hasWork = [&] {
                return isWanted() || !queue.entries.empty() || !queue.progress.empty();
            };
            wanted.wait_for(guard, retryEvery, hasWork);
            wanted.wait_for(guard, commitEvery, isWanted);
            last = ending;
        }
        snapshotWanted = snapshotWanted || (last && presence);
        work();
        ++pulse;
    }
    if (!hand.entries.empty()) {
        spdlog::error("{}: {} entries could not be written and are lost", file, hand.entries.size());
    }
}

void spool_c::writer_c::work() {
    std::optional<std::vector<sink_config_s>> sinks;
    std::optional<spool_config_s> config;
    work_s fresh;
    bool isFlush = false;
    {
        const std::lock_guard guard(mutex);
        sinks = std::exchange(newSinks, std::nullopt);
        config = std::exchange(newLimits, std::nullopt);
        isFlush = flushWanted;
        fresh = std::exchange(queue, {});
    }
    try {
        if (suspect.exchange(false)) {
            moveAside("a reader found it broken");
            beginAnew();
        }
        if (config) {
            takeLimits(*config);
        }
        if (sinks) {
            takeSinks(*sinks);
        }
    } catch (const std::exception& problem) {
        spdlog::error("{}: {}", file, problem.what());
    }
    derivePresence(&fresh);
    hand.append(&fresh);
    const auto now = steady_t::now();
    if (full && now - lastTry < retryEvery && !sinks && !isFlush) {
        if (hand.isAwaited && store.isOpen()) {
            commitCursors();
            publish(false);
        }
        return;
    }
    lastTry = now;
    const bool idle = !sinks && !isFlush && !full && !snapshotWanted && hand.entries.empty() &&
                      hand.progress.empty() && !hand.sources;
    if (idle && store.isOpen() && !isTrimDue()) {
        return;
    }
    const bool hasEntries = !hand.entries.empty();
    const bool written = tryCommit();
    publish(written && (hasEntries || state.dropped));
    if (isFlush) {
        const std::lock_guard guard(mutex);
        flushWanted = false;
    }
    if (sinks || isFlush) {
        done.notify_all();
    }
}

void spool_c::writer_c::takeLimits(const spool_config_s& config) {
    const std::optional<presence_rules_s> before = limits.presence;
    limits = config;
    if (store.isOpen()) {
        store.setSync(limits.syncFull);
    }
    if (before && limits.presence) {
        snapshotWanted = snapshotWanted || *before != *limits.presence;
        presence->setRules(*limits.presence);
    } else if (before || limits.presence) {
        openPresence();
    }
}

// False when nothing could be written, and the work stays as it is. On a full disk the cursors alone
// are tried too: what the sinks have taken makes room.
bool spool_c::writer_c::tryCommit() {
    std::string why;
    try {
        if (!store.isOpen()) {
            beginAnew();
        }
        // While it was full until now, a snapshot may be what does not fit.
        commit(hand, !full);
        hand = {};
        snapshotWanted = full && presence;
        if (std::exchange(full, false)) {
            holdReserve();
            spdlog::warn("{}: can be written again", file);
        }
        return true;
    } catch (const database_error_s& problem) {
        why = problem.what();
        if (problem.isBroken() && beginAnewAfter(problem, &why)) {
            return false;
        }
    } catch (const std::exception& problem) {
        why = problem.what();
    }
    if (store.isOpen()) {
        store.rollBack();
        freeReserve();
        if (!hand.entries.empty()) {
            commitCursors();
        }
    }
    const std::lock_guard guard(mutex);
    if (!std::exchange(full, true)) {
        spdlog::error("{}: {}; entries wait in memory", file, why);
    }
    committed.trouble = why;
    return false;
}

// False with the reason when the new file cannot be had either.
bool spool_c::writer_c::beginAnewAfter(const database_error_s& problem, std::string* why) {
    try {
        moveAside(problem.what());
        beginAnew();
        return true;
    } catch (const std::exception& again) {
        *why = again.what();
        return false;
    }
}

// What fails stays for the next time.
void spool_c::writer_c::commitCursors() {
    if (hand.progress.empty()) {
        return;
    }
    try {
        work_s cursors;
        cursors.progress = hand.progress;
        // What the snapshot needs makes room, too: the next one cannot be written before there is some.
        state.snapshot.reset();
        commit(cursors, false);
        hand.progress.clear();
        store.emptyLog();
    } catch (const std::exception&) {
        store.rollBack();
    }
}

// `withPresence`: with everything in `hand`, so that the table is as it is behind this transaction; with a
// snapshot of it when one is due.
void spool_c::writer_c::commit(const work_s& work, bool withPresence) {
    state_s next = state;
    next.dropped = false;
    store.begin();
    for (const boot_row_s& boot : work.boots) {
        store.saveBoot(boot);
    }
    insertEntries(work, &next);
    settle(work, &next);
    saveAndTrim(work, presence && withPresence, &next);
    if (work.sources) {
        store.saveSources(next.sources);
    }
    if (next.lastSeq != state.lastSeq || next.bytes != state.bytes) {
        store.saveTotal(next.lastSeq, next.bytes);
    }
    store.saveSinks(next.sinks);
    store.commit();
    state = std::move(next);
}

// What is over the limits goes only when a snapshot does not need it any more.
void spool_c::writer_c::saveAndTrim(const work_s& work, bool withPresence, state_s* next) {
    const std::int64_t worth = work.isAwaited ? worthATrim : 1;
    if (withPresence) {
        next->presence = presence->account();
        if (isSnapshotDue(*next)) {
            saveSnapshot(next);
        }
    }
    trim(&store, boots, limits, next, worth);
    if (withPresence && next->snapshot != next->lastSeq && isOver(&store, limits, *next)) {
        saveSnapshot(next);
        trim(&store, boots, limits, next, worth);
    }
}

void spool_c::writer_c::insertEntries(const work_s& work, state_s* next) {
    for (const new_entry_s& entry : work.entries) {
        store.insert(++next->lastSeq, entry.stream, entry.boot, entry.number, entry.takenAt, entry.body);
        next->bytes += entry.body.size();
        for (sink_account_s& sink : next->sinks) {
            sink.taken += (sink.streams & streamBit(entry.stream)) != 0 ? 1 : 0;
        }
    }
    if (work.sources) {
        next->sources = *work.sources;
    }
}

void spool_c::writer_c::settle(const work_s& work, state_s* next) {
    for (sink_account_s& sink : next->sinks) {
        const auto entry = work.progress.find(sink.id);
        if (entry == work.progress.end()) {
            continue;
        }
        const progress_s& progress = entry->second;
        sink.delivered += progress.delivered;
        sink.retried += progress.retried;
        if (progress.jumps == sink.jumps && progress.cursor > sink.cursor) {
            const std::uint64_t count = store.countOf(sink, sink.cursor, progress.cursor);
            const std::uint64_t aside = std::min(progress.setAside, count);
            sink.setAside += aside;
            sink.confirmed += count - aside;
            sink.cursor = progress.cursor;
        }
    }
}

// While nothing comes, entries grow too old, and what was not trimmed at once is still there.
bool spool_c::writer_c::isTrimDue() {
    try {
        return ::isTrimDue(&store, limits, state);
    } catch (const database_error_s&) {
        return true;  // the transaction will tell
    }
}

// The streams of the sink have changed: what it takes now decides what is pending.
void spool_c::writer_c::recount(sink_account_s* sink) {
    try {
        const std::uint64_t pending = store.isOpen() ? store.countOf(*sink, sink->cursor, state.lastSeq) : 0;
        sink->taken = sink->confirmed + sink->setAside + sink->dropped + pending;
    } catch (const database_error_s& problem) {
        spdlog::error("{}: {}", file, problem.what());
    }
}

void spool_c::writer_c::takeSinks(const std::vector<sink_config_s>& wantedSinks) {
    std::vector<sink_account_s> sinks;
    std::int64_t highest = 0;
    for (const sink_account_s& sink : state.sinks) {
        highest = std::max(highest, sink.id);
    }
    for (const sink_config_s& config : wantedSinks) {
        const auto known = std::ranges::find(state.sinks, config.name, &sink_account_s::name);
        if (known == state.sinks.end()) {
            sinks.push_back(
                {.name = config.name, .id = ++highest, .streams = config.streams, .cursor = state.lastSeq});
            continue;
        }
        sink_account_s sink = *known;
        if (sink.streams != config.streams) {
            sink.streams = config.streams;
            recount(&sink);
        }
        sinks.push_back(sink);
    }
    for (const sink_account_s& sink : state.sinks) {
        if (std::ranges::find(sinks, sink.id, &sink_account_s::id) == sinks.end()) {
            spdlog::warn("sink {} is no longer configured; {} entries that waited for it are given up",
                         sink.name, sink.pending());
        }
    }
    state.sinks = std::move(sinks);
}

void spool_c::writer_c::publish(bool wake) {
    const std::lock_guard guard(mutex);
    held = queue.bytes + hand.bytes;
    for (const sink_account_s& before : std::exchange(committed.sinks, state.sinks)) {
        const auto after = std::ranges::find(state.sinks, before.id, &sink_account_s::id);
        const auto wakeup = wakeups.find(before.id);
        if (!wake && wakeup != wakeups.end() && after != state.sinks.end() &&
            after->cursor != before.cursor) {
            wakeup->second->wake();
        }
    }
    committed.sources = state.sources;
    committed.entries = state.entries();
    committed.bytes = state.bytes;
    committed.presence = state.presence;
    if (!full) {
        committed.trouble.clear();
    }
    for (const auto& [sink, wakeup] : wakeups) {
        if (wake) {
            wakeup->wake();
        }
    }
}
