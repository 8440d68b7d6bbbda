// SPDX-License-Identifier: MIT
#include "database.hpp"
#include "writer.hpp"

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
                database.get(),
                "SELECT " + std::string(entryColumns) + " FROM entry WHERE seq > ? ORDER BY seq LIMIT ?");
            generation = present;
        }
    }

    const boot_row_s& boot(std::int64_t id) {
        const auto known = boots.find(id);
        return known != boots.end() ? known->second : boots[id] = writer->boots.find(id);
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
                entry.key = keyOf(entry.stream, entry.body);
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
