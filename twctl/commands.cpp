// SPDX-License-Identifier: MIT
#include "commands.hpp"

#include <cstdio>

#include "exit_status.hpp"
#include "sockets.hpp"
#include "words.hpp"

const std::vector<command_s> commands{
    {"start", "Start the radio, or one of the simulators"},
    {"stop", "Stop the radio and the simulator"},
    {"configrxe", "Show or set single parameters of the radio engine"},
    {"data_analytics", "Show or set the form of tag reports and where they go"},
    {"database_reset", "Show or set when the radio's tag database is emptied"},
    {"error", "Have the radio send its error log, as an alarm"},
    {"exit", "End the daemon"},
    {"logging", "Show or switch the engine's packet log"},
    {"peak_threshold", "Show or set the engine's peak threshold"},
    {"subscribers", "Show or set among how many subscribers reports are spread"},
    {"tag_info", "Show the tags that the report filter's keys hold back"},
    {"test", "Ask whether the daemon answers"},
    {"version", "Show the versions of daemon, radio and sockets"},
};

int runCommand(const daemon_s& daemon, const std::vector<std::string>& words) {
    std::string reason;
    if (!areWordsGood(words, &reason)) {
        std::fprintf(stderr, "twctl: %s\n", reason.c_str());
        return exitTrouble;
    }
    std::string reply;
    const int status = askDaemon(daemon, joinWords(words), &reply);
    return status == exitSuccess ? printReply(reply) : status;
}
