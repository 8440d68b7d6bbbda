// SPDX-License-Identifier: MIT
// twctl: talks to the daemon from the command line. One subcommand runs in each call, on the
// main thread; its callback leaves the exit status.
#include <signal.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "arguments.hpp"
#include "completion.hpp"
#include "exit_status.hpp"
#include "help.hpp"
#include "requests.hpp"
#include "subcommands.hpp"

namespace {

void addCompletion(CLI::App* app, int* status) {
    static std::string line;  // read by the callback
    CLI::App* sub = app->add_subcommand("complete", "Print what may come next on a line");
    sub->group("");  // for the completion script alone
    sub->add_option("LINE", line)->required();
    sub->callback([app, status] {
        for (const std::string& candidate : completeLine(*app, line)) {
            *status = *status == exitSuccess ? printText(candidate) : *status;
        }
    });
}

// "twctl help", which many try first.
void addHelp(CLI::App* app, int* status) {
    CLI::App* sub = app->add_subcommand("help", "Show this help");
    sub->callback([app, status] {  // app->help() would be that of the subcommand
        const std::string text =
            app->get_formatter()->make_help(app, app->get_name(), CLI::AppFormatMode::Normal);
        *status = printText(text.substr(0, text.find_last_not_of('\n') + 1));
    });
}

std::string failureText(const CLI::App*, const CLI::Error& error) {
    return "twctl: " + std::string(error.what()) + "; see --help\n";
}

}  // namespace

int main(int argc, char** argv) {
    // A reader that goes away, as "head" does, shows as a failed write.
    signal(SIGPIPE, SIG_IGN);
    // A reader at the end of a pipe gets whole lines, and each at once.
    std::setvbuf(stdout, nullptr, _IOLBF, 1U << 16);
    CLI::App app{"Talks to the tarnwick daemon", "twctl"};
    const auto formatter = std::make_shared<help_formatter_c>();
    formatter->label("Positionals", "Arguments");
    app.formatter(formatter);  // for each subcommand as well
    app.require_subcommand(1);
    app.footer(exitStatusHelp);
    int status = exitSuccess;
    std::vector<std::string> words;  // of the one subcommand that is run
    addRequests(&app, &words, &status);
    addWatch(&app, &status);
    addHelp(&app, &status);
    addCompletion(&app, &status);
    app.failure_message(failureText);
    app.set_version_flag("--version", "twctl " TARNWICK_VERSION, "Print the version and exit");
    try {
        std::vector<std::string> arguments = arrangeArguments(app, {argv + 1, argv + argc}, &words);
        std::ranges::reverse(arguments);  // as the parser takes a list
        app.parse(arguments);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? exitSuccess : exitTrouble;
    }
    return status;
}
