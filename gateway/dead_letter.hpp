// SPDX-License-Identifier: MIT
// Where a sink keeps the entries that its receiver refuses for good, for people to look into and send
// again: a file of JSON lines,
//
//   {"at":"2026-03-02T10:15:30.123456Z","sink":"erp","reason":"HTTP 400","event":{structured CloudEvent}}
//
// in the order in which they were refused. A line that would take the file beyond its limit begins a new
// one; the full file gets ".1" behind its name and replaces the one before it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "config.hpp"
#include "event.hpp"

// For the sender thread of one sink.
class dead_letter_c {
  public:
    // The file is `config.deadLetterFile`, of up to `config.deadLetterBytes`; made when it is needed.
    explicit dead_letter_c(const sink_config_s& config);

    // Appends one line and syncs it: then the entry may count as set aside. Else the reason
    // ("/var/lib/twgate/erp.dead.jsonl: No space left on device"), and nothing was appended; the sink then
    // fails with this reason and offers the entry again later.
    std::optional<std::string> keep(const entry_s& entry, std::string_view reason);

  private:
    const std::string sink, file;
    const std::uint64_t mostBytes;
};
