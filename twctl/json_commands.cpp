// SPDX-License-Identifier: MIT
#include "json_commands.hpp"

#include <cstdio>
#include <nlohmann/json.hpp>

#include "document.hpp"
#include "exit_status.hpp"

namespace {

// What tells the two subcommands apart.
struct settings_s {
    const char* request;
    std::vector<std::string> (*findFaults)(const nlohmann::json& document);
    bool (*isDangerous)(const nlohmann::json& document, std::string* reason);  // null: none is
};
constexpr settings_s modeSettings{"mode", findModeFaults, nullptr};
constexpr settings_s eventsSettings{"events", findEventsFaults, wouldEndDaemon};

// What "show" and its like ask.
struct question_s {
    const char* action;
    const char* words;
};
constexpr question_s questions[] = {{"show", ""}, {"verbose", " verbose"}, {"as-set", " as_set"}};

// The reply's object over several lines.
int show(const daemon_s& daemon, const std::string& request) {
    std::string reply;
    if (const int status = askDaemon(daemon, request, &reply); status != exitSuccess) {
        return status;
    }
    const auto object = nlohmann::ordered_json::parse(bodyOf(reply), nullptr, false);
    if (isFailure(reply) || object.is_discarded()) {
        return printReply(reply);
    }
    return printText(object.dump(4));
}

bool loadObject(const std::string& source, document_s* document, nlohmann::json* root) {
    std::string reason;
    if (!readDocument(source, document)) {
        return false;
    }
    if (!isObject(document->text, root, &reason)) {
        std::fprintf(stderr, "twctl: %s: %s\n", document->name.c_str(), reason.c_str());
        return false;
    }
    return true;
}

std::size_t tellFaults(const settings_s& settings, const document_s& document, const nlohmann::json& root) {
    const std::vector<std::string> faults = settings.findFaults(root);
    for (const std::string& fault : faults) {
        std::fprintf(stderr, "twctl: %s: %s\n", document.name.c_str(), fault.c_str());
    }
    return faults.size();
}

int set(const daemon_s& daemon, const settings_s& settings, const std::string& source) {
    document_s document;
    nlohmann::json root;
    if (!loadObject(source, &document, &root)) {
        return exitTrouble;
    }
    if (std::string reason; settings.isDangerous != nullptr && settings.isDangerous(root, &reason)) {
        std::fprintf(stderr, "twctl: %s: %s\n", document.name.c_str(), reason.c_str());
        return exitTrouble;
    }
    tellFaults(settings, document, root);
    std::string reply;
    const std::string request = std::string(settings.request) + " " + packed(document.text);
    const int status = askDaemon(daemon, request, &reply);
    return status == exitSuccess ? printReply(reply) : status;
}

int check(const settings_s& settings, const std::string& source) {
    document_s document;
    nlohmann::json root;
    if (!readDocument(source, &document)) {
        return exitTrouble;
    }
    std::string reason;
    if (!isObject(document.text, &root, &reason)) {
        std::fprintf(stderr, "twctl: %s: %s\n", document.name.c_str(), reason.c_str());
        return exitFailure;
    }
    if (tellFaults(settings, document, root) != 0) {
        return exitFailure;
    }
    return printText(document.name + ": no fault found");
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
            return show(daemon, settings.request + std::string(question.words));
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
