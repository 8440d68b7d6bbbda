// SPDX-License-Identifier: MIT
#include "sinks/refusals.hpp"

#include <spdlog/spdlog.h>

std::optional<std::string> refusals_c::setAside(const entry_s& entry, const std::string& reason) {
    if (std::optional<std::string> error = deadLetter.keep(entry, reason)) {
        return error;
    }
    spdlog::error("sink {}: {}/{} with {} bytes is set aside: {}", sink, entry.reader, idOf(entry),
                  entry.body.size(), reason);
    aside.insert(entry.seq);
    return std::nullopt;
}
