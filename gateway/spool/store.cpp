// SPDX-License-Identifier: MIT
#include "store.hpp"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace {

constexpr int layout = 1;  // user_version of the database

constexpr const char* tables =
    "CREATE TABLE entry(seq INTEGER PRIMARY KEY, stream INTEGER, boot INTEGER, number INTEGER,"
    " taken_at INTEGER, body TEXT);"
    "CREATE TABLE boot(id INTEGER PRIMARY KEY, reader TEXT, name INTEGER);"
    "CREATE TABLE sink(id INTEGER PRIMARY KEY, name TEXT, streams INTEGER, cursor INTEGER, taken INTEGER,"
    " confirmed INTEGER, set_aside INTEGER, dropped INTEGER, delivered INTEGER, retried INTEGER);"
    "CREATE TABLE source(reader TEXT PRIMARY KEY, state TEXT);"
    "CREATE TABLE total(id INTEGER PRIMARY KEY, last_seq INTEGER, bytes INTEGER);"
    "INSERT INTO total VALUES(1, 0, 0);";

constexpr const char* presenceTable =
    "CREATE TABLE IF NOT EXISTS presence(id INTEGER PRIMARY KEY, seq INTEGER, body BLOB);";

// Rows of a sink between two places: those of its streams, and of the overflows its own.
constexpr std::string_view rowsOfSink =
    " FROM entry WHERE seq > ?1 AND seq <= ?2 AND ((1 << stream) & ?3 OR (stream = 2 AND number = ?4))";
static_assert(static_cast<int>(stream_e::overflow) == 2);

}  // namespace

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

// What the writer uses all the time. Its end comes before that of the database.
struct store_c::statements_s {
    explicit statements_s(sqlite3* database)
        : insert(database, "INSERT INTO entry VALUES(?, ?, ?, ?, ?, ?)"),
          countOfSink(database, "SELECT count(*)" + std::string(rowsOfSink)),
          entriesOfSink(database,
                        "SELECT " + std::string(entryColumns) + std::string(rowsOfSink) + " ORDER BY seq"),
          oldest(database, "SELECT taken_at FROM entry ORDER BY seq LIMIT 1"),
          lastBefore(database,
                     "SELECT max(seq) FROM (SELECT seq, taken_at FROM entry ORDER BY seq LIMIT ?)"
                     " WHERE taken_at < ?"),
          bytesUpTo(database, "SELECT total(length(body)) FROM entry WHERE seq <= ?"),
          removeUpTo(database, "DELETE FROM entry WHERE seq <= ?"),
          freePages(database, "PRAGMA freelist_count"),
          saveBoot(database, "INSERT OR REPLACE INTO boot VALUES(?, ?, ?)"),
          saveSource(database, "INSERT OR REPLACE INTO source VALUES(?, ?)"),
          forgetSinks(database, "DELETE FROM sink"),
          saveSink(database, "INSERT OR REPLACE INTO sink VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, ?)"),
          saveTotal(database, "UPDATE total SET last_seq = ?, bytes = ?"),
          saveSnapshot(database, "INSERT OR REPLACE INTO presence VALUES(1, ?, ?)"),
          begin(database, "BEGIN IMMEDIATE"),
          commit(database, "COMMIT") {}

    statement_c insert, countOfSink, entriesOfSink, oldest, lastBefore, bytesUpTo, removeUpTo, freePages,
        saveBoot, saveSource, forgetSinks, saveSink, saveTotal, saveSnapshot, begin, commit;
};

store_c::store_c() = default;
store_c::~store_c() = default;

void store_c::open(const std::string& file, bool syncFull, state_s* state, boot_list_c* boots) {
    try {
        database = openDatabase(file, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
        execute(database.get(),
                "PRAGMA auto_vacuum=INCREMENTAL; PRAGMA journal_mode=WAL;"
                "PRAGMA wal_autocheckpoint=2000; PRAGMA journal_size_limit=16777216;");
        setSync(syncFull);
        make();
        statements = std::make_unique<statements_s>(database.get());
        load(state, boots);
    } catch (const std::exception&) {
        close();
        throw;
    }
}

void store_c::close() {
    statements.reset();
    database.reset();
    saved.clear();
    saving.clear();
}

bool store_c::isOpen() const {
    return database != nullptr;
}

void store_c::make() {
    statement_c version(database.get(), "PRAGMA user_version");
    version.step();
    const std::int64_t found = version.integer(0);
    version.reset();
    if (found == 0) {
        execute(database.get(), std::string("BEGIN IMMEDIATE;") + tables + presenceTable +
                                    "PRAGMA user_version=" + std::to_string(layout) + ";COMMIT;");
    } else if (found != layout) {
        throw std::runtime_error("it was made by another version of twgate");
    } else {
        execute(database.get(), presenceTable);  // of a spool from before presence
    }
}

void store_c::load(state_s* state, boot_list_c* boots) {
    *state = {};
    statement_c total(database.get(), "SELECT last_seq, bytes FROM total");
    if (!total.step()) {
        throw database_error_s(nullptr, SQLITE_CORRUPT);
    }
    state->lastSeq = total.integer(0);
    state->bytes = static_cast<std::uint64_t>(total.integer(1));
    statement_c first(database.get(), "SELECT min(seq), max(seq) FROM entry");
    first.step();
    state->firstSeq = first.isNull(0) ? state->lastSeq + 1 : first.integer(0);
    if (!first.isNull(1) && first.integer(1) != state->lastSeq) {
        throw database_error_s(nullptr, SQLITE_CORRUPT);
    }
    statement_c sink(database.get(), "SELECT * FROM sink ORDER BY id");
    const auto count = [&](int column) { return static_cast<std::uint64_t>(sink.integer(column)); };
    while (sink.step()) {
        state->sinks.push_back({.name = std::string(sink.text(1)),
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
        try {
            state->sources.push_back(nlohmann::json::parse(source.text(0)).get<source_account_s>());
        } catch (const nlohmann::json::exception&) {
            throw database_error_s(nullptr, SQLITE_CORRUPT);
        }
    }
    statement_c boot(database.get(), "SELECT id, reader, name FROM boot");
    while (boot.step()) {
        boots->put({boot.integer(0), std::string(boot.text(1)), boot.integer(2)});
    }
}

void store_c::setSync(bool full) {
    execute(database.get(), full ? "PRAGMA synchronous=FULL" : "PRAGMA synchronous=NORMAL");
}

void store_c::begin() {
    statements->begin.run();
    saving = saved;
}

void store_c::commit() {
    statements->commit.run();
    saved = std::move(saving);
}

void store_c::rollBack() {
    sqlite3_exec(database.get(), "ROLLBACK", nullptr, nullptr, nullptr);
}

void store_c::emptyLog() {
    sqlite3_exec(database.get(), "PRAGMA wal_checkpoint(TRUNCATE)", nullptr, nullptr, nullptr);
}

void store_c::insert(std::int64_t seq, stream_e stream, std::int64_t boot,
                     std::optional<std::uint64_t> number, std::int64_t takenAt, const std::string& body) {
    statements->insert
        .bind(seq, static_cast<std::int64_t>(stream), boot, number, takenAt, std::string_view(body))
        .run();
}

std::uint64_t store_c::countOf(const sink_account_s& sink, std::int64_t after, std::int64_t upTo) {
    statement_c& count = statements->countOfSink;
    count.bind(after, upTo, static_cast<std::int64_t>(sink.streams), sink.id).step();
    const std::int64_t rows = count.integer(0);
    count.reset();
    return static_cast<std::uint64_t>(rows);
}

void store_c::forEach(const sink_account_s& sink, std::int64_t after, std::int64_t upTo,
                      const std::function<void(const entry_s&)>& work) {
    statement_c& rows = statements->entriesOfSink;
    rows.bind(after, upTo, static_cast<std::int64_t>(sink.streams), sink.id);
    while (rows.step()) {
        work(entryIn(rows));
    }
}

bool store_c::isOlder(std::int64_t time) {
    const bool isOld = statements->oldest.step() && statements->oldest.integer(0) < time;
    statements->oldest.reset();
    return isOld;
}

std::int64_t store_c::lastBefore(std::int64_t time, std::int64_t among) {
    statement_c& last = statements->lastBefore;
    last.bind(among, time).step();
    const std::int64_t seq = last.integer(0);
    last.reset();
    return seq;
}

std::uint64_t store_c::removeUpTo(std::int64_t seq) {
    statement_c& bytes = statements->bytesUpTo;
    bytes.bind(seq).step();
    const auto removed = static_cast<std::uint64_t>(bytes.integer(0));
    bytes.reset();
    statements->removeUpTo.bind(seq).run();
    return removed;
}

void store_c::giveBack() {
    constexpr std::int64_t kept = 2'000, givenBack = 500;  // pages
    const bool isMuch = statements->freePages.step() && statements->freePages.integer(0) > kept;
    statements->freePages.reset();
    if (isMuch) {
        execute(database.get(), "PRAGMA incremental_vacuum(" + std::to_string(givenBack) + ")");
    }
}

void store_c::saveBoot(const boot_row_s& boot) {
    statements->saveBoot.bind(boot.id, std::string_view(boot.reader), boot.name).run();
}

void store_c::saveSources(const std::vector<source_account_s>& sources) {
    for (const source_account_s& source : sources) {
        const std::string text = nlohmann::json(source).dump();
        statements->saveSource.bind(std::string_view(source.reader), std::string_view(text)).run();
    }
}

void store_c::saveSinks(const std::vector<sink_account_s>& sinks) {
    if (!std::ranges::equal(sinks, saving, {}, &sink_account_s::id, &sink_account_s::id)) {
        statements->forgetSinks.run();
        saving.clear();
    }
    for (std::size_t i = 0; i < sinks.size(); ++i) {
        const sink_account_s& sink = sinks[i];
        if (i >= saving.size() || sink != saving[i]) {
            statements->saveSink
                .bind(sink.id, std::string_view(sink.name), static_cast<std::int64_t>(sink.streams),
                      sink.cursor, sink.taken, sink.confirmed, sink.setAside, sink.dropped, sink.delivered,
                      sink.retried)
                .run();
        }
    }
    saving = sinks;
}

void store_c::saveTotal(std::int64_t lastSeq, std::uint64_t bytes) {
    statements->saveTotal.bind(lastSeq, bytes).run();
}

void store_c::saveSnapshot(std::int64_t seq, std::string_view body) {
    statements->saveSnapshot.bind(seq, blob_s{body}).run();
}

std::optional<store_c::snapshot_s> store_c::loadSnapshot() {
    statement_c snapshot(database.get(), "SELECT seq, body FROM presence");
    return snapshot.step() ? std::optional(snapshot_s{snapshot.integer(0), std::string(snapshot.text(1))})
                           : std::nullopt;
}

void store_c::forgetSnapshot() {
    if (isOpen()) {
        sqlite3_exec(database.get(), "DELETE FROM presence WHERE id = 1", nullptr, nullptr, nullptr);
    }
}
