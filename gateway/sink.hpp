// SPDX-License-Identifier: MIT
// What a sink is. A sink takes entries to one receiver and says which of them the receiver has. All
// else is done around it, in its sender thread (sender.hpp): reading the spool, the window of entries
// in flight, back-off with jitter, the limit of the rate, the cursor, and the account.
//
//   open() ──► offer() ... poll() ... offer() ──► close()
//     ▲                      │ failure               │
//     └────── back-off ◄─────┴───────────────────────┘
//
// A new sink is one file (or folder) in sinks/ with a class and its factory, a row in the table in
// sinks/table.cpp, its part of twgate.schema.json, and a test with its server.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "config.hpp"
#include "event.hpp"

// What the sender does for a sink. A sink says it once, when it is made.
struct sink_limits_s {
    // Most entries that are offered and whose settling is not committed in the spool: so many, and not one
    // more, come twice when twgate is killed. Those that are settled leave the window with a commit, which
    // the sender asks for when they fill half of it.
    std::size_t window = 200;
    std::size_t batch = 200;  // most entries of one offer()
    // How long a batch that is not full waits for more, counted from its oldest entry.
    std::chrono::milliseconds every{0};
    // While entries are in flight, how long the sender may wait before it polls again, without wake().
    std::chrono::milliseconds pollWithin{500};
    // When entries are in flight and none is settled for so long, the link is taken for dead: the sender
    // closes the sink and opens it again. 0: never.
    std::chrono::milliseconds confirmWithin{0};
    // Between two attempts, doubled from the first to the last, with up to half of it taken off at random.
    std::chrono::milliseconds firstBackOff{200};
    std::chrono::milliseconds lastBackOff{30'000};
};

// What became of the offered entries from `first` to `last`, both included. Entries may be settled in
// any order, and more than once.
struct settled_s {
    enum outcome_e {
        confirmed,  // the receiver has it
        setAside,   // the receiver refuses it for good; the sink has kept it elsewhere
    };
    std::int64_t first = 0, last = 0;  // seq
    outcome_e outcome = confirmed;
};

// Why a link has to be closed and opened again. Everything in flight is then offered again, in order.
struct failure_s {
    std::string text;  // for people: "connection refused", without the sink's name
    // How long the receiver wants to be left alone (Retry-After); else the back-off decides.
    std::optional<std::chrono::milliseconds> notBefore{};
};

// `down` of a link that has begun and not failed yet, which is not worth a warning.
inline constexpr const char* connecting = "connecting";

struct poll_s {
    std::vector<settled_s> settled;
    std::optional<failure_s> failure{};
    // Of a sink whose library reconnects by itself: why nothing gets through at the moment. The entries
    // stay in flight. Empty when the link is up.
    std::string down{};
};

// What a sink may use of its sender.
struct sink_context_s {
    // Tells the sender that poll() has something to say, or that there is room again. Any thread, also a
    // library's callback; never waits.
    std::function<void()> wake;
    // Requested when twgate ends and the time to drain is over: a call that waits has to return then.
    std::stop_token abort;
};

// One sender thread calls all of these, and the destructor, one after the other. Threads of a client
// library stay behind the sink: it takes a lock of its own and calls wake().
class sink_c {
  public:
    explicit sink_c(sink_limits_s sinkLimits) : limits(sinkLimits) {}
    virtual ~sink_c() = default;
    sink_c(const sink_c&) = delete;
    sink_c& operator=(const sink_c&) = delete;

    // Connects or begins to, or opens a file. Nothing when it is done or under way, or the failure;
    // after a failure it is called again later, without close().
    virtual std::optional<failure_s> open() = 0;

    // Takes entries in their order, and returns how many of them, from the first on: fewer when the
    // library's queue is full. The entries live until it returns. At most `limits.batch` come, never more
    // than the window has room for. It may wait for the receiver, as long as it heeds `abort`.
    virtual std::size_t offer(std::span<const entry_s> entries) = 0;

    // Tells what was settled since the last call. Does not wait.
    virtual poll_s poll() = 0;

    // Ends the link and forgets what is in flight. Called when open() succeeded: after a failure,
    // at a reload, and at the end, when the sender has waited for what is in flight.
    virtual void close() = 0;

    const sink_limits_s limits;
};

// A row of the table of sinks.
struct sink_type_s {
    std::string_view name;  // the word in "type"
    // What the schema cannot say of the settings: folders that do not exist, properties that a library
    // refuses. Lines such as "path: the folder /data does not exist". Opens no connection. nullptr: nothing.
    std::vector<std::string> (*findMistakes)(const sink_config_s& config);
    // Makes a sink whose settings were checked.
    std::unique_ptr<sink_c> (*make)(const sink_config_s& config, sink_context_s context);
};

// Nothing for a type that does not exist.
const sink_type_s* findSinkType(std::string_view name);

// Makes of the sinks of this folder.
std::vector<std::string> findFileMistakes(const sink_config_s& config);
std::unique_ptr<sink_c> makeFileSink(const sink_config_s& config, sink_context_s context);
std::vector<std::string> findKafkaMistakes(const sink_config_s& config);
std::unique_ptr<sink_c> makeKafkaSink(const sink_config_s& config, sink_context_s context);
std::vector<std::string> findMqttMistakes(const sink_config_s& config);
std::unique_ptr<sink_c> makeMqttSink(const sink_config_s& config, sink_context_s context);
std::vector<std::string> findWebhookMistakes(const sink_config_s& config);
std::unique_ptr<sink_c> makeWebhookSink(const sink_config_s& config, sink_context_s context);
std::vector<std::string> findZmqMistakes(const sink_config_s& config);
std::unique_ptr<sink_c> makeZmqSink(const sink_config_s& config, sink_context_s context);
