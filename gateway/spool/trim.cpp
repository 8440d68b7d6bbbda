// SPDX-License-Identifier: MIT
#include "trim.hpp"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "store.hpp"

namespace {

constexpr std::int64_t trimmedAtOnce = 20'000;  // entries that all sinks have

// What one sink loses when entries are dropped.
struct loss_s {
    sink_account_s* sink = nullptr;
    std::uint64_t count = 0;      // those of an earlier overflow that goes with them included
    std::string first{}, last{};  // identities
    std::int64_t boot = 0;        // row of the last one's
    bool replaces = false;        // an earlier overflow that the sink has not taken
};

std::string overflowBody(const loss_s& loss) {
    const nlohmann::json body = {
        {"component", "twgate"},
        {"data",
         {{"count", loss.count}, {"first", loss.first}, {"last", loss.last}, {"sink", loss.sink->name}}},
        {"type", "overflow"}};
    return body.dump();
}

std::string identity(const boot_row_s& boot, const entry_s& entry) {
    entry_s named = entry;
    named.boot = boot.name;
    return boot.reader + "/" + idOf(named);
}

std::int64_t oldestAllowed(const spool_config_s& limits) {
    return nowMicroseconds() - static_cast<std::int64_t>(limits.maxAge) * 1'000'000;
}

bool isTooMuch(const spool_config_s& limits, const state_s& state) {
    return state.entries() > limits.maxEvents || state.bytes > limits.maxBytes;
}

// Up to where entries have to go: an even number at a time, so that not every commit has to drop some.
std::int64_t cutFor(store_c* store, const spool_config_s& limits, const state_s& next) {
    const auto most = static_cast<std::int64_t>(limits.maxEvents);
    const std::int64_t atOnce = std::clamp<std::int64_t>(most / 100, 100, 5'000);
    const std::int64_t cut = isTooMuch(limits, next) ? std::min(next.lastSeq, next.firstSeq + atOnce - 1)
                                                     : store->lastBefore(oldestAllowed(limits), atOnce);
    return std::min(cut, next.snapshot.value_or(cut));
}

// What a sink has not taken up to there, counted as dropped.
loss_s lossOf(store_c* store, const boot_list_c& boots, sink_account_s* sink, std::int64_t upTo) {
    loss_s loss{.sink = sink};
    store->forEach(*sink, sink->cursor, upTo, [&](const entry_s& entry) {
        std::string first, last;
        if (entry.stream == stream_e::overflow) {
            const nlohmann::json data = nlohmann::json::parse(entry.body).at("data");
            loss.count += data.at("count").get<std::uint64_t>();
            first = data.at("first");
            last = data.at("last");
            loss.replaces = true;
        } else {
            first = last = identity(boots.find(entry.boot), entry);
            ++loss.count;
            ++sink->dropped;
        }
        loss.first = loss.first.empty() ? first : loss.first;
        loss.last = last;
        loss.boot = entry.boot;
    });
    return loss;
}

void remove(store_c* store, state_s* next, std::int64_t upTo) {
    next->bytes -= store->removeUpTo(upTo);
    next->firstSeq = upTo + 1;
}

void insertOverflow(store_c* store, state_s* next, const loss_s& loss, std::int64_t seq) {
    const std::string body = overflowBody(loss);
    store->insert(seq, stream_e::overflow, loss.boot, static_cast<std::uint64_t>(loss.sink->id),
                  nowMicroseconds(), body);
    next->bytes += body.size();
    loss.sink->taken += loss.replaces ? 0 : 1;
}

// Drops all entries up to one, and tells each sink that had not taken all of them by an entry in a place
// that became free, the last of which is `upTo`. False when there are not enough places.
bool drop(store_c* store, const boot_list_c& boots, state_s* next, std::int64_t upTo) {
    const auto sinks = static_cast<std::int64_t>(next->sinks.size());
    for (std::int64_t round = 0; round < sinks; ++round) {
        for (const sink_account_s& sink : next->sinks) {
            // A sink that lacks only a few entries gets them.
            upTo = sink.cursor < upTo && upTo - sink.cursor < sinks ? sink.cursor : upTo;
        }
    }
    if (upTo < next->firstSeq) {
        return false;
    }
    std::vector<loss_s> losses;
    for (sink_account_s& sink : next->sinks) {
        if (sink.cursor < upTo) {
            const loss_s loss = lossOf(store, boots, &sink, upTo);
            sink.cursor = upTo;
            ++sink.jumps;
            if (loss.count > 0) {
                losses.push_back(loss);
            }
        }
    }
    remove(store, next, upTo);
    std::int64_t place = upTo;
    for (const loss_s& loss : losses) {
        insertOverflow(store, next, loss, place);
        next->firstSeq = place;
        loss.sink->cursor = --place;
        next->dropped = true;
    }
    return true;
}

}  // namespace

void trim(store_c* store, const boot_list_c& boots, const spool_config_s& limits, state_s* next,
          std::int64_t worth) {
    const std::int64_t before = next->firstSeq;
    const std::int64_t low = std::min(next->settledUpTo(), next->firstSeq + trimmedAtOnce);
    if (low - next->firstSeq + 1 >= worth) {
        remove(store, next, low);
    }
    for (int round = 0; round < 100 && isOver(store, limits, *next) &&
                        drop(store, boots, next, cutFor(store, limits, *next));
         ++round) {
    }
    if (next->firstSeq != before) {
        store->giveBack();
    }
}

bool isOver(store_c* store, const spool_config_s& limits, const state_s& state) {
    return isTooMuch(limits, state) || store->isOlder(oldestAllowed(limits));
}

bool isTrimDue(store_c* store, const spool_config_s& limits, const state_s& state) {
    return state.settledUpTo() >= state.firstSeq || isOver(store, limits, state);
}

void dropAll(store_c* store, state_s* next, std::int64_t boot) {
    next->firstSeq = next->lastSeq + 1;
    next->bytes = 0;
    next->snapshot.reset();
    for (sink_account_s& sink : next->sinks) {
        const loss_s loss{.sink = &sink, .count = sink.pending(), .boot = boot};
        sink.cursor = next->lastSeq;
        ++sink.jumps;
        if (loss.count > 0) {
            sink.dropped += loss.count;
            insertOverflow(store, next, loss, ++next->lastSeq);
        }
    }
    next->dropped = true;
}
