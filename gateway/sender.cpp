// SPDX-License-Identifier: MIT
#include "sender.hpp"

#include <spdlog/spdlog.h>

#include <algorithm>
#include <atomic>
#include <deque>
#include <future>
#include <mutex>
#include <random>
#include <stop_token>
#include <thread>

#include "wakeup.hpp"

namespace {

using namespace std::chrono_literals;
using steady_t = std::chrono::steady_clock;
using moment_t = steady_t::time_point;

constexpr std::size_t readAtOnce = 2'000;  // entries
constexpr auto idleTick = 500ms;
constexpr std::int64_t freshAge = 2'000'000;  // microseconds; who sends older entries is catching up
constexpr double mostSaved = 0.1;             // s of the rate that may be sent at once

// An entry that was offered, until the spool has committed that it is settled.
struct flight_s {
    std::int64_t seq = 0;
    bool settled = false;
    bool aside = false;  // settled so
    bool isOverflow = false;
};

// Lets so many entries a second go.
class rate_c {
  public:
    explicit rate_c(double perSecond) : rate(perSecond) {}
    // How many may go now.
    std::size_t allowance(moment_t now) {
        const double passed = std::chrono::duration<double>(now - last).count();
        last = now;
        saved = std::min(saved + passed * rate, std::max(1.0, rate * mostSaved));
        return static_cast<std::size_t>(saved);
    }
    void spend(std::size_t count) { saved -= static_cast<double>(count); }
    // Until one entry may go.
    std::chrono::duration<double> wait() const {
        return std::chrono::duration<double>(std::max(0.0, 1.0 - saved) / rate);
    }

  private:
    double rate;
    double saved = 0.0;
    moment_t last = steady_t::now();
};

}  // namespace

struct sender_c::impl_s {
    impl_s(const sink_config_s& config, const sink_account_s& own, spool_c* target);

    void run();
    bool openSink();
    void fail(const failure_s& failure);
    void followCursor();
    void takePoll();
    void settle(const settled_s& settled);
    void post();
    void offerMore();
    std::size_t offer(std::vector<entry_s>* entries);
    void passOver(std::vector<entry_s>* entries);
    bool isFinished();
    moment_t nextLook() const;
    void setTrouble(const std::string& text);

    const sink_config_s config;
    sink_account_s account;
    spool_c* const spool;
    spool_reader_c reader;
    wakeup_c wakeup;
    std::stop_source abort;
    std::unique_ptr<sink_c> sink;
    std::jthread thread;

    // Of the sender thread.
    bool isOpen = false;
    std::deque<flight_s> flights;   // in ascending order of seq; what fills the window
    std::size_t done = 0;           // flights at the front that are settled, and before readPosition
    std::size_t unsettled = 0;      // flights
    std::int64_t readPosition = 0;  // entries up to here were offered, or do not concern the sink
    std::int64_t highest = 0;       // seq that was ever offered
    std::int64_t lastOverflow = 0;  // seq of the last one offered
    std::int64_t posted = 0;        // cursor that the spool was told
    spool_c::progress_s progress;   // that the spool was not told yet
    std::chrono::milliseconds backOff{0};
    moment_t notBefore{};                 // the next attempt
    moment_t lastProgress{};              // since which nothing was settled while entries are in flight
    moment_t batchDue = moment_t::max();  // when a batch that is not full goes
    bool nothingMore = false;             // the last look has found no entry
    bool roomLeft = true;                 // the last offer was taken whole
    bool isBlocked = false;               // by an entry in flight whose place an overflow has
    bool sawDrain = false;
    bool limited = false;  // the rate holds entries back
    rate_c rate;
    std::mt19937 random{std::random_device{}()};

    std::promise<void> ended;
    std::future<void> end = ended.get_future();
    std::atomic<bool> draining{false};
    std::atomic<bool> deliverRest{true};
    std::atomic<moment_t> drainEnd{moment_t::max()};
    mutable std::mutex mutex;  // of the status
    sender_status_s state;
};

sender_c::impl_s::impl_s(const sink_config_s& sinkConfig, const sink_account_s& own, spool_c* target)
    : config(sinkConfig), account(own), spool(target), reader(target), rate(sinkConfig.maxRate) {
    readPosition = posted = highest = account.cursor;
    sink = findSinkType(config.type)
               ->make(config, {.wake = [this] { wakeup.wake(); }, .abort = abort.get_token()});
    backOff = sink->limits.firstBackOff;
    spool->wakeAtCommit(account.id, &wakeup);
    thread = std::jthread([this] { run(); });
}

void sender_c::impl_s::setTrouble(const std::string& text) {
    const std::lock_guard guard(mutex);
    const bool up = isOpen && text.empty();
    if (up != state.up || text != state.trouble) {
        spdlog::log(up || text == connecting ? spdlog::level::info : spdlog::level::warn, "sink {}: {}",
                    config.name, up ? "up" : text);
    }
    state.up = up;
    state.trouble = text;
}

void sender_c::impl_s::run() {
    while (!isFinished()) {
        followCursor();
        if (!isOpen && steady_t::now() >= notBefore && openSink()) {
            lastProgress = steady_t::now();
        }
        if (isOpen) {
            takePoll();
        }
        if (isOpen) {
            offerMore();
        }
        post();
        {
            const std::lock_guard guard(mutex);
            state.inFlight = unsettled;
        }
        if (!isFinished()) {
            wakeup.waitUntil(std::min(nextLook(), drainEnd.load()));
        }
    }
    if (isOpen) {
        takePoll();
    }
    post();
    if (isOpen) {
        sink->close();
    }
    sink.reset();
    ended.set_value();
}

// At its end a sender waits for everything; one that cannot get through ends at the time given.
bool sender_c::impl_s::isFinished() {
    if (!draining) {
        return false;
    }
    if (!std::exchange(sawDrain, true)) {
        nothingMore = false;  // the last commit may have come since
    }
    if (steady_t::now() >= drainEnd.load()) {
        return true;
    }
    return unsettled == 0 && (!deliverRest || (isOpen && nothingMore));
}

bool sender_c::impl_s::openSink() {
    if (const std::optional<failure_s> failure = sink->open()) {
        fail(*failure);
        return false;
    }
    isOpen = true;  // up or not, the next poll tells
    return true;
}

// Everything that is not settled is to be offered again; what is stays, and is passed over then.
void sender_c::impl_s::fail(const failure_s& failure) {
    if (isOpen) {
        post();
        sink->close();
        isOpen = false;
    }
    const auto first = std::ranges::find(flights, false, &flight_s::settled);
    readPosition = first == flights.end() ? readPosition : std::min(readPosition, first->seq - 1);
    std::erase_if(flights, [](const flight_s& flight) { return !flight.settled; });
    unsettled = 0;
    roomLeft = true;
    nothingMore = false;
    const auto least = backOff / 2;
    std::uniform_int_distribution<std::chrono::milliseconds::rep> jitter(0, least.count());
    notBefore =
        steady_t::now() + failure.notBefore.value_or(least + std::chrono::milliseconds(jitter(random)));
    backOff = std::min(backOff * 2, sink->limits.lastBackOff);
    setTrouble(failure.text);
}

// What is committed no longer fills the window. When the spool has dropped entries, its cursor has moved by
// itself, and an overflow stands behind it.
void sender_c::impl_s::followCursor() {
    const spool_c::position_s committed = spool->positionOf(account.id);
    const bool isJump = committed.jumps != progress.jumps;
    while (!flights.empty() && flights.front().seq <= committed.cursor) {
        unsettled -= flights.front().settled ? 0 : 1;
        done -= done > 0 ? 1 : 0;
        flights.pop_front();
    }
    if (isJump) {
        done = 0;
        readPosition = posted = committed.cursor;
        progress.jumps = committed.jumps;
        progress.setAside = 0;
        nothingMore = false;
    }
}

void sender_c::impl_s::takePoll() {
    poll_s poll = sink->poll();
    for (const settled_s& settled : poll.settled) {
        settle(settled);
    }
    const auto now = steady_t::now();
    if (!poll.settled.empty() || unsettled == 0) {
        lastProgress = now;
    }
    if (!poll.settled.empty()) {
        backOff = sink->limits.firstBackOff;
        roomLeft = true;
    }
    const auto patience = sink->limits.confirmWithin;
    if (!poll.failure && patience > 0ms && now - lastProgress > patience) {
        poll.failure = failure_s{"nothing was confirmed for " + std::to_string(patience.count()) + " ms"};
    }
    poll.failure ? fail(*poll.failure) : setTrouble(poll.down);
}

void sender_c::impl_s::settle(const settled_s& settled) {
    auto flight = std::ranges::lower_bound(flights, settled.first, {}, &flight_s::seq);
    for (; flight != flights.end() && flight->seq <= settled.last; ++flight) {
        if (!flight->settled) {
            flight->settled = true;
            --unsettled;
            flight->aside = settled.outcome == settled_s::setAside;
        }
    }
}

// Tells the spool how far everything is settled. After a jump of the cursor, and after a failure, there may
// be settled entries behind some that have not been offered yet.
void sender_c::impl_s::post() {
    while (done < flights.size() && flights[done].settled && flights[done].seq <= readPosition) {
        progress.setAside += flights[done].aside ? 1 : 0;
        ++done;
    }
    progress.cursor = done == flights.size() ? readPosition : std::min(readPosition, flights[done].seq - 1);
    if (progress.cursor > posted || progress.delivered > 0) {
        progress.cursor = std::max(progress.cursor, posted);
        // The window is not to be full of what is settled.
        const std::size_t window = sink->limits.window;
        const bool isWaiting = done * 2 >= window || (done > 0 && flights.size() >= window);
        spool->moveCursor(account.id, progress, isWaiting);
        posted = progress.cursor;
        progress = {.jumps = progress.jumps};
    }
}

// Reads on and offers, until the window is full or there is nothing more.
void sender_c::impl_s::offerMore() {
    const sink_limits_s& limits = sink->limits;
    std::vector<entry_s> entries;
    limited = false;
    if (draining && !deliverRest) {
        return;
    }
    roomLeft = true;
    batchDue = moment_t::max();
    while (roomLeft && flights.size() < limits.window) {
        std::int64_t readUpTo = readPosition;
        std::string error;
        const std::size_t most = std::min({limits.batch, limits.window - flights.size(), readAtOnce});
        if (!reader.read(account, readPosition, most, &entries, &readUpTo, &error)) {
            setTrouble("the spool cannot be read: " + error);
            return;
        }
        nothingMore = readUpTo == readPosition;
        if (nothingMore) {
            return;
        }
        if (entries.empty()) {
            readPosition = readUpTo;
            continue;
        }
        if (entries.size() < most && limits.every > 0ms && !draining) {
            const auto age = std::chrono::microseconds(nowMicroseconds() - entries.front().takenAt);
            if (age < limits.every) {
                batchDue = steady_t::now() + limits.every - std::max(age, std::chrono::microseconds(0));
                return;
            }
        }
        const std::size_t wanted = entries.size();
        const std::int64_t last = entries.back().seq;
        const std::size_t taken = offer(&entries);
        if (taken < wanted) {
            return;
        }
        readPosition = std::max(last, readUpTo);
        takePoll();
        if (!isOpen) {
            return;
        }
        post();
    }
}

// After a jump of the cursor or a failure some of the entries are in flight, or settled, already. An overflow
// may stand in the place of a dropped entry that is still in flight: it waits until that one is settled.
void sender_c::impl_s::passOver(std::vector<entry_s>* entries) {
    std::size_t kept = 0;
    for (entry_s& entry : *entries) {
        const auto flight = std::ranges::lower_bound(flights, entry.seq, {}, &flight_s::seq);
        const bool isKnown = flight != flights.end() && flight->seq == entry.seq;
        if (isKnown && entry.stream == stream_e::overflow && !flight->isOverflow) {
            if (!flight->settled) {
                isBlocked = true;
                break;
            }
            flights.erase(flight);
        } else if (isKnown) {
            continue;
        }
        std::swap((*entries)[kept++], entry);
    }
    entries->resize(kept);
}

// Returns how many of them are done with.
std::size_t sender_c::impl_s::offer(std::vector<entry_s>* entries) {
    const std::size_t wanted = entries->size();
    isBlocked = false;
    passOver(entries);
    if (entries->empty()) {
        return isBlocked ? 0 : wanted;
    }
    std::size_t allowed = entries->size();
    const bool catchingUp = nowMicroseconds() - entries->front().takenAt > freshAge;
    if (config.maxRate > 0.0 && catchingUp) {
        allowed = std::min(allowed, rate.allowance(steady_t::now()));
        limited = allowed < entries->size();
        if (allowed == 0) {
            return 0;
        }
    }
    const std::size_t taken = sink->offer(std::span(*entries).first(allowed));
    if (catchingUp) {
        rate.spend(taken);
    }
    roomLeft = taken == allowed;
    for (std::size_t i = 0; i < taken; ++i) {
        const std::int64_t seq = (*entries)[i].seq;
        const bool isOverflow = (*entries)[i].stream == stream_e::overflow;
        flights.insert(std::ranges::upper_bound(flights, seq, {}, &flight_s::seq),
                       {.seq = seq, .isOverflow = isOverflow});
        ++unsettled;
        ++progress.delivered;
        const bool isAgain = isOverflow ? std::exchange(lastOverflow, seq) == seq : seq <= highest;
        progress.retried += isAgain ? 1 : 0;
        highest = std::max(highest, seq);
        readPosition = std::max(readPosition, seq);
    }
    return taken == entries->size() && !isBlocked ? wanted : 0;
}

moment_t sender_c::impl_s::nextLook() const {
    const auto now = steady_t::now();
    auto next = now + idleTick;
    if (!isOpen) {
        return std::min(next, notBefore);
    }
    if (unsettled > 0 || !roomLeft) {
        next = std::min(next, now + sink->limits.pollWithin);
    }
    if (limited) {
        next = std::min(next, now + std::chrono::duration_cast<steady_t::duration>(rate.wait()));
    }
    return std::min(next, batchDue);
}

sender_c::sender_c(const sink_config_s& config, const sink_account_s& sink, spool_c* spool)
    : impl(std::make_unique<impl_s>(config, sink, spool)) {}

sender_c::~sender_c() {
    drain(steady_t::now(), false);
    join();
}

void sender_c::drain(std::chrono::steady_clock::time_point end, bool deliverRest) {
    impl->drainEnd = end;
    impl->deliverRest = deliverRest;
    impl->draining = true;
    impl->wakeup.wake();
}

bool sender_c::hasEnded() {
    if (steady_t::now() >= impl->drainEnd.load()) {
        impl->abort.request_stop();
    }
    return impl->end.wait_for(0s) == std::future_status::ready;
}

void sender_c::join() {
    if (impl->thread.joinable()) {
        impl->end.wait_until(impl->drainEnd.load());
        hasEnded();
        impl->thread.join();
        impl->spool->wakeAtCommit(impl->account.id, nullptr);
    }
}

sender_status_s sender_c::status() const {
    const std::lock_guard guard(impl->mutex);
    return impl->state;
}
