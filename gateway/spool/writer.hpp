// SPDX-License-Identifier: MIT
// The writer gathers what the intake and the senders want for up to 50 ms, or 500 entries, and puts it into
// one transaction. What a failed transaction holds stays in memory and goes into the next one.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <thread>

#include "presence/presence.hpp"
#include "state.hpp"
#include "store.hpp"
#include "twctl/sockets.hpp"

// The writer's thread and what it shares with the threads that call spool_c.
class spool_c::writer_c {
  public:
    // Before the thread starts.
    bool open(const spool_config_s& config, std::string* error);
    void close() { store.close(); }  // behind its end
    // The thread, until `ending`.
    void run();

    std::string file;
    std::string reserve;  // file
    std::thread thread;
    boot_list_c boots;
    std::atomic<std::uint64_t> pulse{0};
    std::atomic<std::uint64_t> generation{1};  // of the database file
    std::atomic<bool> suspect{false};          // a reader has found the file broken
    // Told of entries once presence has put its events among them; set before the thread starts.
    std::function<void(const std::vector<new_entry_s>&)> watch;

    // Shared; under the mutex.
    mutable std::mutex mutex;
    std::condition_variable wanted;  // the writer waits
    std::condition_variable done;    // setSinks() and flush() wait
    std::optional<spool_config_s> newLimits;
    work_s queue;
    std::size_t held = 0;  // bytes of queue and hand
    std::optional<std::vector<sink_config_s>> newSinks;
    bool flushWanted = false;
    bool ending = false;
    spool_account_s committed;
    std::map<std::int64_t, wakeup_c*> wakeups;

  private:
    void work();
    void openStore();
    void takeLimits(const spool_config_s& config);
    void openPresence();
    void replayPresence(const store_c::snapshot_s& snapshot);
    void derivePresence(work_s* fresh);
    bool isSnapshotDue(const state_s& next) const;
    void saveSnapshot(state_s* next);
    void takeSinks(const std::vector<sink_config_s>& wanted);
    void recount(sink_account_s* sink);
    bool tryCommit();
    bool beginAnewAfter(const database_error_s& problem, std::string* why);
    void commitCursors();
    void commit(const work_s& work, bool withPresence);
    void saveAndTrim(const work_s& work, bool withPresence, state_s* next);
    void insertEntries(const work_s& work, state_s* next);
    void settle(const work_s& work, state_s* next);
    void moveAside(const std::string& why);
    void beginAnew();
    bool isTrimDue();
    void holdReserve() const;
    void freeReserve() const;
    void publish(bool wake);

    // Of the writer's thread.
    descriptor_s lock;
    spool_config_s limits;
    store_c store;
    state_s state;
    work_s hand;        // what the next transaction brings in
    bool full = false;  // the last transaction has failed
    // The table is as it will be behind the next transaction, with what `hand` brings.
    std::unique_ptr<presence_c> presence;  // nothing without the stream
    bool snapshotWanted = false;           // with the next transaction
    std::chrono::steady_clock::time_point lastTry{};
};
