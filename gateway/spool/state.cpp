// SPDX-License-Identifier: MIT
#include "state.hpp"

#include <algorithm>
#include <iterator>

boot_row_s boot_list_c::add(const std::string& reader, std::int64_t name) {
    const std::lock_guard guard(mutex);
    const std::int64_t id = boots.empty() ? 1 : boots.rbegin()->first + 1;
    return boots[id] = {id, reader, name};
}

void boot_list_c::put(const boot_row_s& boot) {
    const std::lock_guard guard(mutex);
    boots[boot.id] = boot;
}

boot_row_s boot_list_c::find(std::int64_t id) const {
    const std::lock_guard guard(mutex);
    const auto boot = boots.find(id);
    return boot == boots.end() ? boot_row_s() : boot->second;
}

std::vector<boot_row_s> boot_list_c::all() const {
    const std::lock_guard guard(mutex);
    std::vector<boot_row_s> list;
    for (const auto& [id, boot] : boots) {
        list.push_back(boot);
    }
    return list;
}

void work_s::append(work_s* more) {
    std::ranges::move(more->entries, std::back_inserter(entries));
    std::ranges::move(more->boots, std::back_inserter(boots));
    if (more->sources) {
        sources = std::move(more->sources);
    }
    for (const auto& [sink, some] : more->progress) {
        add(&progress[sink], some);
    }
    bytes += more->bytes;
    isAwaited = more->isAwaited;
    *more = {};
}

void add(spool_c::progress_s* sum, const spool_c::progress_s& more) {
    if (more.jumps != sum->jumps) {
        sum->jumps = more.jumps;
        sum->cursor = 0;
        sum->setAside = 0;
    }
    sum->cursor = std::max(sum->cursor, more.cursor);
    sum->setAside += more.setAside;
    sum->delivered += more.delivered;
    sum->retried += more.retried;
}

std::int64_t state_s::settledUpTo() const {
    const auto lowest = std::ranges::min_element(sinks, {}, &sink_account_s::cursor);
    return lowest == sinks.end() ? 0 : std::min(lowest->cursor, snapshot.value_or(lowest->cursor));
}
