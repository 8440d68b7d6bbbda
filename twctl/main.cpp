// SPDX-License-Identifier: MIT
// twctl: talks to the daemon from the command line.
#include <signal.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "engine.hpp"
#include "exit_status.hpp"
#include "requests.hpp"
#include "watch.hpp"

namespace {

constexpr double longestSeconds = 86400.0;
constexpr int highestSubscriber = 1024;

// A time in seconds; fractions down to a millisecond count.
CLI::Validator secondsRange() {
    return CLI::Range(0.001, longestSeconds);
}

// The words of a request are no option and no positional to the parser, which
// would leave them out of the usage line.
class words_formatter_c : public CLI::Formatter {
    std::string make_usage(const CLI::App* app, std::string) const override {
        return "Usage: twctl " + app->get_name() + " [OPTIONS] WORDS...\n";
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

// A subcommand fills its own record while the line is parsed and writes its
// exit status when it has run.
void addRequest(CLI::App* app, int* status) {
    auto request = std::make_shared<request_s>();
    CLI::App* sub = app->add_subcommand("request", "Sends one request and prints the reply");
    sub->footer(
        std::string("All that stands behind the options is the request, its words joined by single blanks:\n"
                    "  twctl request start\n"
                    "  twctl request --timeout 1 data_analytics STRING\n\n") +
        exitStatusHelp);
    sub->formatter(std::make_shared<words_formatter_c>());
    sub->prefix_command();  // a word of the request may begin with "-"
    sub->add_option("--timeout", request->timeoutSeconds, "Seconds to wait for the reply")
        ->check(secondsRange())
        ->capture_default_str();
    sub->add_option("--endpoint", request->endpoint, "The daemon's reply socket")->capture_default_str();
    sub->callback([sub, request, status] {
        request->words = wordsOf(*sub);
        *status = runRequest(*request);
    });
}

void addEngine(CLI::App* app, int* status) {
    auto event = std::make_shared<engine_event_s>();
    CLI::App* sub = app->add_subcommand("engine", "Makes something happen to the software radio engine");
    sub->footer(
        std::string("Words or one JSON object, as engine/README.md tells:\n"
                    "  twctl engine gpi 1 high\n"
                    "  twctl engine antenna 2 lost\n"
                    "  twctl engine fail RXE_start 77 count=2\n"
                    "  twctl engine '{\"event\": \"leave\", \"epc\": \"3034257bf7194e4000000001\"}'\n\n") +
        exitStatusHelp);
    sub->formatter(std::make_shared<words_formatter_c>());
    sub->prefix_command();
    sub->add_option("--timeout", event->timeoutSeconds, "Seconds to wait for the answer")
        ->check(secondsRange())
        ->capture_default_str();
    sub->add_option("--endpoint", event->endpoint, "The engine's control socket")->capture_default_str();
    sub->callback([sub, event, status] {
        event->words = wordsOf(*sub);
        *status = runEngineEvent(*event);
    });
}

std::vector<std::string> channelNames() {
    std::vector<std::string> names;
    for (const channel_s& channel : channels) {
        names.emplace_back(channel.name);
    }
    return names;
}

// What the options of "watch" say, as they are parsed.
struct watch_options_s {
    std::string channel;
    std::string bindEndpoint;
    std::string connectEndpoint;
    bool tcp = false;
    int subscriber = -1;  // -1: not given
    watch_s watch;
};

int startWatch(watch_options_s* options) {
    watch_s* watch = &options->watch;
    watch->channel = std::find_if(channels.begin(), channels.end(),
                                  [&](const channel_s& row) { return row.name == options->channel; });
    if (options->subscriber >= 0) {
        watch->subscriber = static_cast<std::uint16_t>(options->subscriber);
    }
    const bool overTcp = options->tcp || options->subscriber >= 0;
    if (overTcp && options->channel != channels.front().name) {
        throw CLI::ValidationError("--tcp and --subscriber", "only tags are offered there");
    }
    watch->bind = !overTcp && options->connectEndpoint.empty();
    watch->endpoint = !options->connectEndpoint.empty() ? options->connectEndpoint
                      : overTcp                         ? tagTcpEndpoint
                      : !options->bindEndpoint.empty()  ? options->bindEndpoint
                                                        : watch->channel->endpoint;
    return runWatch(*watch);
}

void addWatch(CLI::App* app, int* status) {
    auto options = std::make_shared<watch_options_s>();
    CLI::App* sub = app->add_subcommand("watch", "Prints what the daemon sends, one line for each frame");
    sub->footer(std::string("Without --tcp, --subscriber or --connect the endpoint is bound: the daemon\n"
                            "connects to ipc:///tmp/data (tags), ipc:///tmp/events (events) or\n"
                            "ipc:///tmp/gpio_led_controller (gpio).\n\n") +
                exitStatusHelp);
    sub->add_option("channel", options->channel, "What to watch")
        ->required()
        ->check(CLI::IsMember(channelNames()));
    sub->add_option("--count", options->watch.count, "End after this many frames")
        ->check(CLI::PositiveNumber);
    sub->add_option("--seconds", options->watch.seconds, "End after this time")->check(secondsRange());
    CLI::Option* tcp = sub->add_flag("--tcp", options->tcp,
                                     "Connect to the daemon's tcp port 5160, where tag reports go while\n"
                                     "data_analytics is STRING or BINARY");
    CLI::Option* subscriber = sub->add_option("--subscriber", options->subscriber,
                                              "Of the reports on tcp port 5160 only those of this number;\n"
                                              "0 is for tags that were read without a CRC")
                                  ->check(CLI::Range(0, highestSubscriber));
    CLI::Option* connect =
        sub->add_option("--connect", options->connectEndpoint, "Connect to this endpoint instead");
    sub->add_option("--bind", options->bindEndpoint, "Bind this endpoint instead")
        ->excludes(tcp)
        ->excludes(subscriber)
        ->excludes(connect);
    connect->excludes(tcp);
    sub->callback([options, status] { *status = startWatch(options.get()); });
}

}  // namespace

int main(int argc, char** argv) {
    // A reader that goes away, as "head" does, shows as a failed write.
    signal(SIGPIPE, SIG_IGN);
    CLI::App app{"Talks to the tarnwick daemon", "twctl"};
    app.require_subcommand(1);
    app.footer(exitStatusHelp);
    int status = exitSuccess;
    addRequest(&app, &status);
    addEngine(&app, &status);
    addWatch(&app, &status);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? exitSuccess : exitTrouble;
    }
    return status;
}
