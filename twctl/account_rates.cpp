// SPDX-License-Identifier: MIT
// The rates are differences of two accounts over the time between their replies.
#include "account_rates.hpp"

#include <unistd.h>
#include <zmq.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "account_reply.hpp"
#include "exit_status.hpp"
#include "sockets.hpp"
#include "terminal.hpp"

namespace {

// What grows, and when it was asked for.
struct sample_s {
    std::string since;  // of the daemon: another text after it has started again
    counts_t counts;
    std::string closing;
    std::chrono::steady_clock::time_point time;
};

bool takeSample(const daemon_s& daemon, sample_s* sample, int* status) {
    account_s account;
    if (!askAccount(daemon, &account, status)) {
        return false;
    }
    *sample = {.since = account.members.value("since", nlohmann::json()).dump(),
               .counts = {{"tagPackets", account.tagPackets}},
               .closing = closingLine(account),
               .time = std::chrono::steady_clock::now()};
    std::ranges::copy_if(account.fates, std::back_inserter(sample->counts),
                         [](const auto& fate) { return fate.first != "pending"; });
    sample->counts.emplace_back("unheard", countAt(account.members, "unheard"));
    return true;
}

std::string rateText(std::uint64_t before, std::uint64_t now, double seconds) {
    char text[64];
    std::snprintf(text, sizeof text, "%.1f", static_cast<double>(now - before) / seconds);
    return text;
}

// A line for programs, or the lines of the table.
std::vector<std::string> linesOf(const sample_s& before, const sample_s& now, bool onTerminal) {
    const double seconds = std::chrono::duration<double>(now.time - before.time).count();
    std::vector<std::string> table{"                 per second         total"};
    std::string line;
    for (std::size_t i = 0; i < now.counts.size(); ++i) {
        const auto& [name, count] = now.counts[i];
        const std::string rate = rateText(before.counts[i].second, count, seconds);
        line += (i == 0 ? "" : "  ") + name + " " + rate;
        char row[128];
        std::snprintf(row, sizeof row, "%-12.40s %14s %13llu", name.c_str(), rate.c_str(),
                      static_cast<unsigned long long>(count));
        table.emplace_back(row);
    }
    table.push_back(now.closing);
    return onTerminal ? table : std::vector<std::string>{line};
}

// Shows the lines; false when standard output does not take them, with the status in *status.
bool show(const std::vector<std::string>& lines, bool onTerminal, std::size_t* drawn, int* status) {
    const int error = onTerminal ? drawLines(lines, drawn) : writeLine(lines.front(), true);
    if (error != 0 && error != EPIPE) {
        std::fprintf(stderr, "twctl: standard output: %s\n", std::strerror(error));
        *status = exitTrouble;
    }
    return error == 0;
}

// Waits for the moment. False when a signal comes or the reader of standard output goes away.
bool waitUntil(const deadline_t& moment, int signals) {
    zmq_pollitem_t items[] = {{nullptr, signals, ZMQ_POLLIN, 0}, {nullptr, STDOUT_FILENO, ZMQ_POLLERR, 0}};
    zmq_poll(items, 2, millisecondsLeft(moment));
    return items[0].revents == 0 && items[1].revents == 0;
}

// The names are those of the same daemon, so that rates can be made.
bool areComparable(const sample_s& before, const sample_s& now) {
    return before.since == now.since &&
           std::ranges::equal(before.counts, now.counts, [](const auto& a, const auto& b) {
               return a.first == b.first && a.second <= b.second;
           });
}

}  // namespace

int showRates(const daemon_s& daemon, double interval, double seconds) {
    const descriptor_s signals{openSignals()};
    const bool onTerminal = isatty(STDOUT_FILENO) == 1;
    const deadline_t end = seconds > 0 ? deadlineIn(seconds) : deadline_t{};
    std::size_t drawn = 0;
    int status = exitSuccess;
    sample_s before;
    if (!takeSample(daemon, &before, &status)) {
        return status;
    }
    for (deadline_t due; due != end || !end;) {
        due = deadlineIn(interval);
        due = end ? std::min(*due, *end) : *due;
        sample_s now;
        if (!waitUntil(due, signals.fd) || !takeSample(daemon, &now, &status)) {
            break;
        }
        if (!areComparable(before, now)) {
            std::fprintf(stderr, "twctl: the daemon has restarted\n");
        } else if (!show(linesOf(before, now, onTerminal), onTerminal, &drawn, &status)) {
            break;
        }
        before = now;
    }
    return status;
}
