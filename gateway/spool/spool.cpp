// SPDX-License-Identifier: MIT
// What other threads ask of the writer.
#include "spool.hpp"

#include <algorithm>

#include "wakeup.hpp"
#include "writer.hpp"

namespace {

constexpr std::size_t mostHeld = 64UL << 20;  // bytes in memory that are not committed
constexpr std::size_t overhead = 128;         // bytes of an entry beside its body

}  // namespace

spool_c::spool_c() : writer(std::make_unique<writer_c>()) {}

spool_c::~spool_c() {
    stop();
}

bool spool_c::open(const spool_config_s& config, std::string* error) {
    return writer->open(config, error);
}

void spool_c::start() {
    writer->thread = std::thread([this] { writer->run(); });
}

void spool_c::stop() {
    if (writer->thread.joinable()) {
        {
            const std::lock_guard guard(writer->mutex);
            writer->ending = true;
        }
        writer->wanted.notify_one();
        writer->thread.join();
        writer->close();
    }
}

void spool_c::flush() {
    std::unique_lock guard(writer->mutex);
    writer->flushWanted = true;
    writer->wanted.notify_one();
    writer->done.wait(guard, [&] { return !writer->flushWanted; });
}

void spool_c::configure(const spool_config_s& config) {
    const std::lock_guard guard(writer->mutex);
    writer->newLimits = config;
    writer->wanted.notify_one();
}

void spool_c::watchPresence(std::function<void(const std::vector<new_entry_s>&)> watch) {
    writer->watch = std::move(watch);
}

std::vector<std::int64_t> spool_c::setSinks(const std::vector<sink_config_s>& sinks) {
    std::unique_lock guard(writer->mutex);
    writer->newSinks = sinks;
    writer->wanted.notify_one();
    const auto idOfName = [&](const std::string& name) {
        const auto sink = std::ranges::find(writer->committed.sinks, name, &sink_account_s::name);
        return sink == writer->committed.sinks.end() ? 0 : sink->id;
    };
    std::vector<std::int64_t> ids(sinks.size());
    writer->done.wait(guard, [&] {
        std::ranges::transform(sinks, ids.begin(),
                               [&](const sink_config_s& sink) { return idOfName(sink.name); });
        return !writer->newSinks && std::ranges::find(ids, 0) == ids.end();
    });
    return ids;
}

spool_account_s spool_c::account() const {
    const std::lock_guard guard(writer->mutex);
    return writer->committed;
}

std::uint64_t spool_c::pulse() const {
    return writer->pulse;
}

std::int64_t spool_c::addBoot(const std::string& reader, std::int64_t name) {
    const boot_row_s boot = writer->boots.add(reader, name);
    const std::lock_guard guard(writer->mutex);
    writer->queue.boots.push_back(boot);
    return boot.id;
}

void spool_c::take(std::vector<new_entry_s> entries, std::vector<source_account_s>* sources) {
    {
        const std::lock_guard guard(writer->mutex);
        for (new_entry_s& entry : entries) {
            source_account_s& source = (*sources)[entry.source];
            const std::size_t size = entry.body.size() + overhead;
            ++source.heard;
            if (writer->held + size > mostHeld) {
                ++source.refused;
                continue;
            }
            ++source.taken;
            writer->held += size;
            writer->queue.bytes += size;
            writer->queue.entries.push_back(std::move(entry));
        }
        writer->queue.sources = *sources;
    }
    writer->wanted.notify_one();
}

void spool_c::moveCursor(std::int64_t sink, const progress_s& progress, bool soon) {
    const std::lock_guard guard(writer->mutex);
    add(&writer->queue.progress[sink], progress);
    writer->queue.isAwaited |= soon;
    writer->wanted.notify_one();
}

spool_c::position_s spool_c::positionOf(std::int64_t sink) const {
    const std::lock_guard guard(writer->mutex);
    const auto found = std::ranges::find(writer->committed.sinks, sink, &sink_account_s::id);
    return found == writer->committed.sinks.end() ? position_s() : position_s{found->cursor, found->jumps};
}

void spool_c::wakeAtCommit(std::int64_t sink, wakeup_c* wakeup) {
    const std::lock_guard guard(writer->mutex);
    wakeup == nullptr ? void(writer->wakeups.erase(sink)) : void(writer->wakeups[sink] = wakeup);
}
