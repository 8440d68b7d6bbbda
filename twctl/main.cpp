// SPDX-License-Identifier: MIT
// twctl: talks to the daemon from the command line.
#include <signal.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <string>

#include "completion.hpp"
#include "exit_status.hpp"
#include "requests.hpp"
#include "subcommands.hpp"

namespace {

void addCompletion(CLI::App* app, int* status) {
    static std::string line;  // read by the callback
    CLI::App* sub = app->add_subcommand("complete", "Prints what may come next on a line");
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
    CLI::App* sub = app->add_subcommand("help", "Shows this help");
    sub->callback([app, status] {  // app->help() would be that of the subcommand
        const std::string text =
            app->get_formatter()->make_help(app, app->get_name(), CLI::AppFormatMode::Normal);
        *status = printText(text.substr(0, text.find_last_not_of('\n') + 1));
    });
}

// What stands first and is no subcommand, which the parser would not name. Its own
// options are left to it.
void refuseFirstWord(const CLI::App& app, const std::string& word) {
    const auto subs = app.get_subcommands(nullptr);
    const std::string name = word.substr(0, word.find('='));
    if (!word.starts_with('-')) {
        if (std::ranges::none_of(subs, [&](const CLI::App* sub) { return sub->get_name() == word; })) {
            throw CLI::ValidationError(word, "there is no such subcommand");
        }
    } else if (app.get_option_no_throw(name) == nullptr) {
        const bool known = std::ranges::any_of(
            subs, [&](const CLI::App* sub) { return sub->get_option_no_throw(name) != nullptr; });
        throw CLI::ValidationError(name, known ? "an option stands behind the subcommand"
                                               : "there is no such option, and no subcommand");
    }
}

std::string failureText(const CLI::App*, const CLI::Error& error) {
    return "twctl: " + std::string(error.what()) + "; --help tells more\n";
}

}  // namespace

int main(int argc, char** argv) {
    // A reader that goes away, as "head" does, shows as a failed write.
    signal(SIGPIPE, SIG_IGN);
    // Whoever reads through a pipe gets whole lines, and each at once.
    std::setvbuf(stdout, nullptr, _IOLBF, 1U << 16);
    CLI::App app{"Talks to the tarnwick daemon", "twctl"};
    app.require_subcommand(1);
    app.footer(exitStatusHelp);
    int status = exitSuccess;
    addRequests(&app, &status);
    addWatch(&app, &status);
    addHelp(&app, &status);
    addCompletion(&app, &status);
    app.failure_message(failureText);
    app.set_version_flag("--version", "twctl " TARNWICK_VERSION, "Print the version and exit");
    try {
        if (argc > 1) {
            refuseFirstWord(app, argv[1]);
        }
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? exitSuccess : exitTrouble;
    }
    return status;
}
