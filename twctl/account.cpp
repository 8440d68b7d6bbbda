// SPDX-License-Identifier: MIT
// The table for people. Members that the reply does not have are left out, and fates that this
// client does not know are shown by their names.
#include "account.hpp"

#include <algorithm>
#include <cstdio>

#include "account_rates.hpp"
#include "account_reply.hpp"
#include "command_words.hpp"
#include "exit_status.hpp"
#include "fates.hpp"
#include "sockets.hpp"

namespace {

using nlohmann::json;

// Of a fate, for people. A packet may wait for one.
std::string_view textOf(std::string_view fate) {
    const auto* row = std::ranges::find(vocabulary::fates, fate, &vocabulary::fate_s::name);
    return row != vocabulary::fates.end()    ? row->text
           : fate == vocabulary::pendingFate ? "not decided yet"
                                             : "";
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
    text += members.contains("simulation") ? lineOf("simulation", "makes up the reads now") : "";
    text += countLine(members, "listeners", "listeners", " now");
    for (const char* other : {"lines", "events", "news"}) {
        text += countsLine(members, other, other, {"sent", "refused"});
    }
    return text + antennaLines(members) + "\n" + closingLine(account);
}

}  // namespace

int runAccount(const daemon_s& daemon, const account_request_s& request) {
    if (request.rates) {
        return showRates(daemon, request.interval, request.seconds);
    }
    account_s account;
    int status = exitSuccess;
    if (!askAccount(daemon, &account, &status)) {
        return status;
    }
    status = printText(request.json ? account.members.dump() : table(account));
    return status == exitSuccess && !isClosed(account) ? exitFailure : status;
}
