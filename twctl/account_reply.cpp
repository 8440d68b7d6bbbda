// SPDX-License-Identifier: MIT
#include "account_reply.hpp"

#include <algorithm>
#include <cstdio>

#include "command_words.hpp"
#include "exit_status.hpp"
#include "fates.hpp"
#include "sockets.hpp"

namespace {

using nlohmann::json;

const std::string requestWord(vocabulary::account.word);

// False when the object is not an account.
bool readAccount(const json& members, account_s* account) {
    if (!members.is_object() || !members.contains("tagPackets") || !members.contains("fates") ||
        !members["tagPackets"].is_number_unsigned() || !members["fates"].is_object()) {
        return false;
    }
    account->members = members;
    account->tagPackets = countAt(members, "tagPackets");
    account->fates = countsOf(members["fates"], fateNames());
    return true;
}

std::uint64_t sumOf(const counts_t& counts) {
    std::uint64_t sum = 0;
    for (const auto& [name, count] : counts) {
        sum += count;
    }
    return sum;
}

}  // namespace

std::vector<std::string_view> fateNames() {
    std::vector<std::string_view> names;
    for (const vocabulary::fate_s& fate : vocabulary::fates) {
        names.push_back(fate.name);
    }
    names.push_back(vocabulary::pendingFate);
    return names;
}

counts_t countsOf(const json& object, const std::vector<std::string_view>& first) {
    counts_t counts;
    const auto take = [&](const std::string& name, const json& value) {
        if (value.is_number_unsigned()) {
            counts.emplace_back(name, value.get<std::uint64_t>());
        }
    };
    for (const std::string_view name : first) {
        if (object.is_object() && object.contains(name)) {
            take(std::string(name), object[std::string(name)]);
        }
    }
    for (const auto& [name, value] : object.items()) {
        if (std::ranges::find(first, name) == first.end()) {
            take(name, value);
        }
    }
    return counts;
}

std::uint64_t countAt(const json& object, std::string_view name) {
    const auto member = object.find(name);
    return member != object.end() && member->is_number_unsigned() ? member->get<std::uint64_t>() : 0;
}

bool askAccount(const daemon_s& daemon, account_s* account, int* status) {
    std::string reply;
    *status = askDaemon(daemon, requestWord, &reply);
    if (*status != exitSuccess) {
        return false;
    }
    if (isFailure(reply)) {
        *status = printReply(reply);
        return false;
    }
    if (!readAccount(json::parse(bodyOf(reply), nullptr, false), account)) {
        std::fprintf(stderr, "twctl: the reply is not an account: %s\n", reply.c_str());
        *status = exitTrouble;
        return false;
    }
    return true;
}

bool isClosed(const account_s& account) {
    return sumOf(account.fates) == account.tagPackets;
}

std::string closingLine(const account_s& account) {
    const std::uint64_t sum = sumOf(account.fates), packets = account.tagPackets;
    const std::uint64_t rest = std::max(sum, packets) - std::min(sum, packets);
    const std::string number = std::to_string(rest);
    return rest == 0 ? "closes: yes"
           : sum < packets
               ? "closes: no, " + number + (rest == 1 ? " packet has" : " packets have") + " no fate"
               : "closes: no, " + number + (rest == 1 ? " fate has" : " fates have") + " no packet";
}

std::optional<account_numbers_s> askAccountNumbers(const std::string& endpoint) {
    constexpr double patience = 1.0;
    constexpr const char* heldBackFates[] = {"heldBack", "superseded", "notText"};
    std::string reply;
    account_s account;
    if ((ipcFile(endpoint) && !hasLiveListener(endpoint)) ||
        exchangeText(endpoint, requestWord, patience, &reply) != exchange_e::answered ||
        !readAccount(json::parse(bodyOf(reply), nullptr, false), &account)) {
        return std::nullopt;
    }
    const json& counts = account.members["fates"];
    account_numbers_s numbers{.since = account.members.value("since", json()).dump(),
                              .next = countAt(account.members, "nextEventNum"),
                              .heldBack = 0,
                              .pending = countAt(counts, "pending")};
    for (const char* fate : heldBackFates) {
        numbers.heldBack += countAt(counts, fate);
    }
    return numbers;
}
