// SPDX-License-Identifier: MIT
// The reply to "account": what became of every tag packet of the radio. The daemon counts each
// packet's fate, and the sum of the fates is the number of packets at any moment.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "requests.hpp"

// The counts of an account by name.
using counts_t = std::vector<std::pair<std::string, std::uint64_t>>;

// An account, read from a reply.
struct account_s {
    nlohmann::json members;  // all of them, as the daemon sent them
    std::uint64_t tagPackets;
    counts_t fates;  // "pending" too
};

// Asks for an account. False, with what is wrong on standard error and in *status, when none came.
bool askAccount(const daemon_s& daemon, account_s* account, int* status);

// The names of the fates, in the order of the table, with "pending".
std::vector<std::string_view> fateNames();

// The members of an object that are counts, those of `first` in front.
counts_t countsOf(const nlohmann::json& object, const std::vector<std::string_view>& first);

// An unsigned member of an object, or 0.
std::uint64_t countAt(const nlohmann::json& object, std::string_view name);

// "closes: yes", or how many packets have no fate. A closed account has as many fates as packets.
bool isClosed(const account_s& account);
std::string closingLine(const account_s& account);

// What an account says about the numbers of the reports. The default is a daemon that has just
// started.
struct account_numbers_s {
    std::string since;           // when the daemon started to count
    std::uint64_t next = 0;      // the number of the next report
    std::uint64_t heldBack = 0;  // reports that have a number and were not to be sent
    std::uint64_t pending = 0;   // 1 when the last number's report may still be sent
};

// The numbers of the daemon with this reply socket. Nothing, without a word, when it does not
// answer within a second or does not have an account.
std::optional<account_numbers_s> askAccountNumbers(const std::string& endpoint);
