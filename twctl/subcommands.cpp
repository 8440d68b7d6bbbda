// SPDX-License-Identifier: MIT
#include "subcommands.hpp"

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "engine.hpp"
#include "exit_status.hpp"
#include "json_commands.hpp"
#include "requests.hpp"
#include "status.hpp"
#include "words.hpp"

namespace {

// The words of a request are no option and no positional to the parser, which
// would leave them out of the usage line.
class words_formatter_c : public CLI::Formatter {
    std::string make_usage(const CLI::App* app, std::string) const override {
        return "Usage: twctl " + app->get_name() + " [OPTIONS] [WORDS...]\n";
    }
};

// The words behind the options of a subcommand that takes any.
std::vector<std::string> wordsOf(const CLI::App& sub) {
    std::vector<std::string> words = sub.remaining();
    if (words.empty()) {
        throw CLI::RequiredError("WORDS");
    }
    if (words.front().starts_with("-")) {  // none begins so; a mistyped option
        throw CLI::ExtrasError("twctl " + sub.get_name(), {words.front()});
    }
    return words;
}

// Behind the first word all are words, and what looks like an option is none. A
// number may begin with "-".
void refuseOptions(const std::vector<std::string>& words) {
    const auto found = std::find_if(words.begin(), words.end(), [](const std::string& word) {
        return word.starts_with("--") || word == "-h";
    });
    if (found != words.end()) {
        throw CLI::ValidationError(*found, found == words.begin() ? "there is no such option"
                                                                  : "options stand in front of the words");
    }
}

void addConnection(CLI::App* sub, const std::string& peer, std::string* endpoint, double* timeoutSeconds) {
    sub->add_option("--socket,--endpoint", *endpoint, peer + ": a ZeroMQ endpoint, or an ipc file's path")
        ->capture_default_str();
    sub->add_option("--timeout", *timeoutSeconds, "Seconds to wait for the answer")
        ->check(secondsRange())
        ->capture_default_str();
}

void addDaemon(CLI::App* sub, daemon_s* daemon) {
    addConnection(sub, "The daemon's reply socket", &daemon->endpoint, &daemon->timeoutSeconds);
}

void addRawRequest(CLI::App* app, int* status) {
    auto daemon = std::make_shared<daemon_s>();
    CLI::App* sub = app->add_subcommand("request", "Sends any request and prints the reply as it is");
    sub->footer(
        std::string("All that stands behind the options is the request, its words joined by single blanks:\n"
                    "  twctl request start\n"
                    "  twctl request --timeout 1 data_analytics STRING\n\n") +
        exitStatusHelp);
    sub->formatter(std::make_shared<words_formatter_c>());
    sub->prefix_command();  // a word of the request may begin with "-"
    addDaemon(sub, daemon.get());
    sub->callback([sub, daemon, status] { *status = runRequest(*daemon, wordsOf(*sub)); });
}

void addCommand(CLI::App* app, const command_s& command, int* status) {
    auto daemon = std::make_shared<daemon_s>();
    CLI::App* sub = app->add_subcommand(command.name, command.help);
    const std::string rules = describeWords(command.name);
    if (!rules.empty()) {
        sub->formatter(std::make_shared<words_formatter_c>());
        sub->prefix_command();  // a number may begin with "-"
    }
    sub->footer(
        (rules.empty() ? "" : "Words, of which N, BYTE, HEX and HH:MM stand for a value:\n" + rules + "\n") +
        exitStatusHelp);
    addDaemon(sub, daemon.get());
    sub->callback([sub, daemon, status] {
        std::vector<std::string> words = sub->remaining();
        refuseOptions(words);
        words.insert(words.begin(), sub->get_name());
        *status = runCommand(*daemon, words);
    });
}

using run_function = int (*)(const daemon_s& daemon, const json_command_s& command);

void addJsonCommand(CLI::App* app, const char* name, const char* help, const char* actions, run_function run,
                    int* status) {
    struct options_s {
        daemon_s daemon;
        json_command_s command;
    };
    auto options = std::make_shared<options_s>();
    CLI::App* sub = app->add_subcommand(name, help);
    sub->footer(std::string(actions) + "\n\n" + exitStatusHelp);
    sub->add_option("ACTION", options->command.action, "What to do")
        ->check(CLI::IsMember(wordsAfter({name})))
        ->capture_default_str();
    CLI::Option* source =
        sub->add_option("FILE", options->command.source, "A JSON file, - for standard input, or {...}");
    addDaemon(sub, &options->daemon);
    sub->callback([options, source, run, status] {
        const bool needsSource = options->command.action == "set" || options->command.action == "check";
        if (needsSource && source->count() == 0) {
            throw CLI::RequiredError("FILE");
        }
        if (!needsSource && source->count() != 0) {
            throw CLI::ExtrasError({options->command.source});
        }
        *status = run(options->daemon, options->command);
    });
}

constexpr const char* modeActions =
    "Actions:\n"
    "  show     the mode in force, without what is at the defaults of its type\n"
    "  verbose  the same with nearly everything\n"
    "  as-set   the mode that was accepted last, as it was sent\n"
    "  set      sends a mode; the radio should be stopped\n"
    "  check    looks at a mode without a daemon: that it is JSON, an object that the\n"
    "           daemon can take, its keys and words at any depth. Missing keys, numbers\n"
    "           and what this reader can do, only \"set\" tells";

constexpr const char* eventsActions =
    "Actions:\n"
    "  show     what is sent on the event channel\n"
    "  set      changes it: any of the groups errors, warnings and heartbeat, each whole";

void addStatus(CLI::App* app, int* status) {
    struct options_s {
        daemon_s daemon;
        std::vector<std::string> names;
        bool json = false;
    };
    auto options = std::make_shared<options_s>();
    CLI::App* sub = app->add_subcommand("status", "Shows how the daemon and the radio are");
    sub->footer(exitStatusHelp);
    sub->add_option("NAME", options->names, "Only these")->check(CLI::IsMember(splitWords(statusNames())));
    sub->add_flag("--json", options->json, "One line of JSON, with the daemon's names, for programs");
    addDaemon(sub, &options->daemon);
    sub->callback([options, status] { *status = runStatus(options->daemon, options->names, options->json); });
}

void addEngine(CLI::App* app, int* status) {
    auto event = std::make_shared<engine_event_s>();
    CLI::App* sub = app->add_subcommand("engine", "Makes something happen to the software radio engine");
    sub->footer(
        std::string("Words or one JSON object, as tarnwick-scenario(5) tells:\n"
                    "  twctl engine gpi 1 high\n"
                    "  twctl engine antenna 2 lost\n"
                    "  twctl engine fail RXE_start 77 count=2\n"
                    "  twctl engine '{\"event\": \"leave\", \"epc\": \"3034257bf7194e4000000001\"}'\n\n") +
        exitStatusHelp);
    sub->formatter(std::make_shared<words_formatter_c>());
    sub->prefix_command();
    addConnection(sub, "The engine's control socket", &event->endpoint, &event->timeoutSeconds);
    sub->callback([sub, event, status] {
        event->words = wordsOf(*sub);
        refuseOptions(event->words);
        *status = runEngineEvent(*event);
    });
}

}  // namespace

CLI::Validator secondsRange() {
    return CLI::Validator(
        [](std::string& text) {
            constexpr double shortest = 0.001, longest = 86400.0;
            double seconds = 0;
            const bool isGood =
                CLI::detail::lexical_cast(text, seconds) && seconds >= shortest && seconds <= longest;
            return isGood ? std::string() : "\"" + text + "\" is no number of seconds from 0.001 to 86400";
        },
        "SECONDS");
}

void addRequests(CLI::App* app, int* status) {
    addStatus(app, status);
    addJsonCommand(app, "mode", "Shows, sets or checks what the radio does", modeActions, runMode, status);
    addJsonCommand(app, "events", "Shows or sets what is sent on the event channel", eventsActions, runEvents,
                   status);
    for (const command_s& command : commands) {
        addCommand(app, command, status);
    }
    addRawRequest(app, status);
    addEngine(app, status);
}
