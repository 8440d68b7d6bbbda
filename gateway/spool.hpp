// SPDX-License-Identifier: MIT
// Entries on disk until every sink has them: a SQLite database in WAL mode, spool.db in the spool's
// folder. One writer thread writes; each sender reads on a connection of its own.
//
//   entry   seq | stream | boot | number | taken_at | body     one row an event
//   boot    id | reader | name                                 one row a life of a daemon
//   sink    id | name | streams | cursor | counts              one row a sink
//   source  reader | state                                     one row a reader, its account as JSON
//   total   bytes                                              of all bodies
//   presence  seq | body                                       one row, a snapshot of the presence table
//
// The writer alone moves cursors and counts, so that the accounts close at each commit.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "account.hpp"
#include "config.hpp"
#include "event.hpp"

struct sqlite3;
class wakeup_c;

// An entry on its way into the spool.
struct new_entry_s {
    std::size_t source = 0;  // index in the list of accounts that comes with it
    stream_e stream = stream_e::tags;
    std::int64_t boot = 0;  // row of the life of the daemon
    std::optional<std::uint64_t> number;
    std::int64_t takenAt = 0;
    std::string body;
};

// The account at the last commit.
struct spool_account_s {
    std::vector<source_account_s> sources;
    std::vector<sink_account_s> sinks;
    std::uint64_t entries = 0, bytes = 0;
    std::optional<presence_account_s> presence;  // nothing without the stream
    std::string trouble;  // why nothing can be written at the moment; empty when all is well
};

class spool_c {
  public:
    spool_c();
    ~spool_c();
    spool_c(const spool_c&) = delete;
    spool_c& operator=(const spool_c&) = delete;

    // Opens or makes the database, and locks the folder against a second gateway. A database that is
    // broken is moved aside, to spool.db.broken-TIME. False with the reason when it cannot be used.
    bool open(const spool_config_s& config, std::string* error);
    // Starts the writer thread.
    void start();
    // Any thread. Waits until what is queued now is committed, or cannot be.
    void flush();
    // Commits what is queued, ends the writer and closes the database.
    void stop();

    // Main thread. New limits; the folder stays.
    void configure(const spool_config_s& config);
    // Main thread, before start(). `watch` is called on the writer thread with entries that are about to be
    // committed, once presence has put its events among them; it must not wait.
    void watchPresence(std::function<void(const std::vector<new_entry_s>&)> watch);
    // Main thread. The sinks that take entries from now on; their ids in the same order. A new sink
    // gets what comes from now on; one that is no longer listed loses its cursor. Waits for the writer.
    std::vector<std::int64_t> setSinks(const std::vector<sink_config_s>& sinks);
    // Any thread.
    spool_account_s account() const;
    // Any thread. Grows while the writer thread lives, at least every second.
    std::uint64_t pulse() const;

    // Intake thread. Registers a life of the daemon; returns its row.
    std::int64_t addBoot(const std::string& reader, std::int64_t name);
    // Intake thread. Queues entries for the next commit, with the accounts of the sources as they are
    // behind them. Never waits for the disk: what the memory has no room for is counted as refused
    // in `sources`, the rest as taken.
    void take(std::vector<new_entry_s> entries, std::vector<source_account_s>* sources);

    // Sender threads. Everything of the sink up to `cursor` is settled. The counts are those since the
    // last call.
    struct progress_s {
        std::int64_t cursor = 0;
        std::uint64_t jumps = 0;  // those of position_s; with fewer than there were, `cursor` is void
        std::uint64_t setAside = 0, delivered = 0, retried = 0;
    };
    // `soon`: the sender waits for the commit, which is else made within 50 ms.
    void moveCursor(std::int64_t sink, const progress_s& progress, bool soon = false);
    // Sender threads. The committed cursor, and how often the spool has moved it by itself: when it has
    // dropped entries.
    struct position_s {
        std::int64_t cursor = 0;
        std::uint64_t jumps = 0;
    };
    position_s positionOf(std::int64_t sink) const;
    // Any thread. `wakeup` is woken after each commit with new entries, or that moves the sink's cursor;
    // nullptr ends it.
    void wakeAtCommit(std::int64_t sink, wakeup_c* wakeup);

  private:
    friend class spool_reader_c;
    class writer_c;
    std::unique_ptr<writer_c> writer;
};

// Reads entries on a connection of its own; for one thread.
class spool_reader_c {
  public:
    explicit spool_reader_c(spool_c* spool);
    ~spool_reader_c();
    spool_reader_c(const spool_reader_c&) = delete;
    spool_reader_c& operator=(const spool_reader_c&) = delete;

    // Entries of the sink above `after`, in order, at most `most` and about 1 MiB. `readUpTo` is the
    // last seq that was looked at, `after` when there is none: entries that the sink did not choose are
    // passed over. False with the reason when the database cannot be read at the moment.
    bool read(const sink_account_s& sink, std::int64_t after, std::size_t most, std::vector<entry_s>* entries,
              std::int64_t* readUpTo, std::string* error);

    // When the sink's oldest pending entry was taken, microseconds since 1970; nothing without one.
    std::optional<std::int64_t> oldestPending(const sink_account_s& sink);

  private:
    struct impl_s;
    std::unique_ptr<impl_s> impl;
};
