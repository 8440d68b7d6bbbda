// SPDX-License-Identifier: MIT
// The spool's database file: what its tables look like, and every statement of the writer. Another than
// open() throws database_error_s for what SQLite refuses.
#pragma once

#include <functional>
#include <memory>

#include "database.hpp"
#include "state.hpp"

// An entry as the database has it: its `boot` is the row of the daemon's life, its reader and key are empty.
inline constexpr const char* entryColumns = "seq, stream, boot, number, taken_at, body";
entry_s entryIn(const statement_c& row);

class store_c {
  public:
    store_c();
    ~store_c();

    // Opens the file or makes it, and loads what it holds. Also std::runtime_error for the file of another
    // version. After a failure nothing is open.
    void open(const std::string& file, bool syncFull, state_s* state, boot_list_c* boots);
    void close();
    bool isOpen() const;

    void setSync(bool full);
    void begin();
    void commit();
    void rollBack();  // throws nothing
    // Makes room on a full disk; throws nothing.
    void emptyLog();

    // `number`: that of a report; of an overflow the id of its sink.
    void insert(std::int64_t seq, stream_e stream, std::int64_t boot, std::optional<std::uint64_t> number,
                std::int64_t takenAt, const std::string& body);
    // Entries of the sink above `after`, up to `upTo`: those of its streams, and its own overflows.
    std::uint64_t countOf(const sink_account_s& sink, std::int64_t after, std::int64_t upTo);
    void forEach(const sink_account_s& sink, std::int64_t after, std::int64_t upTo,
                 const std::function<void(const entry_s&)>& work);
    // Whether the oldest entry was taken before `time`, in microseconds since 1970.
    bool isOlder(std::int64_t time);
    // The last of the oldest `among` entries that was taken before `time`; 0 without one.
    std::int64_t lastBefore(std::int64_t time, std::int64_t among);
    // Removes all entries up to there. Returns the bytes of their bodies.
    std::uint64_t removeUpTo(std::int64_t seq);
    // Gives some of the pages that removed entries have left back to the disk, when they are many.
    void giveBack();

    void saveBoot(const boot_row_s& boot);
    void saveSources(const std::vector<source_account_s>& sources);
    // Those that are not in the database as they are.
    void saveSinks(const std::vector<sink_account_s>& sinks);
    void saveTotal(std::int64_t lastSeq, std::uint64_t bytes);

    // A snapshot of presence, with what the entries up to `seq` have brought.
    struct snapshot_s {
        std::int64_t seq = 0;
        std::string body;
    };
    void saveSnapshot(std::int64_t seq, std::string_view body);
    std::optional<snapshot_s> loadSnapshot();
    void forgetSnapshot();  // throws nothing

  private:
    struct statements_s;
    void make();
    void load(state_s* state, boot_list_c* boots);

    database_ptr database;
    std::unique_ptr<statements_s> statements;
    // Rows of the sinks in the database, and those of the transaction that is open.
    std::vector<sink_account_s> saved, saving;
};
