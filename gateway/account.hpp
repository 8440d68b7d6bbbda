// SPDX-License-Identifier: MIT
// What came, what went, and what was lost. The sums close at each commit of the spool, in which the
// counts are kept beside the entries:
//
//   of each source   heard = taken + refused
//                    next number of a life of the daemon = first + numbered + missing
//   of each sink     taken = confirmed + set aside + dropped + pending
//   of presence      arrived = present + departed
#pragma once

#include <cstdint>
#include <deque>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "presence/rules.hpp"

// Both numbers belong to it.
struct lost_range_s {
    std::uint64_t first = 0, last = 0;
    std::int64_t at = 0;  // microseconds since 1970 at which the gap was noticed
};

// One life of a daemon, which numbers its reports from 0 since its start.
struct boot_account_s {
    std::int64_t name = 0;                  // ms since 1970 at which it was noticed; 0: nothing heard yet
    std::int64_t row = 0;                   // its row in the spool
    bool anyNumber = false;                 // the next five mean something
    std::uint64_t first = 0;                // number from which on reports were awaited
    std::uint64_t next = 0;                 // number that the next report should have
    std::uint64_t numbered = 0;             // reports with a number
    std::uint64_t missing = 0;              // numbers without a report
    std::deque<lost_range_s> recentGaps{};  // those that a late report may still fill
};

// Counts of entries since the spool was made.
struct source_account_s {
    std::string reader;
    std::uint64_t heard = 0;            // reports and events
    std::uint64_t taken = 0;            // of them: in the spool
    std::uint64_t refused = 0;          // of them: dropped, since the disk and then the memory was full
    std::uint64_t notReports = 0;       // frames that are neither report nor event
    std::uint64_t restarts = 0;         // of the daemon, as far as they were noticed
    std::uint64_t gaps = 0;             // in the event numbers, of all lives
    std::uint64_t missing = 0;          // reports that never came, of all lives
    std::int64_t lastUptime = -1;       // s, of the last heartbeat; -1: not known
    bool restartTold = false;           // the uptime has fallen and no report has come since
    boot_account_s boot;                // the present life
    std::deque<lost_range_s> lastGaps;  // of all lives, the latest last
};

struct sink_account_s {
    std::string name;
    std::int64_t id = 0;      // its row in the spool
    unsigned streams = 0;     // mask of streamBit()
    std::int64_t cursor = 0;  // everything up to this seq is settled
    std::uint64_t jumps = 0;  // how often the spool has moved the cursor by itself, since it was opened
    std::uint64_t taken = 0;
    std::uint64_t confirmed = 0;
    std::uint64_t setAside = 0;   // refused by the receiver for good
    std::uint64_t dropped = 0;    // by overflow
    std::uint64_t delivered = 0;  // handed to the receiver, repeats included
    std::uint64_t retried = 0;    // of them: repeats

    bool operator==(const sink_account_s&) const = default;
    std::uint64_t pending() const { return taken - confirmed - setAside - dropped; }
};

// What the number of a report says of the reports before it.
enum class number_e { follows, gap, late, restart };

// Takes the number of the next report of the present life, in which a restart is not yet begun: the
// caller calls beginBoot() and takes the number again. `now` in microseconds since 1970.
number_e takeNumber(source_account_s* source, std::uint64_t number, std::int64_t now);

// Begins a new life with the name `now`, or a later one when that name is taken. Reports of a life
// that follows another are awaited from number 0, those of the first life from the first that comes.
void beginBoot(source_account_s* source, std::int64_t now);

// Takes the uptime of a heartbeat in seconds: when it has fallen, the daemon has restarted, and the
// next report that does not follow the last one belongs to a new life.
void takeUptime(source_account_s* source, std::int64_t uptime);

// For the spool and the status socket.
void to_json(nlohmann::json& document, const source_account_s& source);
void from_json(const nlohmann::json& document, source_account_s& source);
void to_json(nlohmann::json& document, const sink_account_s& sink);
void to_json(nlohmann::json& document, const presence_account_s& presence);
