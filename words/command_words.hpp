// SPDX-License-Identifier: MIT
// The commands of the reply socket and of the console, and their arguments.
//
// Not here: the sections of "configrxe" (configrxe_words.hpp), the names behind "status"
// (stat_names.hpp) and the JSON documents behind "mode" and "events", whose keys and words
// are in docs/mode.schema.json and docs/events.schema.json.
#pragma once

#include "vocabulary.hpp"

namespace vocabulary {

// "start": doNotPersistState leaves autoStart.txt as it is. sim needs a rate in tags a second,
// sim_bearing a rate and the number of an array reader.
inline constexpr argument_s doNotPersistState{"doNotPersistState"};
inline constexpr argument_s sim{"sim"};
inline constexpr argument_s simBearing{"sim_bearing"};
inline constexpr argument_s startArguments[] = {doNotPersistState, sim, simBearing};

// Behind "start sim_bearing <rate> <reader>": standard deviations of azimuth and elevation,
// in degrees.
inline constexpr argument_s stdAz{"std_az", value_e::number};
inline constexpr argument_s stdEl{"std_el", value_e::number};
inline constexpr argument_s simBearingArguments[] = {stdAz, stdEl};

// "data_analytics": where tag reports go, and in which form. OFF: as JSON to the consumer on the
// reader; STRING and BINARY: to subscribers of port 5160, as JSON or as binary messages.
inline constexpr argument_s analyticsOff{"OFF"};
inline constexpr argument_s analyticsString{"STRING"};
inline constexpr argument_s analyticsBinary{"BINARY"};
inline constexpr argument_s dataAnalyticsArguments[] = {analyticsOff, analyticsString, analyticsBinary};

// "database_reset": local time of day.
inline constexpr argument_s resetTime{"time", value_e::timeOfDay};
inline constexpr argument_s databaseResetArguments[] = {resetTime};

// "error": asks the radio for its error log, which then comes into the daemon's log.
inline constexpr argument_s radioErrorLog{"radioErrorLog"};
inline constexpr argument_s errorArguments[] = {radioErrorLog};

// "logging": whether the engine library writes its packet log.
inline constexpr choice_s packetLogStates[] = {{"ON", 1}, {"OFF", 0}};
inline constexpr argument_s radioPacketLog{"radioPacketLog", value_e::choice, packetLogStates};
inline constexpr argument_s loggingArguments[] = {radioPacketLog};

// "tag_info": both words ask for all fields of a tag.
inline constexpr argument_s tagInfoShort{"v"};
inline constexpr argument_s tagInfoVerbose{"verbose"};
inline constexpr argument_s tagInfoArguments[] = {tagInfoShort, tagInfoVerbose};

// "mode": the mode in force in full, and the last accepted mode as it was sent.
inline constexpr argument_s modeVerbose{"verbose"};
inline constexpr argument_s modeAsSet{"as_set"};
inline constexpr argument_s modeArguments[] = {modeVerbose, modeAsSet};

// "trace": an EPC or its beginning, two digits for each byte, follows all but list.
inline constexpr argument_s traceAdd{"add", value_e::hex};
inline constexpr argument_s traceRemove{"remove", value_e::hex};
inline constexpr argument_s traceList{"list"};
inline constexpr argument_s traceShow{"show", value_e::hex};
inline constexpr argument_s traceArguments[] = {traceAdd, traceRemove, traceList, traceShow};

// "peak_threshold": 0 to 12. "subscribers": 1 to 1024.
inline constexpr argument_s numberArgument[] = {{"", value_e::number}};

// One command. The texts of "help" are part of the interface; some of them name things by older
// names.
struct command_s {
    std::string_view word;
    // What the reply to "help" says of the command; may be empty.
    std::string_view help;
    // At most one of them follows the word, unless a comment above says otherwise. Empty for a
    // command without arguments, and for those whose arguments are not listed here.
    std::span<const argument_s> arguments{};
};
inline constexpr command_s configrxe{"configrxe", "Sets and Gets the RXE configuration"};
inline constexpr command_s databaseReset{"database_reset", "Sets and gets the database reset functionality",
                                         databaseResetArguments};
inline constexpr command_s dataAnalytics{
    "data_analytics", "Sets and gets whether TW sends data to data analytics block", dataAnalyticsArguments};
inline constexpr command_s subscribers{"subscribers", "Sets and gets the number of subscribers",
                                       numberArgument};
inline constexpr command_s error{"error", "Gets error information", errorArguments};
inline constexpr command_s exit{"exit", "Exits the application"};
inline constexpr command_s events{"events", "Sets and gets the event channel parameters"};
inline constexpr command_s help{"help", "Gets help"};
inline constexpr command_s logging{"logging", "Sets and Gets the logging configuration", loggingArguments};
inline constexpr command_s mode{"mode", "Sets the radio's mode", modeArguments};
inline constexpr command_s start{"start", "Starts the RXE (or the simulator)", startArguments};
inline constexpr command_s status{"status", "Gets the status"};
inline constexpr command_s stop{"stop", "Stops the RXE (or the simulator)"};
inline constexpr command_s test{"test", ""};
inline constexpr command_s version{"version", "Returns the version information"};
inline constexpr command_s tagInfo{"tag_info", "Return tag info parameters", tagInfoArguments};
inline constexpr command_s peakThreshold{"peak_threshold", "Sets and gets the peak threshold",
                                         numberArgument};

// All of them, in the order in which "help" lists them. The daemon has a handler for each, and does
// not compile without it.
inline constexpr command_s commands[] = {
    configrxe, databaseReset, dataAnalytics, subscribers, error, exit,    events,  help,          logging,
    mode,      start,         status,        stop,        test,  version, tagInfo, peakThreshold,
};

// Commands that "help" does not list, since its reply stays as users know it.
inline constexpr command_s account{"account", "What became of each tag packet"};
inline constexpr command_s trace{"trace", "Follows single tags through the daemon", traceArguments};
inline constexpr command_s unlistedCommands[] = {account, trace};

}  // namespace vocabulary
