// SPDX-License-Identifier: MIT
// What the spool's units hand to each other.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "spool.hpp"

// A life of a daemon.
struct boot_row_s {
    std::int64_t id = 0;
    std::string reader;
    std::int64_t name = 0;
};

// All lives that the database knows, or that are on their way there. Any thread.
class boot_list_c {
  public:
    boot_row_s add(const std::string& reader, std::int64_t name);
    void put(const boot_row_s& boot);
    boot_row_s find(std::int64_t id) const;  // an empty one for an id that is not there
    std::vector<boot_row_s> all() const;     // in the order of their ids

  private:
    mutable std::mutex mutex;
    std::map<std::int64_t, boot_row_s> boots;
};

// What one transaction is to bring in.
struct work_s {
    std::vector<new_entry_s> entries;
    std::vector<boot_row_s> boots;
    std::optional<std::vector<source_account_s>> sources;
    std::map<std::int64_t, spool_c::progress_s> progress;  // by the sink's id
    std::size_t bytes = 0;                                 // of memory that the entries take
    bool isAwaited = false;                                // by a sender

    // Puts `more`, which is younger, behind it, and empties that.
    void append(work_s* more);
};

// Of one sink. What came behind a jump of the cursor makes a cursor from before it void.
void add(spool_c::progress_s* sum, const spool_c::progress_s& more);

// What the database holds.
struct state_s {
    std::vector<source_account_s> sources;
    std::vector<sink_account_s> sinks;
    std::int64_t firstSeq = 1;  // of the entries, between which there are no holes
    std::int64_t lastSeq = 0;
    std::uint64_t bytes = 0;  // of the bodies
    bool dropped = false;     // the last transaction has dropped entries that a sink had not taken
    // The snapshot of presence holds what entries up to there have brought; those above it stay, since they
    // make it whole. Nothing without presence, or while the snapshot is void.
    std::optional<std::int64_t> snapshot;
    std::optional<presence_account_s> presence;

    std::uint64_t entries() const { return static_cast<std::uint64_t>(lastSeq - firstSeq + 1); }
    // Nobody needs what is up to there: all sinks have it, and the snapshot. 0 without a sink.
    std::int64_t settledUpTo() const;
};
