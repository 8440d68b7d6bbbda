// SPDX-License-Identifier: MIT
// The command table, the way from a request to its handler, and the commands
// that are no more than a line.
#include "configrxe.hpp"
#include "logger.hpp"
#include "mode_request.hpp"
#include "requests.hpp"
#include "util.hpp"
#include "zmq_intfc.hpp"

#include <zmq.h>

#include <algorithm>
#include <iterator>

namespace {

constexpr std::string_view configRXEHelp = "Sets and Gets the RXE configuration";
constexpr std::string_view databaseResetHelp = "Sets and gets the database reset functionality";
constexpr std::string_view dataAnalyticsHelp = "Sets and gets whether TW sends data to data analytics block";
constexpr std::string_view subscribersHelp = "Sets and gets the number of subscribers";
constexpr std::string_view errorHelp = "Gets error information";
constexpr std::string_view exitHelp = "Exits the application";
constexpr std::string_view eventsHelp = "Sets and gets the event channel parameters";
constexpr std::string_view helpHelp = "Gets help";
constexpr std::string_view loggingHelp = "Sets and Gets the logging configuration";
constexpr std::string_view modeHelp = "Sets the radio's mode";
constexpr std::string_view startHelp = "Starts the RXE (or the simulator)";
constexpr std::string_view statusHelp = "Gets the status";
constexpr std::string_view stopHelp = "Stops the RXE (or the simulator)";
constexpr std::string_view testHelp = "";
constexpr std::string_view versionHelp = "Returns the version information";
constexpr std::string_view tagInfoHelp = "Return tag info parameters";
constexpr std::string_view peakThresholdHelp = "Sets and gets the peak threshold";

// Hands the request to the radio thread, which owns the setting, and waits for
// its reply; there is no time-out.
int askRadioThread(std::vector<std::string>* tokens, std::string* reply) {
    reply->clear();
    const std::string request = joinStrings(*tokens, " ");
    zmq_send(main_to_radio, request.data(), request.size(), 0);
    zmq_recv_string(main_from_radio, reply);
    return 0;
}
constexpr auto dataAnalyticsHandler = askRadioThread;
constexpr auto subscribersHandler = askRadioThread;

// A JSON text that was typed with blanks comes in several tokens and is one
// again here; blanks inside its strings are lost.
int modeHandler(std::vector<std::string>* tokens, std::string* reply) {
    *reply = "Success";
    if (tokens->size() > 2) {
        (*tokens)[1] = joinStrings({tokens->begin() + 1, tokens->end()}, "");
        tokens->resize(2);
    }
    return handleModeRequest(tokens, reply);
}

}  // namespace

constexpr command_s commands[] = {
    {"configrxe", configRXEHandler, configRXEHelp},
    {"database_reset", databaseResetHandler, databaseResetHelp},
    {"data_analytics", dataAnalyticsHandler, dataAnalyticsHelp},
    {"subscribers", subscribersHandler, subscribersHelp},
    {"error", errorHandler, errorHelp},
    {"exit", exitHandler, exitHelp},
    {"events", eventsHandler, eventsHelp},
    {"help", helpHandler, helpHelp},
    {"logging", loggingHandler, loggingHelp},
    {"mode", modeHandler, modeHelp},
    {"start", startHandler, startHelp},
    {"status", statusHandler, statusHelp},
    {"stop", stopHandler, stopHelp},
    {"test", testHandler, testHelp},
    {"version", versionHandler, versionHelp},
    {"tag_info", tagInfoHandler, tagInfoHelp},
    {"peak_threshold", peakThresholdHandler, peakThresholdHelp},
};
constexpr std::size_t nCommands = std::size(commands);

int ProcessRequest(std::string* request, std::string* reply) {
    std::vector<std::string> tokens = tokenizeRequest(request);
    if (tokens.empty()) {
        *reply = "Failure: No Command";
        return 0;
    }
    const auto* command = std::ranges::find(commands, tokens.front(), &command_s::name);
    if (command == std::end(commands)) {
        *reply = "Failure: Command Not Found";
        return 0;
    }
    return command->handler(&tokens, reply);
}

int exitHandler(std::vector<std::string>* /*tokens*/, std::string* reply) {
    *reply = "Success";
    return -1;
}
