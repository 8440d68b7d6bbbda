// SPDX-License-Identifier: MIT
// The two commands that the main thread forwards to the radio thread, which owns their settings.
// The main thread has rows of the same names in its own table, which only pass the request on.
#include <algorithm>
#include <array>

#include "command_words.hpp"
#include "logger.hpp"
#include "radio.hpp"
#include "util.hpp"
#include "zmq_intfc.hpp"

std::atomic<int> radio::data_analytics_type{DATA_ANALYTICS_OFF};
std::atomic<std::uint16_t> radio::subscribers{1};

namespace radio_side {
namespace {

constexpr auto relaxed = std::memory_order_relaxed;
constexpr std::uint16_t maxSubscribers = 1024;

struct data_analytics_word_s {
    std::string_view word;
    data_analytics_e type;
};
constexpr std::array dataAnalyticsWords{
    data_analytics_word_s{vocabulary::analyticsString.name, DATA_ANALYTICS_STRING},
    data_analytics_word_s{vocabulary::analyticsBinary.name, DATA_ANALYTICS_BINARY},
    data_analytics_word_s{vocabulary::analyticsOff.name, DATA_ANALYTICS_OFF},
};

// Closes tag_data and opens it for outside subscribers or for the local consumer. When that fails it
// returns false, with the reply filled, and opens the socket again for the form that was in force.
bool recreateDataSocket(bool forOutside, std::string* response) {
    if (closeZMQSocketForData() != 0) {
        *response = "Failure: Failed to close ZMQ socket for data";
        return false;
    }
    if (createZMQSocketForData(forOutside) != 0) {
        *response = "Failure: Failed to open ZMQ socket for data";
        if (closeZMQSocketForData() == 0 && createZMQSocketForData(!forOutside) == 0) {
            logInfo("radio", " data_analytics stays as it was, and reports go on to ",
                    forOutside ? "the local consumer" : "tcp port 5160");
        }
        return false;
    }
    return true;
}

void setDataAnalytics(data_analytics_e type, std::string* response) {
    const bool wasOff = radio::data_analytics_type.load(relaxed) == DATA_ANALYTICS_OFF;
    const bool off = type == DATA_ANALYTICS_OFF;
    if (wasOff != off && !recreateDataSocket(!off, response)) {
        return;
    }
    radio::data_analytics_type.store(type, relaxed);
    *response = "Success";
}

int dataAnalyticsHandler(std::vector<std::string>* tokens, std::string* response) {
    response->clear();
    if (tokens->size() == 1) {
        const auto* row = std::ranges::find(dataAnalyticsWords, radio::data_analytics_type.load(relaxed),
                                            &data_analytics_word_s::type);
        response->assign("Success: data_analytics ").append(row->word);
        return 0;
    }
    if (tokens->size() != 2) {
        // Quirk: the reply to a wrong count begins with "Success".
        *response = "Success: error requires at least 1 param (STRING, BINARY, or OFF)";
        return 0;
    }
    const auto* row = std::ranges::find(dataAnalyticsWords, (*tokens)[1], &data_analytics_word_s::word);
    if (row == dataAnalyticsWords.end()) {
        *response = "Failure: error requires at least 1 param (STRING, BINARY, or OFF)";
        return 0;
    }
    setDataAnalytics(row->type, response);
    return 0;
}

int subscribersHandler(std::vector<std::string>* tokens, std::string* response) {
    response->clear();
    if (tokens->size() == 1) {
        *response = "Success: subscribers " + std::to_string(radio::subscribers.load(relaxed));
        if (radio::data_analytics_type.load(relaxed) == DATA_ANALYTICS_OFF) {
            *response += " but is irrelevant - data analytics disabled";
        }
        return 0;
    }
    if (tokens->size() != 2) {
        // Quirk: the text says 0 to 1024, and 1 to 1024 are accepted.
        *response = "Failure: error requires at least 1 param (an unsigned integer between 0 and 1024)";
        return 0;
    }
    std::uint32_t errors = 0;
    const std::uint16_t count = strToUint16((*tokens)[1], &errors, 10, 1, maxSubscribers);
    if (errors != 0) {
        *response = "Failure: subscribers must be an unsigned integer between 1 and 1024";
        return 0;
    }
    radio::subscribers.store(count, relaxed);
    *response = "Success";
    return 0;
}

struct internal_command_s {
    std::string_view name;
    int (*handler)(std::vector<std::string>* tokens, std::string* response);
};
constexpr std::array internalCommands{
    internal_command_s{vocabulary::dataAnalytics.word, dataAnalyticsHandler},
    internal_command_s{vocabulary::subscribers.word, subscribersHandler},
};

}  // namespace
}  // namespace radio_side

int ProcessInternalRequest(std::string* request, std::string* response) {
    std::vector<std::string> tokens = tokenizeRequest(request);
    if (tokens.empty()) {
        *response = "Failure: No Command";
        return 0;
    }
    const auto* command =
        std::ranges::find(radio_side::internalCommands, tokens[0], &radio_side::internal_command_s::name);
    if (command == radio_side::internalCommands.end()) {
        *response = "Failure: Command Not Found";
        return 0;
    }
    return command->handler(&tokens, response);
}
