// SPDX-License-Identifier: MIT
// The writer gathers what the intake and the senders want for up to 50 ms, or 500 entries, and puts it
// into one transaction. What a failed transaction holds stays in memory and goes into the next one.
#include "spool.hpp"

#include <fcntl.h>
#include <spdlog/spdlog.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <nlohmann/json.hpp>
#include <thread>

#include "database.hpp"
#include "twctl/sockets.hpp"
#include "wakeup.hpp"

namespace {

using namespace std::chrono_literals;
using steady_t = std::chrono::steady_clock;

constexpr auto commitEvery = 50ms;
constexpr std::size_t commitAt = 500;           // entries
constexpr auto retryEvery = 500ms;              // while nothing can be written
constexpr std::size_t mostHeld = 64UL << 20;    // bytes in memory that are not committed
constexpr std::size_t overhead = 128;           // bytes of an entry beside its body
constexpr std::int64_t trimmedAtOnce = 20'000;  // entries that all sinks have
constexpr std::int64_t worthATrim = 1'000;      // of them, when a sender waits for the commit
constexpr int layout = 1;                       // user_version of the database

constexpr const char* tables =
    "CREATE TABLE entry(seq INTEGER PRIMARY KEY, stream INTEGER, boot INTEGER, number INTEGER,"
    " taken_at INTEGER, body TEXT);"
    "CREATE TABLE boot(id INTEGER PRIMARY KEY, reader TEXT, name INTEGER);"
    "CREATE TABLE sink(id INTEGER PRIMARY KEY, name TEXT, streams INTEGER, cursor INTEGER, taken INTEGER,"
    " confirmed INTEGER, set_aside INTEGER, dropped INTEGER, delivered INTEGER, retried INTEGER);"
    "CREATE TABLE source(reader TEXT PRIMARY KEY, state TEXT);"
    "CREATE TABLE total(id INTEGER PRIMARY KEY, last_seq INTEGER, bytes INTEGER);"
    "INSERT INTO total VALUES(1, 0, 0);";

// Rows of a sink between two places: those of its streams, and of the overflows its own.
#define ROWS_OF_SINK "seq > ?1 AND seq <= ?2 AND ((1 << stream) & ?3 OR (stream = 2 AND number = ?4))"
static_assert(static_cast<int>(stream_e::overflow) == 2);

// What the writer uses all the time. Its end comes before that of the database.
struct statements_s {
    explicit statements_s(sqlite3* database)
        : insert(database, "INSERT INTO entry VALUES(?, ?, ?, ?, ?, ?)"),
          countOfSink(database, "SELECT count(*) FROM entry WHERE " ROWS_OF_SINK),
          oldest(database, "SELECT taken_at FROM entry ORDER BY seq LIMIT 1"),
          free(database, "PRAGMA freelist_count"),
          bytesUpTo(database, "SELECT total(length(body)) FROM entry WHERE seq <= ?"),
          removeUpTo(database, "DELETE FROM entry WHERE seq <= ?"),
          saveSource(database, "INSERT OR REPLACE INTO source VALUES(?, ?)"),
          forgetSinks(database, "DELETE FROM sink"),
          saveSink(database, "INSERT OR REPLACE INTO sink VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, ?)"),
          saveTotal(database, "UPDATE total SET last_seq = ?, bytes = ?"),
          saveBoot(database, "INSERT INTO boot VALUES(?, ?, ?)") {}

    statement_c insert, countOfSink, oldest, free, bytesUpTo, removeUpTo, saveSource, forgetSinks, saveSink,
        saveTotal, saveBoot;
};

struct boot_row_s {
    std::int64_t id = 0;
    std::string reader;
    std::int64_t name = 0;
};

// What one transaction is to bring in.
struct work_s {
    std::vector<new_entry_s> entries;
    std::vector<boot_row_s> boots;
    std::optional<std::vector<source_account_s>> sources;
    std::map<std::int64_t, spool_c::progress_s> progress;
    std::size_t bytes = 0;   // of memory that the entries take
    bool isAwaited = false;  // by a sender
};

// What the database holds.
struct state_s {
    std::vector<source_account_s> sources;
    std::vector<sink_account_s> sinks;
    std::int64_t firstSeq = 1;  // of the entries, between which there are no holes
    std::int64_t lastSeq = 0;
    std::uint64_t bytes = 0;  // of the bodies
    bool dropped = false;     // the last transaction has dropped entries that a sink had not taken

    std::uint64_t entries() const { return static_cast<std::uint64_t>(lastSeq - firstSeq + 1); }
};

// What came behind a jump of the cursor makes a cursor from before it void.
void add(spool_c::progress_s* sum, const spool_c::progress_s& more) {
    if (more.jumps != sum->jumps) {
        sum->jumps = more.jumps;
        sum->cursor = 0;
        sum->setAside = 0;
    }
    sum->cursor = std::max(sum->cursor, more.cursor);
    sum->setAside += more.setAside;
    sum->delivered += more.delivered;
    sum->retried += more.retried;
}

std::string identity(const boot_row_s& boot, const entry_s& entry) {
    entry_s named = entry;
    named.boot = boot.name;
    return boot.reader + "/" + idOf(named);
}

entry_s entryIn(const statement_c& row) {
    entry_s entry;
    entry.seq = row.integer(0);
    entry.stream = static_cast<stream_e>(row.integer(1));
    entry.boot = row.integer(2);
    if (!row.isNull(3) && entry.stream != stream_e::overflow) {
        entry.number = static_cast<std::uint64_t>(row.integer(3));
    }
    entry.takenAt = row.integer(4);
    entry.body = row.text(5);
    return entry;
}
#define ENTRY_COLUMNS "seq, stream, boot, number, taken_at, body"

// All sinks have what is up to there; 0 without a sink.
std::int64_t settledUpTo(const state_s& state) {
    const auto lowest = std::ranges::min_element(state.sinks, {}, &sink_account_s::cursor);
    return lowest == state.sinks.end() ? 0 : lowest->cursor;
}

// What one sink loses when entries are dropped.
struct loss_s {
    sink_account_s* sink = nullptr;
    std::uint64_t count = 0;      // those of an earlier overflow that goes with them included
    std::string first{}, last{};  // identities
    std::int64_t boot = 0;        // row of the last one's
    bool replaces = false;        // an earlier overflow that the sink has not taken
};

std::string overflowBody(const loss_s& loss) {
    const nlohmann::json body = {
        {"component", "twgate"},
        {"data",
         {{"count", loss.count}, {"first", loss.first}, {"last", loss.last}, {"sink", loss.sink->name}}},
        {"type", "overflow"}};
    return body.dump();
}

}  // namespace

// The writer's thread and what it shares. Functions without a note run on the writer thread, or
// before it starts.
class spool_c::writer_c {
  public:
    bool open(const spool_config_s& config, std::string* error);
    void openDatabaseFile();
    void load();
    void moveAside(const std::string& why);
    void beginAnew();
    void run();
    void work();
    bool tryCommit(work_s* work);
    void commitCursors(work_s* work);
    void commit(const work_s& work);
    void insertEntries(const work_s& work, state_s* next);
    void settle(const work_s& work, state_s* next);
    void trim(state_s* next, std::int64_t worth);
    bool isTrimDue();
    bool isOver(const state_s& next);
    std::int64_t cutFor(const state_s& next);
    bool drop(state_s* next, std::int64_t upTo);
    loss_s lossOf(sink_account_s* sink, std::int64_t upTo);
    void remove(state_s* next, std::int64_t upTo);
    void insertOverflow(state_s* next, const loss_s& loss, std::int64_t seq);
    void saveSources(const state_s& next);
    void saveSinks(const state_s& next);
    void takeSinks(const std::vector<sink_config_s>& wanted);
    void recount(sink_account_s* sink);
    void publish(bool wake);
    std::uint64_t countOf(const sink_account_s& sink, std::int64_t after, std::int64_t upTo);

    std::string directory, file;
    descriptor_s lock;
    std::thread thread;
    std::atomic<std::uint64_t> pulse{0};
    std::atomic<std::uint64_t> generation{1};  // of the database file
    std::atomic<bool> suspect{false};          // a reader has found the file broken

    // Of the writer thread.
    spool_config_s limits;
    database_ptr database;
    std::unique_ptr<statements_s> statements;
    state_s state;
    std::vector<sink_account_s> saved;  // the rows of the sinks
    work_s hand;                        // what the next transaction brings in
    bool full = false;                  // the last transaction has failed
    steady_t::time_point lastTry{};

    // Shared.
    mutable std::mutex mutex;
    std::condition_variable wanted;  // the writer waits
    std::condition_variable done;    // setSinks() waits
    std::optional<spool_config_s> newLimits;
    work_s queue;
    std::size_t held = 0;  // bytes of queue and hand
    std::optional<std::vector<sink_config_s>> newSinks;
    bool flushWanted = false;
    bool isAwaited = false;  // a sender waits for the commit of its cursor
    bool ending = false;
    spool_account_s committed;
    std::map<std::int64_t, boot_row_s> boots;
    std::map<std::int64_t, wakeup_c*> wakeups;
};

bool spool_c::writer_c::open(const spool_config_s& config, std::string* error) {
    limits = config;
    directory = config.directory;
    file = directory + "/spool.db";
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
            openDatabaseFile();
        } catch (const database_error_s& broken) {
            if (!broken.isBroken()) {
                throw;
            }
            moveAside(broken.what());
            openDatabaseFile();
        }
    } catch (const std::exception& problem) {
        *error = file + ": " + problem.what();
        return false;
    }
    publish(false);
    return true;
}

void spool_c::writer_c::openDatabaseFile() {
    database = openDatabase(file, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
    execute(database.get(),
            "PRAGMA auto_vacuum=INCREMENTAL; PRAGMA journal_mode=WAL;"
            "PRAGMA wal_autocheckpoint=2000; PRAGMA journal_size_limit=16777216;");
    execute(database.get(), limits.syncFull ? "PRAGMA synchronous=FULL" : "PRAGMA synchronous=NORMAL");
    statement_c version(database.get(), "PRAGMA user_version");
    version.step();
    const std::int64_t found = version.integer(0);
    version.reset();
    if (found == 0) {
        execute(database.get(), std::string("BEGIN IMMEDIATE;") + tables +
                                    "PRAGMA user_version=" + std::to_string(layout) + ";COMMIT;");
    } else if (found != layout) {
        throw std::runtime_error("it was made by another version of twgate");
    }
    statements = std::make_unique<statements_s>(database.get());
    load();
}

void spool_c::writer_c::load() {
    state = {};
    statement_c total(database.get(), "SELECT last_seq, bytes FROM total");
    if (!total.step()) {
        throw database_error_s(nullptr, SQLITE_CORRUPT);
    }
    state.lastSeq = total.integer(0);
    state.bytes = static_cast<std::uint64_t>(total.integer(1));
    statement_c first(database.get(), "SELECT min(seq), max(seq) FROM entry");
    first.step();
    state.firstSeq = first.isNull(0) ? state.lastSeq + 1 : first.integer(0);
    if (!first.isNull(1) && first.integer(1) != state.lastSeq) {
        throw database_error_s(nullptr, SQLITE_CORRUPT);
    }
    statement_c sink(database.get(), "SELECT * FROM sink ORDER BY id");
    const auto count = [&](int column) { return static_cast<std::uint64_t>(sink.integer(column)); };
    while (sink.step()) {
        state.sinks.push_back({.name = std::string(sink.text(1)),
                               .id = sink.integer(0),
                               .streams = static_cast<unsigned>(sink.integer(2)),
                               .cursor = sink.integer(3),
                               .taken = count(4),
                               .confirmed = count(5),
                               .setAside = count(6),
                               .dropped = count(7),
                               .delivered = count(8),
                               .retried = count(9)});
    }
    statement_c source(database.get(), "SELECT state FROM source");
    while (source.step()) {
        state.sources.push_back(nlohmann::json::parse(source.text(0)).get<source_account_s>());
    }
    statement_c boot(database.get(), "SELECT id, reader, name FROM boot");
    while (boot.step()) {
        boots[boot.integer(0)] = {boot.integer(0), std::string(boot.text(1)), boot.integer(2)};
    }
}

// Also the log of the database goes aside, which belongs to it.
void spool_c::writer_c::moveAside(const std::string& why) {
    statements.reset();
    database.reset();
    const std::string aside = ".broken-" + utcText(nowMicroseconds());
    for (const char* part : {"", "-wal", "-shm"}) {
        std::error_code absent;
        std::filesystem::rename(file + part, file + aside + part, absent);
    }
    spdlog::error("{}: {}; it is now {}{}, and a new one begins", file, why, file, aside);
}

// In the middle of a run the accounts are in memory and go on. What the file held is lost.
void spool_c::writer_c::beginAnew() {
    const state_s before = state;
    try {
        openDatabaseFile();
    } catch (const std::exception&) {
        statements.reset();
        database.reset();
        state = before;
        throw;
    }
    ++generation;
    state = before;
    state.firstSeq = state.lastSeq + 1;
    state.bytes = 0;
    execute(database.get(), "BEGIN IMMEDIATE");
    std::int64_t latest = 0;
    {
        const std::lock_guard guard(mutex);
        latest = boots.empty() ? 0 : boots.rbegin()->first;
        for (const auto& [id, boot] : boots) {
            if (std::ranges::find(hand.boots, id, &boot_row_s::id) == hand.boots.end() &&
                std::ranges::find(queue.boots, id, &boot_row_s::id) == queue.boots.end()) {
                statements->saveBoot.bind(id, std::string_view(boot.reader), boot.name).run();
            }
        }
    }
    for (sink_account_s& sink : state.sinks) {
        loss_s loss{.sink = &sink, .count = sink.pending(), .boot = latest};
        sink.cursor = state.lastSeq;
        ++sink.jumps;
        if (loss.count > 0) {
            sink.dropped += loss.count;
            insertOverflow(&state, loss, ++state.lastSeq);
        }
    }
    saveSources(state);
    statements->saveTotal.bind(state.lastSeq, state.bytes).run();
    saved.clear();
    saveSinks(state);
    execute(database.get(), "COMMIT");
    saved = state.sinks;
    state.dropped = true;
}

void spool_c::writer_c::run() {
    for (bool last = false; !last;) {
        {
            std::unique_lock guard(mutex);
            const auto isWanted = [this] {
                return ending || flushWanted || isAwaited || newSinks || newLimits || suspect ||
                       queue.entries.size() >= commitAt;
            };
            const auto hasWork = [&] {
                return isWanted() || !queue.entries.empty() || !queue.progress.empty();
            };
            wanted.wait_for(guard, retryEvery, hasWork);
            wanted.wait_for(guard, commitEvery, isWanted);
            last = ending;
        }
        work();
        ++pulse;
    }
    if (!hand.entries.empty()) {
        spdlog::error("{}: {} entries could not be written and are lost", file, hand.entries.size());
    }
}

void spool_c::writer_c::work() {
    std::optional<std::vector<sink_config_s>> sinks;
    bool changed = false;
    bool isFlush = false;
    {
        const std::lock_guard guard(mutex);
        sinks = std::exchange(newSinks, std::nullopt);
        isFlush = flushWanted;
        hand.isAwaited = std::exchange(isAwaited, false);
        changed = newLimits.has_value();
        limits = std::exchange(newLimits, std::nullopt).value_or(limits);
        hand.bytes += std::exchange(queue.bytes, 0);
        std::ranges::move(queue.entries, std::back_inserter(hand.entries));
        std::ranges::move(queue.boots, std::back_inserter(hand.boots));
        queue.entries.clear();
        queue.boots.clear();
        if (queue.sources) {
            hand.sources = std::exchange(queue.sources, std::nullopt);
        }
        for (const auto& [sink, progress] : std::exchange(queue.progress, {})) {
            add(&hand.progress[sink], progress);
        }
    }
    try {
        if (suspect.exchange(false)) {
            moveAside("a reader found it broken");
            beginAnew();
        }
        if (changed && database) {
            execute(database.get(),
                    limits.syncFull ? "PRAGMA synchronous=FULL" : "PRAGMA synchronous=NORMAL");
        }
        if (sinks) {
            takeSinks(*sinks);
        }
    } catch (const std::exception& problem) {
        spdlog::error("{}: {}", file, problem.what());
    }
    const auto now = steady_t::now();
    if (full && now - lastTry < retryEvery && !sinks && !isFlush) {
        if (hand.isAwaited && database) {
            commitCursors(&hand);
            publish(false);
        }
        return;
    }
    lastTry = now;
    const bool idle =
        !sinks && !isFlush && !full && hand.entries.empty() && hand.progress.empty() && !hand.sources;
    if (idle && database && !isTrimDue()) {
        return;
    }
    const bool hasEntries = !hand.entries.empty();
    const bool written = tryCommit(&hand);
    publish(written && (hasEntries || state.dropped));
    if (isFlush) {
        const std::lock_guard guard(mutex);
        flushWanted = false;
    }
    if (sinks || isFlush) {
        done.notify_all();
    }
}

// False when nothing could be written, and the work stays as it is. On a full disk the cursors alone
// are tried too: what the sinks have taken makes room.
bool spool_c::writer_c::tryCommit(work_s* work) {
    std::string why;
    try {
        if (!database) {
            beginAnew();
        }
        commit(*work);
        *work = {};
        if (std::exchange(full, false)) {
            spdlog::warn("{}: can be written again", file);
        }
        return true;
    } catch (const database_error_s& problem) {
        why = problem.what();
        if (problem.isBroken()) {
            try {
                moveAside(why);
                beginAnew();
                return false;
            } catch (const std::exception& again) {
                why = again.what();
            }
        }
    } catch (const std::exception& problem) {
        why = problem.what();
    }
    if (database) {
        sqlite3_exec(database.get(), "ROLLBACK", nullptr, nullptr, nullptr);
        if (!work->entries.empty()) {
            commitCursors(work);
        }
    }
    const std::lock_guard guard(mutex);
    if (!std::exchange(full, true)) {
        spdlog::error("{}: {}; entries wait in memory", file, why);
    }
    committed.trouble = why;
    return false;
}

// What fails stays for the next time.
void spool_c::writer_c::commitCursors(work_s* work) {
    if (work->progress.empty()) {
        return;
    }
    try {
        commit({.entries = {},
                .boots = {},
                .sources = {},
                .progress = work->progress,
                .bytes = 0,
                .isAwaited = false});
        work->progress.clear();
        sqlite3_exec(database.get(), "PRAGMA wal_checkpoint(TRUNCATE)", nullptr, nullptr, nullptr);
    } catch (const std::exception&) {
        sqlite3_exec(database.get(), "ROLLBACK", nullptr, nullptr, nullptr);
    }
}

void spool_c::writer_c::commit(const work_s& work) {
    state_s next = state;
    next.dropped = false;
    execute(database.get(), "BEGIN IMMEDIATE");
    for (const boot_row_s& boot : work.boots) {
        statements->saveBoot.bind(boot.id, std::string_view(boot.reader), boot.name).run();
    }
    insertEntries(work, &next);
    settle(work, &next);
    trim(&next, work.isAwaited ? worthATrim : 1);
    if (work.sources) {
        saveSources(next);
    }
    if (next.lastSeq != state.lastSeq || next.bytes != state.bytes) {
        statements->saveTotal.bind(next.lastSeq, next.bytes).run();
    }
    saveSinks(next);
    execute(database.get(), "COMMIT");
    saved = next.sinks;
    state = std::move(next);
}

void spool_c::writer_c::insertEntries(const work_s& work, state_s* next) {
    for (const new_entry_s& entry : work.entries) {
        statements->insert
            .bind(++next->lastSeq, static_cast<std::int64_t>(entry.stream), entry.boot, entry.number,
                  entry.takenAt, std::string_view(entry.body))
            .run();
        next->bytes += entry.body.size();
        for (sink_account_s& sink : next->sinks) {
            sink.taken += (sink.streams & streamBit(entry.stream)) != 0 ? 1 : 0;
        }
    }
    if (work.sources) {
        next->sources = *work.sources;
    }
}

std::uint64_t spool_c::writer_c::countOf(const sink_account_s& sink, std::int64_t after, std::int64_t upTo) {
    statement_c& count = statements->countOfSink;
    count.bind(after, upTo, static_cast<std::int64_t>(sink.streams), sink.id).step();
    const std::int64_t rows = count.integer(0);
    count.reset();
    return static_cast<std::uint64_t>(rows);
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
            const std::uint64_t count = countOf(sink, sink.cursor, progress.cursor);
            const std::uint64_t aside = std::min(progress.setAside, count);
            sink.setAside += aside;
            sink.confirmed += count - aside;
            sink.cursor = progress.cursor;
        }
    }
}

// Removes what all sinks have when it is at least `worth` entries, and what is beyond the limits.
void spool_c::writer_c::trim(state_s* next, std::int64_t worth) {
    const std::int64_t before = next->firstSeq;
    const std::int64_t low = std::min(settledUpTo(*next), next->firstSeq + trimmedAtOnce);
    if (low - next->firstSeq + 1 >= worth) {
        remove(next, low);
    }
    for (int round = 0; round < 100 && isOver(*next) && drop(next, cutFor(*next)); ++round) {
    }
    if (next->firstSeq == before) {
        return;
    }
    statement_c& free = statements->free;
    constexpr std::int64_t keptFree = 2'000, givenBack = 500;  // pages
    const bool isMuch = free.step() && free.integer(0) > keptFree;
    free.reset();
    if (isMuch) {
        execute(database.get(), "PRAGMA incremental_vacuum(" + std::to_string(givenBack) + ")");
    }
}

// While nothing comes, entries grow too old, and what was not trimmed at once is still there.
bool spool_c::writer_c::isTrimDue() {
    try {
        return settledUpTo(state) >= state.firstSeq || isOver(state);
    } catch (const database_error_s&) {
        return true;  // the transaction will tell
    }
}

bool spool_c::writer_c::isOver(const state_s& next) {
    if (next.entries() > limits.maxEvents || next.bytes > limits.maxBytes) {
        return true;
    }
    statement_c& oldest = statements->oldest;
    const std::int64_t limit = nowMicroseconds() - static_cast<std::int64_t>(limits.maxAge) * 1'000'000;
    const bool isOld = oldest.step() && oldest.integer(0) < limit;
    oldest.reset();
    return isOld;
}

// Up to where entries have to go: an even number at a time, so that not every commit has to drop some.
std::int64_t spool_c::writer_c::cutFor(const state_s& next) {
    const auto most = static_cast<std::int64_t>(limits.maxEvents);
    const std::int64_t atOnce = std::clamp<std::int64_t>(most / 100, 100, 5'000);
    if (next.entries() > limits.maxEvents || next.bytes > limits.maxBytes) {
        return std::min(next.lastSeq, next.firstSeq + atOnce - 1);
    }
    statement_c old(database.get(),
                    "SELECT max(seq) FROM (SELECT seq, taken_at FROM entry ORDER BY seq LIMIT ?)"
                    " WHERE taken_at < ?");
    old.bind(atOnce, nowMicroseconds() - static_cast<std::int64_t>(limits.maxAge) * 1'000'000).step();
    return old.integer(0);
}

// Drops all entries up to one, and tells each sink that had not taken all of them by an entry in a place
// that became free, the last of which is `upTo`. False when there are not enough places.
bool spool_c::writer_c::drop(state_s* next, std::int64_t upTo) {
    const auto sinks = static_cast<std::int64_t>(next->sinks.size());
    for (std::int64_t round = 0; round < sinks; ++round) {
        for (const sink_account_s& sink : next->sinks) {
            // A sink that lacks only a few entries gets them.
            upTo = sink.cursor < upTo && upTo - sink.cursor < sinks ? sink.cursor : upTo;
        }
    }
    if (upTo < next->firstSeq) {
        return false;
    }
    std::vector<loss_s> losses;
    for (sink_account_s& sink : next->sinks) {
        if (sink.cursor < upTo) {
            const loss_s loss = lossOf(&sink, upTo);
            sink.cursor = upTo;
            ++sink.jumps;
            if (loss.count > 0) {
                losses.push_back(loss);
            }
        }
    }
    remove(next, upTo);
    std::int64_t place = upTo;
    for (const loss_s& loss : losses) {
        insertOverflow(next, loss, place);
        next->firstSeq = place;
        loss.sink->cursor = --place;
        next->dropped = true;
    }
    return true;
}

// What a sink has not taken up to there, counted as dropped.
loss_s spool_c::writer_c::lossOf(sink_account_s* sink, std::int64_t upTo) {
    loss_s loss{.sink = sink};
    statement_c rows(database.get(),
                     "SELECT " ENTRY_COLUMNS " FROM entry WHERE " ROWS_OF_SINK " ORDER BY seq");
    rows.bind(sink->cursor, upTo, static_cast<std::int64_t>(sink->streams), sink->id);
    while (rows.step()) {
        const entry_s entry = entryIn(rows);
        std::string first, last;
        if (entry.stream == stream_e::overflow) {
            const nlohmann::json data = nlohmann::json::parse(entry.body).at("data");
            loss.count += data.at("count").get<std::uint64_t>();
            first = data.at("first");
            last = data.at("last");
            loss.replaces = true;
        } else {
            const std::lock_guard guard(mutex);
            first = last = identity(boots[entry.boot], entry);
            ++loss.count;
            ++sink->dropped;
        }
        loss.first = loss.first.empty() ? first : loss.first;
        loss.last = last;
        loss.boot = entry.boot;
    }
    return loss;
}

void spool_c::writer_c::remove(state_s* next, std::int64_t upTo) {
    statements->bytesUpTo.bind(upTo).step();
    next->bytes -= static_cast<std::uint64_t>(statements->bytesUpTo.integer(0));
    statements->bytesUpTo.reset();
    statements->removeUpTo.bind(upTo).run();
    next->firstSeq = upTo + 1;
}

void spool_c::writer_c::insertOverflow(state_s* next, const loss_s& loss, std::int64_t seq) {
    const std::string body = overflowBody(loss);
    statements->insert
        .bind(seq, static_cast<std::int64_t>(stream_e::overflow), loss.boot,
              static_cast<std::uint64_t>(loss.sink->id), nowMicroseconds(), std::string_view(body))
        .run();
    next->bytes += body.size();
    loss.sink->taken += loss.replaces ? 0 : 1;
}

void spool_c::writer_c::saveSources(const state_s& next) {
    for (const source_account_s& source : next.sources) {
        const std::string text = nlohmann::json(source).dump();
        statements->saveSource.bind(std::string_view(source.reader), std::string_view(text)).run();
    }
}

void spool_c::writer_c::saveSinks(const state_s& next) {
    if (!std::ranges::equal(next.sinks, saved, {}, &sink_account_s::id, &sink_account_s::id)) {
        statements->forgetSinks.run();
        saved.clear();
    }
    for (std::size_t i = 0; i < next.sinks.size(); ++i) {
        const sink_account_s& sink = next.sinks[i];
        if (i >= saved.size() || sink != saved[i]) {
            statements->saveSink
                .bind(sink.id, std::string_view(sink.name), static_cast<std::int64_t>(sink.streams),
                      sink.cursor, sink.taken, sink.confirmed, sink.setAside, sink.dropped, sink.delivered,
                      sink.retried)
                .run();
        }
    }
}

// The streams of the sink have changed: what it takes now decides what is pending.
void spool_c::writer_c::recount(sink_account_s* sink) {
    try {
        const std::uint64_t pending = statements ? countOf(*sink, sink->cursor, state.lastSeq) : 0;
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
    if (!full) {
        committed.trouble.clear();
    }
    for (const auto& [sink, wakeup] : wakeups) {
        if (wake) {
            wakeup->wake();
        }
    }
}

spool_c::spool_c() : writer(std::make_unique<writer_c>()) {}

spool_c::~spool_c() {
    stop();
}

bool spool_c::open(const spool_config_s& config, std::string* error) {
    return writer->open(config, error);
}

void spool_c::start() {
    writer->thread = std::thread([this] { writer->run(); });
}

void spool_c::stop() {
    if (writer->thread.joinable()) {
        {
            const std::lock_guard guard(writer->mutex);
            writer->ending = true;
        }
        writer->wanted.notify_one();
        writer->thread.join();
        writer->statements.reset();
        writer->database.reset();
    }
}

void spool_c::flush() {
    std::unique_lock guard(writer->mutex);
    writer->flushWanted = true;
    writer->wanted.notify_one();
    writer->done.wait(guard, [&] { return !writer->flushWanted; });
}

void spool_c::configure(const spool_config_s& config) {
    const std::lock_guard guard(writer->mutex);
    writer->newLimits = config;
    writer->wanted.notify_one();
}

std::vector<std::int64_t> spool_c::setSinks(const std::vector<sink_config_s>& sinks) {
    std::unique_lock guard(writer->mutex);
    writer->newSinks = sinks;
    writer->wanted.notify_one();
    const auto idOfName = [&](const std::string& name) {
        const auto sink = std::ranges::find(writer->committed.sinks, name, &sink_account_s::name);
        return sink == writer->committed.sinks.end() ? 0 : sink->id;
    };
    std::vector<std::int64_t> ids(sinks.size());
    writer->done.wait(guard, [&] {
        std::ranges::transform(sinks, ids.begin(),
                               [&](const sink_config_s& sink) { return idOfName(sink.name); });
        return !writer->newSinks && std::ranges::find(ids, 0) == ids.end();
    });
    return ids;
}

spool_account_s spool_c::account() const {
    const std::lock_guard guard(writer->mutex);
    return writer->committed;
}

std::uint64_t spool_c::pulse() const {
    return writer->pulse;
}

std::int64_t spool_c::addBoot(const std::string& reader, std::int64_t name) {
    const std::lock_guard guard(writer->mutex);
    const std::int64_t id = writer->boots.empty() ? 1 : writer->boots.rbegin()->first + 1;
    const boot_row_s boot{id, reader, name};
    writer->boots[id] = boot;
    writer->queue.boots.push_back(boot);
    return id;
}

void spool_c::take(std::vector<new_entry_s> entries, std::vector<source_account_s>* sources) {
    {
        const std::lock_guard guard(writer->mutex);
        for (new_entry_s& entry : entries) {
            source_account_s& source = (*sources)[entry.source];
            const std::size_t size = entry.body.size() + overhead;
            ++source.heard;
            if (writer->held + size > mostHeld) {
                ++source.refused;
                continue;
            }
            ++source.taken;
            writer->held += size;
            writer->queue.bytes += size;
            writer->queue.entries.push_back(std::move(entry));
        }
        writer->queue.sources = *sources;
    }
    writer->wanted.notify_one();
}

void spool_c::moveCursor(std::int64_t sink, const progress_s& progress, bool soon) {
    const std::lock_guard guard(writer->mutex);
    add(&writer->queue.progress[sink], progress);
    writer->isAwaited |= soon;
    writer->wanted.notify_one();
}

spool_c::position_s spool_c::positionOf(std::int64_t sink) const {
    const std::lock_guard guard(writer->mutex);
    const auto found = std::ranges::find(writer->committed.sinks, sink, &sink_account_s::id);
    return found == writer->committed.sinks.end() ? position_s() : position_s{found->cursor, found->jumps};
}

void spool_c::wakeAtCommit(std::int64_t sink, wakeup_c* wakeup) {
    const std::lock_guard guard(writer->mutex);
    wakeup == nullptr ? void(writer->wakeups.erase(sink)) : void(writer->wakeups[sink] = wakeup);
}

struct spool_reader_c::impl_s {
    spool_c::writer_c* writer = nullptr;
    database_ptr database;
    std::unique_ptr<statement_c> rows;
    std::uint64_t generation = 0;
    std::map<std::int64_t, boot_row_s> boots;  // a copy of what this reader has met

    void openAgain() {
        const std::uint64_t present = writer->generation;
        if (generation != present) {
            rows.reset();
            database.reset();
            database = openDatabase(writer->file, SQLITE_OPEN_READONLY);
            rows = std::make_unique<statement_c>(
                database.get(), "SELECT " ENTRY_COLUMNS " FROM entry WHERE seq > ? ORDER BY seq LIMIT ?");
            generation = present;
        }
    }

    const boot_row_s& boot(std::int64_t id) {
        const auto known = boots.find(id);
        if (known != boots.end()) {
            return known->second;
        }
        const std::lock_guard guard(writer->mutex);
        return boots[id] = writer->boots[id];
    }
};

spool_reader_c::spool_reader_c(spool_c* spool) : impl(std::make_unique<impl_s>()) {
    impl->writer = spool->writer.get();
}

spool_reader_c::~spool_reader_c() = default;

bool spool_reader_c::read(const sink_account_s& sink, std::int64_t after, std::size_t most,
                          std::vector<entry_s>* entries, std::int64_t* readUpTo, std::string* error) {
    constexpr std::size_t mostBytes = 1UL << 20;
    constexpr std::int64_t mostRows = 10'000;  // that are passed over at once
    std::size_t bytes = 0;
    entries->clear();
    *readUpTo = after;
    try {
        impl->openAgain();
        impl->rows->bind(after, mostRows);
        while (entries->size() < most && bytes < mostBytes && impl->rows->step()) {
            *readUpTo = impl->rows->integer(0);
            const auto stream = static_cast<stream_e>(impl->rows->integer(1));
            const bool isWanted = stream == stream_e::overflow ? impl->rows->integer(3) == sink.id
                                                               : (sink.streams & streamBit(stream)) != 0;
            if (isWanted) {
                entry_s& entry = entries->emplace_back(entryIn(*impl->rows));
                const boot_row_s& boot = impl->boot(entry.boot);
                entry.reader = boot.reader;
                entry.boot = boot.name;
                entry.key = epcOf(entry.body);
                bytes += entry.body.size();
            }
        }
        impl->rows->reset();
        return true;
    } catch (const database_error_s& problem) {
        impl->generation = 0;
        if (problem.isBroken()) {
            impl->writer->suspect = true;
        }
        *error = problem.what();
        return false;
    }
}

std::optional<std::int64_t> spool_reader_c::oldestPending(const sink_account_s& sink) {
    std::vector<entry_s> entries;
    std::string error;
    std::int64_t after = sink.cursor;
    std::int64_t readUpTo = after;
    while (sink.pending() > 0 && read(sink, after, 1, &entries, &readUpTo, &error) && readUpTo > after) {
        if (!entries.empty()) {
            return entries.front().takenAt;
        }
        after = readUpTo;
    }
    return std::nullopt;
}
