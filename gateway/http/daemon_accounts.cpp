// SPDX-License-Identifier: MIT
#include "daemon_accounts.hpp"

#include <algorithm>
#include <iterator>

#include "command_words.hpp"
#include "event.hpp"
#include "twctl/sockets.hpp"

namespace {

using namespace std::chrono_literals;
using steady_t = std::chrono::steady_clock;

constexpr auto askEvery = 5s;
constexpr double patience = 1.0;  // s; the daemon answers at once, or is away

// "Success: {...}"
daemon_account_s ask(const source_config_s& source) {
    constexpr std::string_view success = "Success: ";
    std::string reply;
    const exchange_e outcome =
        exchangeText(source.requests, std::string(vocabulary::account.word), patience, &reply);
    daemon_account_s account{.at = nowMicroseconds() / 1'000, .account = {}, .trouble = {}};
    if (outcome != exchange_e::answered) {
        account.trouble = "no reply on " + source.requests;
    } else if (!reply.starts_with(success)) {
        account.trouble = "the daemon does not have an account";
    } else {
        account.account = parseShallow(std::string_view(reply).substr(success.size()));
        if (!account.account.is_object()) {
            account.account = nullptr;
            account.trouble = "the daemon's reply is not an account";
        }
    }
    return account;
}

}  // namespace

daemon_accounts_c::~daemon_accounts_c() {
    stop();
}

void daemon_accounts_c::stop() {
    if (thread.joinable()) {
        thread.request_stop();
        thread.join();
    }
}

void daemon_accounts_c::configure(const std::vector<source_config_s>& sources) {
    stop();
    const std::lock_guard guard(mutex);
    asked.clear();
    std::ranges::copy_if(sources, std::back_inserter(asked),
                         [](const source_config_s& source) { return !source.requests.empty(); });
    if (!asked.empty()) {
        thread = std::jthread([this](const std::stop_token& stopToken) { run(stopToken); });
    }
}

void daemon_accounts_c::run(const std::stop_token& stop) {
    while (!stop.stop_requested()) {
        {
            std::unique_lock guard(mutex);
            const auto due = lastRound + askEvery;
            changed.wait_until(guard, stop, std::max(due, steady_t::now() + 1s),
                               [&] { return wanted && steady_t::now() >= due; });
            if (stop.stop_requested() || steady_t::now() < due || (!wanted && !picture->isWatched())) {
                continue;
            }
        }
        for (const source_config_s& source : asked) {
            if (!stop.stop_requested()) {
                picture->takeAccount(source.reader, ask(source));
            }
        }
        const std::lock_guard guard(mutex);
        wanted = false;
        lastRound = steady_t::now();
        changed.notify_all();
    }
}

void daemon_accounts_c::refresh(std::chrono::milliseconds longest) {
    std::unique_lock guard(mutex);
    if (asked.empty() || steady_t::now() < lastRound + askEvery) {
        return;
    }
    const auto before = lastRound;
    wanted = true;
    changed.notify_all();
    changed.wait_for(guard, longest, [&] { return lastRound != before; });
}
