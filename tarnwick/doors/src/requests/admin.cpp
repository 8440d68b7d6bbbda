// SPDX-License-Identifier: MIT
// The small commands: help, versions, the engine's error log and packet log, the
// additional keys, the peak threshold.
#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>
#include <span>

#include "additional_config.hpp"
#include "command_words.hpp"
#include "configrxe.hpp"
#include "engine_io/parameters.hpp"
#include "json_fields.hpp"
#include "requests.hpp"
#include "util.hpp"
#include "versions.hpp"

namespace requests {

namespace {

constexpr int highestPeakThreshold = 12;

// In the working directory. The engine does not make the folder.
constexpr const char* packetLogFileName = "logs/packet_log";

// "<command> <value>" behind the "Success: " that stands in the reply.
void showPeakThreshold(const std::string& command, std::string* reply) {
    nlohmann::json document;
    std::string failure;
    std::uint8_t value = 0;
    if (getPeakThreshold(&failure, &document) != 0 ||
        getJsonValue(&document, "peakThreshold", &value, &failure, 0, 255) != 0) {
        *reply = "Failure: Failed to get peak threshold";
        return;
    }
    sprintfStrAppend(reply, "%s %d", command.c_str(), value);
}

// Quirk: only the low byte of the number counts, also in the range check: 256 is 0.
void changePeakThreshold(const std::string& command, const std::string& text, std::string* reply) {
    std::uint32_t errors = 0;
    const int value = strToInt32(text, &errors) & 0xFF;
    if (errors != 0) {
        sprintfStr(reply, "Failure: %s requires a numeric value as param", command.c_str());
        return;
    }
    if (value > highestPeakThreshold) {
        sprintfStr(reply, "Failure: %s requires a value between 0 and %d as param", command.c_str(),
                   highestPeakThreshold);
        return;
    }
    if (const RXE_API_STATUS rc = setPeakThreshold(value); rc != RXE_OK) {
        sprintfStr(reply, "Failure: Failed to set peak threshold to %d error 0x%04x", value,
                   static_cast<unsigned>(rc));
    }
}

// The two ways to switch the engine's packet log. Both return whether it worked.
bool stopPacketLog() {
    return RXE_disablePacketLogging() == 0;
}

// A log that runs is closed first.
bool restartPacketLog() {
    RXE_disablePacketLogging();
    return RXE_enablePacketLogging(packetLogFileName) == 0;
}

}  // namespace

int helpHandler(std::vector<std::string>* /*tokens*/, std::string* reply) {
    *reply = "Success:\n";
    for (const command_s& command : std::span(commands, nCommands)) {
        *reply += command.name;
        *reply += '\n';
        *reply += command.help;
        *reply += '\n';
    }
    return 0;
}

int testHandler(std::vector<std::string>* /*tokens*/, std::string* reply) {
    *reply = "Success";
    return 0;
}

int versionHandler(std::vector<std::string>* /*tokens*/, std::string* reply) {
    *reply = "Success:\n" + joinStrings({get_app_version_string(), get_radio_api_version_string(),
                                         get_radio_fw_version_string(), get_zmq_version_string()},
                                        ",");
    return 0;
}

int errorHandler(std::vector<std::string>* tokens, std::string* reply) {
    if (tokens->size() < 2) {
        *reply = "Failure: error requires at least 1 param";
    } else if ((*tokens)[1] != vocabulary::radioErrorLog.name) {
        *reply = "Failure: error requires at least 1 param - string \"radioErrorLog\"";
    } else if (RXE_getErr() != RXE_OK) {
        *reply = "Failure: could not radioErrorLog";
    } else {
        *reply = "Success: radioErrorLog added to TW error log";
    }
    return 0;
}

int loggingHandler(std::vector<std::string>* tokens, std::string* reply) {
    // Main thread. What the engine was last told with success.
    static bool rxe_packet_log_running = false;

    *reply = "Success: ";
    if (tokens->size() <= 1) {
        const auto* state = std::ranges::find(vocabulary::packetLogStates, rxe_packet_log_running ? 1 : 0,
                                              &vocabulary::choice_s::value);
        reply->append(vocabulary::radioPacketLog.name).append(": ").append(state->word);
        return 0;
    }
    std::string value;
    if (getParamValue(std::string(vocabulary::radioPacketLog.name), tokens, &value) != 0) {
        return 0;
    }
    const auto* state = std::ranges::find(vocabulary::packetLogStates, value, &vocabulary::choice_s::word);
    if (state == std::end(vocabulary::packetLogStates)) {
        // Quirk: the text calls the parameter packet_log.
        sprintfStr(reply,
                   "Failure: %s is not an acceptable value for packet_log (acceptable values are: ON or OFF)",
                   value.c_str());
    } else if (const bool turnOn = state->value != 0; turnOn ? restartPacketLog() : stopPacketLog()) {
        rxe_packet_log_running = turnOn;
        *reply = "Success";
    } else {
        *reply = turnOn ? "Failure: RXE_enablePacketLogging failed to enable logging"
                        : "Failure: RXE_disablePacketLogging failed to disable logging";
    }
    return 0;
}

int tagInfoHandler(std::vector<std::string>* tokens, std::string* reply) {
    *reply = "Success";
    const bool detailed = tokens->size() == 2 && ((*tokens)[1] == vocabulary::tagInfoShort.name ||
                                                  (*tokens)[1] == vocabulary::tagInfoVerbose.name);
    if (tokens->size() > 1 && !detailed) {
        *reply = "Failure: tagInfo supported commands are: tag_info or tag_info v | verbose";
    } else if (getCurrentTagInfoDB(reply, detailed) != 0) {
        *reply = "Failure: tagInfo database disabled";
    }
    return 0;
}

int peakThresholdHandler(std::vector<std::string>* tokens, std::string* reply) {
    *reply = "Success: ";
    const std::string command = joinStrings(*tokens, " ");
    if (tokens->size() == 1) {
        showPeakThreshold(command, reply);
    } else if (tokens->size() == 2) {
        changePeakThreshold(command, (*tokens)[1], reply);
    } else {
        sprintfStr(reply, "Failure: %s requires at most 1 param", command.c_str());
    }
    return 0;
}

}  // namespace requests
