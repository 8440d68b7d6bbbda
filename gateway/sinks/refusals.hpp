// SPDX-License-Identifier: MIT
// Entries that a receiver refuses for good: they are kept in the dead-letter file, and the rest goes on in
// order. A receiver that refuses a batch, or ends the connection, does not tell which entry it means. The
// sink then suspects all that were in flight, begins anew and sends each of these alone.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>

#include "dead_letter.hpp"

// For the sender thread of one sink.
class refusals_c {
  public:
    explicit refusals_c(const sink_config_s& config) : sink(config.name), deadLetter(config) {}

    // Entries up to `last` have to go alone, also when they come again.
    void suspect(std::int64_t last) { suspectUpTo = std::max(suspectUpTo, last); }
    bool isSuspect(std::int64_t seq) const { return seq <= suspectUpTo; }

    // Keeps the entry and logs it. The reason when it cannot be kept: then it is not set aside.
    std::optional<std::string> setAside(const entry_s& entry, const std::string& reason);
    // Whether it was set aside already: after a new begin it comes again, and must not be sent.
    bool wasSetAside(std::int64_t seq) const { return aside.contains(seq); }
    // Entries below `seq` do not come again.
    void forgetBelow(std::int64_t seq) { aside.erase(aside.begin(), aside.lower_bound(seq)); }

  private:
    const std::string sink;
    dead_letter_c deadLetter;
    std::int64_t suspectUpTo = 0;
    std::set<std::int64_t> aside;
};
