// SPDX-License-Identifier: MIT
// The rows stand in the order of the program's help.
#include "commands.hpp"

#include <cstdio>

#include "command_words.hpp"
#include "exit_status.hpp"
#include "sockets.hpp"
#include "words.hpp"

const std::vector<command_s> commands{
    {vocabulary::start.word, "Start the radio, or one of the simulators"},
    {vocabulary::stop.word, "Stop the radio and the simulator"},
    {vocabulary::configrxe.word, "Show or set single parameters of the radio engine"},
    {vocabulary::dataAnalytics.word, "Show or set the form of tag reports and where they go"},
    {vocabulary::databaseReset.word, "Show or set when the radio's tag database is emptied"},
    {vocabulary::error.word, "Have the radio send its error log, as an alarm"},
    {vocabulary::exit.word, "End the daemon"},
    {vocabulary::logging.word, "Show or switch the engine's packet log"},
    {vocabulary::peakThreshold.word, "Show or set the engine's peak threshold"},
    {vocabulary::subscribers.word, "Show or set among how many subscribers reports are spread"},
    {vocabulary::tagInfo.word, "Show the tags that the report filter's keys hold back"},
    {vocabulary::test.word, "Ask whether the daemon answers"},
    {vocabulary::trace.word, "Note what becomes of a tag's packets, and show it", true},
    {vocabulary::version.word, "Show the versions of daemon, radio and sockets"},
};

int runCommand(const daemon_s& daemon, const command_s& command, const std::vector<std::string>& words) {
    std::string reason;
    if (!areWordsGood(words, &reason)) {
        std::fprintf(stderr, "twctl: %s\n", reason.c_str());
        return exitTrouble;
    }
    std::string reply;
    const int status = askDaemon(daemon, joinWords(words), &reply);
    if (status != exitSuccess) {
        return status;
    }
    return command.showsObject ? printObject(reply) : printReply(reply);
}
