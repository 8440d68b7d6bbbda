// SPDX-License-Identifier: MIT
// The two subcommands differ in a row of constants: the request, the schema, and one mistake
// that would end the daemon.
#include "json_commands.hpp"

#include <cstdio>
#include <nlohmann/json.hpp>

#include "command_words.hpp"
#include "document.hpp"
#include "exit_status.hpp"

namespace {

std::vector<std::string> noWarnings(const nlohmann::json&) {
    return {};
}

// What tells the two subcommands apart.
struct settings_s {
    std::string_view request;  // also what an inline document is called
    std::vector<std::string> (*findFaults)(const nlohmann::json& document);
    std::vector<std::string> (*findWarnings)(const nlohmann::json& document);
    bool (*isDangerous)(const nlohmann::json& document, std::string* reason);  // null: none is
};
constexpr settings_s modeSettings{vocabulary::mode.word, findModeFaults, findModeWarnings, nullptr};
constexpr settings_s eventsSettings{vocabulary::events.word, findEventsFaults, noWarnings, wouldEndDaemon};

// What "show" and its like ask.
struct question_s {
    std::string_view action;
    std::string_view argument;  // empty: none
};
constexpr question_s questions[] = {{"show", ""},
                                    {"verbose", vocabulary::modeVerbose.name},
                                    {"as-set", vocabulary::modeAsSet.name},
                                    {vocabulary::modeAsSet.name, vocabulary::modeAsSet.name}};

// The command and one argument, which may be empty.
std::string requestOf(const settings_s& settings, std::string_view argument) {
    std::string request(settings.request);
    return argument.empty() ? request : request.append(" ").append(argument);
}

// The reply's object over several lines.
int show(const daemon_s& daemon, const std::string& request) {
    std::string reply;
    if (const int status = askDaemon(daemon, request, &reply); status != exitSuccess) {
        return status;
    }
    return printObject(reply);
}

// "twctl: dock.json: what is wrong", on standard error.
void tell(const document_s& document, const std::string& what) {
    std::fprintf(stderr, "twctl: %s: %s\n", document.name.c_str(), what.c_str());
}

// Reads a document into `root`. What is wrong is told, with the status of a file that
// cannot be read or `badStatus` for one that is not a JSON object.
int load(const settings_s& settings, const std::string& source, int badStatus, document_s* document,
         nlohmann::json* root) {
    std::string reason;
    if (!readDocument(source, settings.request, document)) {
        return exitTrouble;
    }
    if (!isObject(document->text, root, &reason)) {
        tell(*document, reason);
        return badStatus;
    }
    return exitSuccess;
}

// Faults and warnings, each a line. Returns the number of faults.
std::size_t tellFindings(const settings_s& settings, const document_s& document, const nlohmann::json& root) {
    const std::vector<std::string> faults = settings.findFaults(root);
    for (const std::string& fault : faults) {
        tell(document, fault);
    }
    for (const std::string& warning : settings.findWarnings(root)) {
        tell(document, "warning: " + warning);
    }
    return faults.size();
}

// The findings follow the reply, where they may explain a refusal.
int set(const daemon_s& daemon, const settings_s& settings, const std::string& source) {
    document_s document;
    nlohmann::json root;
    if (const int status = load(settings, source, exitTrouble, &document, &root); status != exitSuccess) {
        return status;
    }
    if (std::string reason; settings.isDangerous != nullptr && settings.isDangerous(root, &reason)) {
        tell(document, reason);
        return exitTrouble;
    }
    std::string reply;
    int status = askDaemon(daemon, requestOf(settings, packed(document.text)), &reply);
    status = status == exitSuccess ? printReply(reply) : status;
    tellFindings(settings, document, root);
    return status;
}

// Without a daemon. Warnings alone leave the status at success.
int check(const settings_s& settings, const std::string& source) {
    document_s document;
    nlohmann::json root;
    if (const int status = load(settings, source, exitFailure, &document, &root); status != exitSuccess) {
        return status;
    }
    if (tellFindings(settings, document, root) != 0) {
        return exitFailure;
    }
    return printText(document.name +
                     ": no errors found (what depends on the reader, such as its ports, its power and its "
                     "firmware, is not checked)");
}

int run(const daemon_s& daemon, const settings_s& settings, const json_command_s& command) {
    if (command.action == "set") {
        return set(daemon, settings, command.source);
    }
    if (command.action == "check") {
        return check(settings, command.source);
    }
    for (const question_s& question : questions) {
        if (command.action == question.action) {
            return show(daemon, requestOf(settings, question.argument));
        }
    }
    return exitTrouble;
}

}  // namespace

int runMode(const daemon_s& daemon, const json_command_s& command) {
    return run(daemon, modeSettings, command);
}

int runEvents(const daemon_s& daemon, const json_command_s& command) {
    return run(daemon, eventsSettings, command);
}
