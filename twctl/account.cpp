// SPDX-License-Identifier: MIT
// The table for people. Members that the reply does not have are left out, and fates that this
// client does not know are shown by their names.
#include "account.hpp"

#include <algorithm>
#include <cstdio>

#include "account_rates.hpp"
#include "command_words.hpp"
#include "exit_status.hpp"
#include "sockets.hpp"

namespace {

using nlohmann::json;

constexpr const char* requestWord = "account";

// In the order of the table. `pending` is not a fate yet.
struct fate_s {
    std::string_view name;
    std::string_view text;  // for people
};
constexpr fate_s fates[] = {
    {"sent", "given to the socket"},
    {"filtered", "left out by the mode's tag filter"},
    {"heldBack", "held back by additional keys"},
    {"superseded", "still waiting for results when the next packet came"},
    {"notDecoded", "not understood by the engine's library"},
    {"notText", "with a text that is not UTF-8"},
    {"refused", "refused by the socket, whose queue was full"},
    {"noSocket", "while the form of the reports changed"},
    {"pending", "not decided yet"},
};

std::string_view textOf(std::string_view fate) {
    const auto* row = std::ranges::find(fates, fate, &fate_s::name);
    return row == std::end(fates) ? "" : row->text;
}

// The members of an object that are counts, those of `first` in front.
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

std::vector<std::string_view> fateNames() {
    std::vector<std::string_view> names;
    for (const fate_s& fate : fates) {
        names.push_back(fate.name);
    }
    return names;
}

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

std::string left(const std::string& text, std::size_t width) {
    return text + std::string(text.size() < width ? width - text.size() : 1, ' ');
}

std::string right(const std::string& text, std::size_t width) {
    return std::string(width - std::min(width, text.size()), ' ') + text;
}

constexpr std::size_t labelWidth = 15, countWidth = 12;  // of 999,999,999,999 packets

std::string lineOf(const std::string& label, const std::string& value) {
    return left(label, labelWidth) + value + "\n";
}

// "83.3 %" of all packets
std::string shareText(std::uint64_t count, std::uint64_t all) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f %%",
                  all == 0 ? 0.0 : 100.0 * static_cast<double>(count) / static_cast<double>(all));
    return text;
}

std::string fateLines(const account_s& account) {
    std::string text = lineOf("tag packets", right(std::to_string(account.tagPackets), countWidth));
    for (const auto& [name, count] : account.fates) {
        const std::string row = right(std::to_string(count), countWidth) +
                                right(shareText(count, account.tagPackets), 9) + "  " +
                                std::string(textOf(name));
        text += lineOf(name, row.substr(0, row.find_last_not_of(' ') + 1));
    }
    return text;
}

// {"OFF": 100, "BINARY": 0} as "OFF 100, BINARY 0"; nothing for what is not an object.
std::string countsLine(const json& members, const char* name, const char* label,
                       const std::vector<std::string_view>& first) {
    const auto object = members.find(name);
    if (object == members.end() || !object->is_object()) {
        return "";
    }
    std::string text;
    for (const auto& [key, count] : countsOf(*object, first)) {
        text += (text.empty() ? "" : ", ") + key + " " + std::to_string(count);
    }
    return lineOf(label, text);
}

std::string countLine(const json& members, const char* name, const char* label, const char* meaning) {
    return members.contains(name) ? lineOf(label, std::to_string(countAt(members, name)) + meaning) : "";
}

std::string numbersLine(const json& members) {
    const std::uint64_t first = countAt(members, "firstEventNum"), next = countAt(members, "nextEventNum");
    return !members.contains("nextEventNum") ? ""
           : next <= first
               ? lineOf("numbers", "none yet")
               : lineOf("numbers", std::to_string(first) + " to " + std::to_string(next - 1) + " (eventNum)");
}

// A row for each antenna, and a column for each fate that one of them has.
std::string antennaLines(const json& members) {
    const auto list = members.find("byAntenna");
    if (list == members.end() || !list->is_array() || list->empty()) {
        return "";
    }
    std::vector<std::string> columns{"antenna", "tagPackets"};
    for (const std::string_view fate : fateNames()) {
        if (std::ranges::any_of(*list, [&](const json& row) { return countAt(row, fate) > 0; })) {
            columns.emplace_back(fate);
        }
    }
    std::string text = "\n";
    const auto addRow = [&](const auto& cellOf) {
        for (const std::string& column : columns) {
            text += &column == &columns.front() ? left(cellOf(column), labelWidth)
                                                : right(cellOf(column), countWidth);
        }
        text += '\n';
    };
    addRow([](const std::string& column) { return column; });
    for (const json& row : *list) {
        addRow([&](const std::string& column) { return std::to_string(countAt(row, column)); });
    }
    return text;
}

std::string table(const account_s& account) {
    using namespace vocabulary;
    const json& members = account.members;
    const auto since = members.find("since");
    std::string text = since != members.end() && since->is_string() ? lineOf("since", *since) : "";
    text += fateLines(account);
    text += countsLine(members, "forms", "sent as",
                       {analyticsOff.name, analyticsString.name, analyticsBinary.name});
    text += countLine(members, "unheard", "unheard", " of the sent ones, since nobody was subscribed");
    text += numbersLine(members);
    text += countLine(members, "listeners", "listeners", " now");
    for (const char* other : {"lines", "events", "news"}) {
        text += countsLine(members, other, other, {"sent", "refused"});
    }
    return text + antennaLines(members) + "\n" + closingLine(account);
}

}  // namespace

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

int runAccount(const daemon_s& daemon, const account_request_s& request) {
    if (request.rates) {
        return showRates(daemon, request);
    }
    account_s account;
    int status = exitSuccess;
    if (!askAccount(daemon, &account, &status)) {
        return status;
    }
    status = printText(request.json ? account.members.dump() : table(account));
    return status == exitSuccess && !isClosed(account) ? exitFailure : status;
}
