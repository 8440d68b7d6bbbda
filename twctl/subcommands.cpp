// SPDX-License-Identifier: MIT
// Each subcommand owns a record of options in a shared pointer that its callback keeps: the
// parser fills it after this file's functions have returned.
#include "subcommands.hpp"

#include <memory>
#include <string>
#include <vector>

#include "account.hpp"
#include "beams.hpp"
#include "boot/remember.hpp"
#include "boot/resume.hpp"
#include "command_words.hpp"
#include "commands.hpp"
#include "engine.hpp"
#include "exit_status.hpp"
#include "help.hpp"
#include "json_commands.hpp"
#include "requests.hpp"
#include "status.hpp"
#include "why/why.hpp"
#include "words.hpp"

namespace {

using words_t = std::vector<std::string>;

// The words of a subcommand that needs one at least.
const words_t& needed(const words_t& words) {
    if (words.empty()) {
        throw CLI::RequiredError("WORDS");
    }
    return words;
}

// The whole request: the name, then the words.
words_t behind(const std::string& name, const words_t& words) {
    words_t request{name};
    request.insert(request.end(), words.begin(), words.end());
    return request;
}

// --socket and --timeout, with the defaults that the two variables have.
void addConnection(CLI::App* sub, const std::string& peer, std::string* endpoint, double* timeoutSeconds) {
    sub->add_option("--socket,--endpoint", *endpoint,
                    peer + ": a ZeroMQ endpoint,\nor the path of an ipc file")
        ->type_name("ENDPOINT")
        ->capture_default_str();
    sub->add_option("--timeout", *timeoutSeconds, "How many seconds to wait for the answer")
        ->type_name("SECONDS")
        ->check(secondsRange())
        ->capture_default_str();
}

void addDaemon(CLI::App* sub, daemon_s* daemon) {
    addConnection(sub, "The daemon's reply socket", &daemon->endpoint, &daemon->timeoutSeconds);
}

// "request": for commands that this client does not know, and for tests.
void addRawRequest(CLI::App* app, const words_t* words, int* status) {
    auto daemon = std::make_shared<daemon_s>();
    CLI::App* sub = app->add_subcommand("request", "Send any request and print the reply as it is");
    sub->footer(
        "The words are joined by single blanks. Behind \"--\" they may begin with \"-\":\n"
        "  twctl request data_analytics STRING --timeout 1\n"
        "  twctl request -- start --now");
    sub->prefix_command();
    addDaemon(sub, daemon.get());
    sub->callback([daemon, words, status] { *status = runRequest(*daemon, needed(*words)); });
}

// A command of the daemon. One without rules takes no words, and the parser refuses them.
void addCommand(CLI::App* app, const command_s& command, const words_t* words, int* status) {
    auto daemon = std::make_shared<daemon_s>();
    CLI::App* sub = app->add_subcommand(std::string(command.name), command.help);
    const std::string rules = describeWords(command.name);
    if (!rules.empty()) {
        sub->prefix_command();
        sub->footer("Words, of which N, BYTE, HEX and HH:MM stand for a value:\n" + rules);
    }
    addDaemon(sub, daemon.get());
    sub->callback([sub, daemon, &command, words, status] {
        *status = runCommand(*daemon, command, behind(sub->get_name(), *words));
    });
}

using run_function = int (*)(const daemon_s& daemon, const json_command_s& command);

// "mode" or "events". FILE belongs to the actions "set" and "check" alone.
void addJsonCommand(CLI::App* app, const char* name, const char* help, const char* actions, run_function run,
                    int* status) {
    struct options_s {
        daemon_s daemon;
        json_command_s command;
    };
    auto options = std::make_shared<options_s>();
    CLI::App* sub = app->add_subcommand(name, help);
    sub->footer(actions);
    words_t known = wordsAfter({name});
    if (name == vocabulary::mode.word) {
        known.emplace_back(vocabulary::modeAsSet.name);  // the daemon's own spelling
    }
    sub->add_option("ACTION", options->command.action, "What to do, below")
        ->check(oneOf(known))
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
    "  show     the mode in force, without what has the default value of its type\n"
    "  verbose  the same with nearly everything\n"
    "  as-set   the last accepted mode, as it was sent\n"
    "  set      sends a mode; the radio should be stopped\n"
    "  check    checks a mode against the rules that hold for every reader, without a\n"
    "           daemon; only \"set\" finds what this reader cannot do";

constexpr const char* eventsActions =
    "Actions:\n"
    "  show     what is sent on the event channel\n"
    "  set      changes it: any of the groups errors, warnings and heartbeat, each\n"
    "           complete\n"
    "  check    checks such settings without a daemon";

// The names are the stats of the daemon, checked here so that a slip gets the list of them.
void addStatus(CLI::App* app, int* status) {
    struct options_s {
        daemon_s daemon;
        status_request_s request;
    };
    auto options = std::make_shared<options_s>();
    CLI::App* sub = app->add_subcommand("status", "Show how the daemon and the radio are");
    sub->footer(foldWords("Names:", splitWords(statusNames()), " "));
    sub->add_option("NAME", options->request.names, "Show only these, below")
        ->check(oneOf(splitWords(statusNames())));
    sub->add_flag("--json", options->request.json, "One line of JSON, with the daemon's names, for programs");
    sub->add_option("--alarms", options->request.alarms,
                    "How many errors and warnings of the daemon's log to show\n"
                    "below the table")
        ->type_name("N")
        ->check(CLI::Range(0, mostAlarms))
        ->capture_default_str();
    addDaemon(sub, &options->daemon);
    sub->callback([options, status] { *status = runStatus(options->daemon, options->request); });
}

// The request takes no words.
void addAccount(CLI::App* app, int* status) {
    struct options_s {
        daemon_s daemon;
        account_request_s request;
    };
    auto options = std::make_shared<options_s>();
    account_request_s* request = &options->request;
    CLI::App* sub =
        app->add_subcommand(std::string(vocabulary::account.word), "Show what became of every tag packet");
    CLI::Option* json = sub->add_flag("--json", request->json, "The daemon's JSON on one line, for programs");
    CLI::Option* watch = sub->add_flag("--watch", request->rates,
                                       "How fast it grows: a table that is drawn anew on a terminal, and\n"
                                       "a line each time elsewhere")
                             ->excludes(json);
    sub->add_option("--interval", request->interval, "Of --watch: the time between two rates")
        ->type_name("SECONDS")
        ->check(secondsRange())
        ->capture_default_str()
        ->needs(watch);
    sub->add_option("--seconds", request->seconds, "Of --watch: end after this time")
        ->type_name("SECONDS")
        ->check(secondsRange())
        ->needs(watch);
    addDaemon(sub, &options->daemon);
    sub->callback([options, status] { *status = runAccount(options->daemon, options->request); });
}

void addResume(CLI::App* app, int* status) {
    struct options_s {
        daemon_s daemon;
        resume_s resume;
    };
    auto options = std::make_shared<options_s>();
    resume_s* resume = &options->resume;
    CLI::App* sub = app->add_subcommand("resume", "Have the daemon work as a file says, after a boot");
    CLI::Option* file = sub->add_option("FILE", resume->file, "A JSON file, - for standard input, or {...}")
                            ->capture_default_str();
    CLI::Option* check = sub->add_flag("--check", resume->check,
                                       "Tell mistakes in the file, and what differs in the running\n"
                                       "daemon; change nothing");
    sub->add_option("--wait", resume->waitSeconds, "How many seconds to wait for the daemon to come up")
        ->type_name("SECONDS")
        ->check(secondsRange())
        ->capture_default_str()
        ->excludes(check);
    sub->add_option("--directory", resume->directory,
                    "The daemon's working directory, where autoStart.txt is; if it\n"
                    "is not given, that of the process at the reply socket")
        ->type_name("DIRECTORY");
    addDaemon(sub, &options->daemon);
    sub->callback([options, file, status] {
        options->resume.isNamed = file->count() != 0;
        *status = runResume(options->daemon, options->resume);
    });
}

void addRemember(CLI::App* app, int* status) {
    struct options_s {
        daemon_s daemon;
        remember_s remember;
    };
    auto options = std::make_shared<options_s>();
    remember_s* remember = &options->remember;
    CLI::App* sub = app->add_subcommand("remember", "Write the file of \"resume\" from the running daemon");
    sub->add_option("FILE", remember->file, "The file to write, or - for standard output")
        ->capture_default_str();
    sub->add_option("--start", remember->start,
                    "Whether the radio is started after a boot: as-it-was, always or\n"
                    "never; if it is not given, the file keeps its word")
        ->type_name("WORD")
        ->check(oneOf({boot::startAsItWas, boot::startAlways, boot::startNever}));
    sub->add_flag("--dry-run", remember->dryRun, "Print what the file would hold");
    addDaemon(sub, &options->daemon);
    sub->callback([options, status] { *status = runRemember(options->daemon, options->remember); });
}

void addBeam(CLI::App* app, const words_t* words, int* status) {
    CLI::App* sub = app->add_subcommand("beam", "Explain a beam number of the array reader, or find it");
    sub->footer(
        "A number, or azimuth and elevation in degrees and perhaps a polarization\n"
        "(TOTAL, THETA, PHI, RHCP or LHCP, the default):\n"
        "  twctl beam 5361\n"
        "  twctl beam 90 45 RHCP");
    sub->prefix_command();
    sub->callback([words, status] { *status = runBeam(behind("beam", *words)); });
}

// The words are not checked here; the engine does that and answers with a sentence.
void addEngine(CLI::App* app, const words_t* words, int* status) {
    auto event = std::make_shared<engine_event_s>();
    CLI::App* sub =
        app->add_subcommand("engine", "Make something happen to the software radio engine, or ask it");
    sub->footer(
        "Words or one JSON object, see tarnwick-scenario(5):\n"
        "  twctl engine gpi 1 high\n"
        "  twctl engine antenna 2 lost\n"
        "  twctl engine fail RXE_start 77 count=2\n"
        "  twctl engine tag 3034257bf7194e4000000001\n"
        "  twctl engine '{\"event\": \"leave\", \"epc\": \"3034257bf7194e4000000001\"}'");
    sub->prefix_command();
    addConnection(sub, "The engine's control socket", &event->endpoint, &event->timeoutSeconds);
    sub->callback([words, event, status] {
        event->words = needed(*words);
        *status = runEngineEvent(*event);
    });
}

void addWhy(CLI::App* app, int* status) {
    struct options_s {
        daemon_s daemon;
        why_s why;
    };
    auto options = std::make_shared<options_s>();
    CLI::App* sub = app->add_subcommand("why", "Explain why a tag is not reported, and what to do");
    sub->add_option("EPC", options->why.epc,
                    "Hexadecimal digits; the first ones of an EPC stand for all tags\nthat begin so")
        ->required();
    sub->add_option("--seconds", options->why.seconds, "How long to listen for the tag")
        ->type_name("SECONDS")
        ->check(secondsRange())
        ->capture_default_str();
    sub->add_flag("--json", options->why.json, "One line of JSON, for programs");
    sub->add_option("--engine", options->why.engine,
                    "The control socket of the software radio, or none; if it is\n"
                    "not given, ipc:///tmp/rxe_engine where one listens")
        ->type_name("ENDPOINT");
    addDaemon(sub, &options->daemon);
    sub->callback([options, status] { *status = runWhy(options->daemon, options->why); });
}

}  // namespace

CLI::Validator secondsRange() {
    return CLI::Validator(
        [](std::string& text) {
            constexpr double shortest = 0.001, longest = 86400.0;
            double seconds = 0;
            const bool isGood =
                CLI::detail::lexical_cast(text, seconds) && seconds >= shortest && seconds <= longest;
            return isGood ? std::string() : "\"" + text + "\" is not a number of seconds from 0.001 to 86400";
        },
        "");
}

void addRequests(CLI::App* app, const words_t* words, int* status) {
    addStatus(app, status);
    addAccount(app, status);
    addJsonCommand(app, "mode", "Show, set or check what the radio does", modeActions, runMode, status);
    addJsonCommand(app, "events", "Show, set or check what is sent on the event channel", eventsActions,
                   runEvents, status);
    for (const command_s& command : commands) {
        addCommand(app, command, words, status);
    }
    addRawRequest(app, words, status);
    addWhy(app, status);
    addResume(app, status);
    addRemember(app, status);
    addBeam(app, words, status);
    addEngine(app, words, status);
}
