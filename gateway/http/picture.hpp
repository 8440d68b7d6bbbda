// SPDX-License-Identifier: MIT
// What the gateway has seen, for those who look: the live page and the metrics. docs/gateway-http.md
// describes its JSON.
//
//   intake ──► queue ──► picture thread ──► tags, rates, heartbeats, alarms ──► updates ──► streams
//                                                        ▲                └──► whole picture, metrics
//   main thread ──► status, health                       │
//   daemon_accounts ──► accounts ────────────────────────┘
//
// The intake pays for a copy of the bodies into a buffer, and never waits; while the buffer is full reports
// are counted as unseen. So the picture goes on while the spool cannot be written, and after a restart of the
// gateway it begins anew.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "account.hpp"
#include "read_rates.hpp"
#include "spool.hpp"
#include "tag_table.hpp"

struct health_s {
    std::vector<std::string> reasons;  // why /readyz says no
    std::vector<std::string> stuck;    // why /healthz says no
    bool operator==(const health_s&) const = default;
};

// A document from outside, without what is nested more than 16 deep, which would overflow the stack when
// it is written. It is "discarded" when the text is not JSON.
nlohmann::json parseShallow(std::string_view text);

// The last answer of a daemon to "account".
struct daemon_account_s {
    std::int64_t at = 0;     // ms since 1970, of `account`
    nlohmann::json account;  // null: none yet
    std::string trouble;     // why the last request was not answered
};

// Copies for the metrics.
struct picture_numbers_s {
    std::vector<std::string> readers;
    std::map<read_rates_c::name_s, std::uint64_t> reports;
    std::map<std::size_t, std::pair<std::int64_t, nlohmann::json>> heartbeats;  // ms since 1970, "data"
    std::map<std::pair<std::size_t, std::string>, std::uint64_t> alarms;        // by reader and type
    std::map<std::string, daemon_account_s> accounts;                           // by reader
    std::shared_ptr<const nlohmann::json> status;
    std::uint64_t tags = 0, unseen = 0;
};

using update_t = std::shared_ptr<const std::string>;  // a server-sent event, whole

class picture_c {
  public:
    static constexpr std::size_t mostTags = 50'000;
    static constexpr std::size_t mostUpdates = 50;  // that a stream may be behind

    // Beyond `capacity` tags those that were not read for longest are forgotten.
    explicit picture_c(std::size_t capacity = mostTags);
    ~picture_c();
    picture_c(const picture_c&) = delete;
    picture_c& operator=(const picture_c&) = delete;

    // Main thread. While it is off, take() returns at once and nothing is kept.
    void start();
    void stop();

    // Intake thread. What came, before the spool takes it, and the accounts that it belongs to.
    void take(const std::vector<new_entry_s>& entries, const std::vector<source_account_s>& sources);
    // Any thread. What the spool has made of reports before: presence events, whose bodies have "event" and
    // "epc".
    void takePresence(const std::vector<new_entry_s>& entries);
    // Main thread.
    void takeStatus(nlohmann::json status, health_s health);
    // Any thread.
    void takeAccount(const std::string& reader, daemon_account_s account);

    // Any thread. The whole picture as JSON.
    std::shared_ptr<const std::string> whole();
    picture_numbers_s numbers();
    health_s health() const;
    // When takeStatus() was called last.
    std::chrono::steady_clock::time_point statusAt() const;
    bool isWatched() const { return streams > 0; }

    // A stream of updates, for one thread.
    class stream_c {
      public:
        explicit stream_c(picture_c* source);
        ~stream_c();
        stream_c(const stream_c&) = delete;
        stream_c& operator=(const stream_c&) = delete;

        // Waits up to `patience`. First "hello", then the updates that came since the last call in one text,
        // which may be empty. Nothing when the stream is over: too far behind, or the picture was stopped.
        std::optional<std::string> next(std::chrono::milliseconds patience);

      private:
        picture_c* const picture;
        std::uint64_t version = 0;
        bool greeted = false;
    };

  private:
    // Bodies one behind the other, and where each ends.
    struct batch_s {
        struct row_s {
            std::size_t source;  // of reports and events
            std::int64_t boot;
            stream_e stream;
            std::int64_t takenAt;  // microseconds since 1970
            std::size_t length;
        };
        std::string text;
        std::vector<row_s> rows;
    };
    struct alarm_s {
        std::int64_t at = 0;  // ms since 1970
        std::size_t reader = 0;
        std::string type, message;
        std::uint64_t number = 0;
    };

    void run(const std::stop_token& stop);
    void queueUp(const new_entry_s& entry);
    void absorb();
    void absorbPresence(std::int64_t boot, std::string_view body);
    void absorbEvent(std::size_t reader, std::string_view body, std::int64_t at);
    update_t makeUpdate();
    void writeTotals(std::string* out) const;
    void writeStatus(std::string* out) const;
    void writeAccounts(std::string* out) const;
    void writeHeartbeats(std::string* out) const;
    void writeAlarms(std::size_t from, std::string* out) const;

    std::jthread thread;
    std::atomic<bool> isOn{false};
    std::atomic<int> streams{0};
    std::int64_t startedAt = 0;  // ms since 1970
    std::string session;

    std::mutex queueMutex;  // taken by the intake; held only for the copy or an exchange
    batch_s queue;
    std::vector<std::string> newReaders;  // all names, when there are more of them
    std::uint64_t missed = 0;

    mutable std::mutex mutex;  // of what follows
    std::vector<std::string> readers;
    std::map<std::int64_t, std::size_t> sourceOf;  // by the row of a life of its daemon
    bool hasPresence = false;                      // there are presence events
    tag_table_c tags;
    read_rates_c rates;
    std::uint64_t reports = 0, missedSeen = 0;
    std::map<std::size_t, std::pair<std::int64_t, nlohmann::json>> heartbeats;
    std::deque<alarm_s> alarms;
    std::uint64_t alarmsSeen = 0;
    std::map<std::pair<std::size_t, std::string>, std::uint64_t> alarmCounts;
    std::map<std::string, daemon_account_s> accounts;
    std::shared_ptr<const nlohmann::json> status;
    std::chrono::steady_clock::time_point statusTime{};
    health_s healthNow;
    struct {
        bool status = false, accounts = false, heartbeats = false, rates = false, readers = false;
        std::uint64_t reports = 0;  // told
        std::uint64_t alarms = 0;   // told
    } news;
    std::shared_ptr<const std::string> lastWhole;
    std::uint64_t lastWholeVersion = 0;
    std::chrono::steady_clock::time_point lastWholeAt{};

    mutable std::mutex updateMutex;  // of what follows; taken alone or after `mutex`
    std::condition_variable updated;
    std::deque<update_t> updates;
    std::uint64_t version = 0;  // of the last of them
};
