// SPDX-License-Identifier: MIT
// The command table, the search in it, and the handlers that are a line or two. Main thread.
#include "command_words.hpp"
#include "configrxe.hpp"
#include "logger.hpp"
#include "mode_request.hpp"
#include "requests.hpp"
#include "util.hpp"
#include "zmq_intfc.hpp"

#include <zmq.h>

#include <algorithm>
#include <iterator>
#include <span>

namespace requests {

namespace {

// Hands the request to the radio thread, which owns the setting, and waits for
// its reply; there is no time-out.
int askRadioThread(std::vector<std::string>* tokens, std::string* reply) {
    reply->clear();
    const std::string request = joinStrings(*tokens, " ");
    zmq_send(sockets::main_to_radio, request.data(), request.size(), 0);
    zmq_recv_string(sockets::main_from_radio, reply);
    return 0;
}
constexpr auto dataAnalyticsHandler = askRadioThread;
constexpr auto subscribersHandler = askRadioThread;

// A JSON text with blanks in it comes in several tokens, which are joined again. Quirk: blanks
// inside its strings are lost.
int modeHandler(std::vector<std::string>* tokens, std::string* reply) {
    *reply = "Success";
    if (tokens->size() > 2) {
        (*tokens)[1] = joinStrings({tokens->begin() + 1, tokens->end()}, "");
        tokens->resize(2);
    }
    return handleModeRequest(tokens, reply);
}

// A row of the table: what the words say, and who serves it.
constexpr command_s row(const vocabulary::command_s& words, command_handler handler) {
    return {words.word, handler, words.help};
}

}  // namespace

constexpr command_s commands[] = {
    row(vocabulary::configrxe, configRXEHandler),
    row(vocabulary::databaseReset, databaseResetHandler),
    row(vocabulary::dataAnalytics, dataAnalyticsHandler),
    row(vocabulary::subscribers, subscribersHandler),
    row(vocabulary::error, errorHandler),
    row(vocabulary::exit, exitHandler),
    row(vocabulary::events, eventsHandler),
    row(vocabulary::help, helpHandler),
    row(vocabulary::logging, loggingHandler),
    row(vocabulary::mode, modeHandler),
    row(vocabulary::start, startHandler),
    row(vocabulary::status, statusHandler),
    row(vocabulary::stop, stopHandler),
    row(vocabulary::test, testHandler),
    row(vocabulary::version, versionHandler),
    row(vocabulary::tagInfo, tagInfoHandler),
    row(vocabulary::peakThreshold, peakThresholdHandler),
};
static_assert(std::ranges::equal(commands, vocabulary::commands, {}, &command_s::name,
                                 &vocabulary::command_s::word),
              "each command that the client knows is served, in the order of the list");
constexpr std::size_t nCommands = std::size(commands);

namespace {

constexpr command_s unlistedCommands[] = {
    row(vocabulary::account, accountHandler),
    row(vocabulary::trace, traceHandler),
};

static_assert(std::ranges::equal(unlistedCommands, vocabulary::unlistedCommands, {}, &command_s::name,
                                 &vocabulary::command_s::word));

const command_s* findCommand(std::string_view word) {
    for (const auto table :
         {std::span<const command_s>(commands), std::span<const command_s>(unlistedCommands)}) {
        if (const auto found = std::ranges::find(table, word, &command_s::name); found != table.end()) {
            return &*found;
        }
    }
    return nullptr;
}

}  // namespace

int ProcessRequest(std::string* request, std::string* reply) {
    std::vector<std::string> tokens = tokenizeRequest(request);
    if (tokens.empty()) {
        *reply = "Failure: No Command";
        return 0;
    }
    const command_s* command = findCommand(tokens.front());
    if (command == nullptr) {
        *reply = "Failure: Command Not Found";
        return 0;
    }
    return command->handler(&tokens, reply);
}

int exitHandler(std::vector<std::string>* /*tokens*/, std::string* reply) {
    *reply = "Success";
    return -1;
}

}  // namespace requests
