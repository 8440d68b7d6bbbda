// SPDX-License-Identifier: MIT
// The command "account": what became of each tag packet, as JSON. Main thread.
#include <nlohmann/json.hpp>

#include "command_words.hpp"
#include "fates.hpp"
#include "radio.hpp"
#include "requests.hpp"
#include "util.hpp"
#include "zmq_intfc.hpp"

namespace requests {

namespace {

using nlohmann::json;

json namedFates(const std::array<std::uint64_t, vocabulary::fateCount>& counts) {
    json fates = json::object();
    for (std::size_t i = 0; i < counts.size(); ++i) {
        fates[vocabulary::fates[i].name] = counts[i];
    }
    return fates;
}

json sentAndRefused(std::uint64_t sent, std::uint64_t refused) {
    return {{"sent", sent}, {"refused", refused}};
}
json sentAndRefused(const shared_socket_s& socket) {
    return sentAndRefused(socket.sent.load(std::memory_order_relaxed),
                          socket.refused.load(std::memory_order_relaxed));
}

json accountJson(const account_s& account) {
    std::array<std::uint64_t, vocabulary::fateCount> all{};
    json byAntenna = json::array();
    for (const antenna_account_s& antenna : account.byAntenna) {
        for (std::size_t i = 0; i < all.size(); ++i) {
            all[i] += antenna.fates[i];
        }
        json& row = byAntenna.emplace_back(namedFates(antenna.fates));
        row["antenna"] = antenna.antenna;
        row["tagPackets"] = antenna.tagPackets;
    }
    json fates = namedFates(all);
    fates[vocabulary::pendingFate] = account.pending ? 1 : 0;
    std::string since;
    getISOString(&account.since, &since);
    json reply = {
        {"since", since},
        {"tagPackets", account.tagPackets},
        {"fates", fates},
        {"forms",
         {{vocabulary::analyticsOff.name, account.forms[DATA_ANALYTICS_OFF]},
          {vocabulary::analyticsString.name, account.forms[DATA_ANALYTICS_STRING]},
          {vocabulary::analyticsBinary.name, account.forms[DATA_ANALYTICS_BINARY]}}},
        {"unheard", account.unheard},
        {"listeners", sockets::tag_data.listeners.load(std::memory_order_relaxed)},
        {"byAntenna", byAntenna},
        {"lines", sentAndRefused(sockets::gpio_led)},
        {"news", sentAndRefused(sockets::radio_to_main_async)},
        {"events", sentAndRefused(sockets::eventsSent, sockets::eventsRefused)},
        {"firstEventNum", 0},
        {"nextEventNum", account.nextEventNum},
    };
    if (isSimulating()) {
        reply["simulation"] = true;
    }
    return reply;
}

}  // namespace

int accountHandler(std::vector<std::string>* tokens, std::string* reply) {
    account_s account;
    if (tokens->size() > 1) {
        *reply = "Failure: account takes no parameters";
    } else if (!takeAccount(&account)) {
        *reply = "Failure: tag packets come too fast for an account";
    } else {
        *reply = "Success: " + accountJson(account).dump();
    }
    return 0;
}

}  // namespace requests
