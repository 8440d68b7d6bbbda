// SPDX-License-Identifier: MIT
// rm_server: the options, and the profile and fault that they choose.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <string>

#include "server.hpp"

namespace {

// Values as the command line gives them; prepareServer checks profile and fault.
struct options_s {
    std::uint16_t port = 50009;
    std::string profile = "PN5100";
    bool printProfile = false;
    bool verbose = false;
    unsigned timeout = 2000;  // ms
    std::string fault = "none";
    fault_plan_s plan;
};

void addOptions(CLI::App* app, options_s* options) {
    app->add_option("--port", options->port, "TCP port on 127.0.0.1; 0 takes a free one")
        ->capture_default_str();
    app->add_option("--profile", options->profile, "profile file, or one of " + builtInProfileNames())
        ->capture_default_str();
    app->add_flag("--print-profile", options->printProfile, "print the profile as JSON and end");
    app->add_option("--timeout", options->timeout, "ms that a client has to send its request")
        ->check(CLI::Range(10U, 60000U))
        ->capture_default_str();
    app->add_option("--fault", options->fault, "answer wrongly: " + faultNames())->capture_default_str();
    app->add_option("--fault-query", options->plan.query, "only this command, such as getModel");
    app->add_option("--fault-value", options->plan.value,
                    "only this value of missing-value and double-value, such as NumPorts");
    app->add_option("--fault-after", options->plan.after, "requests answered properly first");
    app->add_option("--fault-count", options->plan.count, "requests answered wrongly then; 0 for all");
    app->add_flag("-v,--verbose", options->verbose, "print a line for each request");
}

// One line on standard error; false for the caller to return.
bool refuse(const std::string& what) {
    std::fprintf(stderr, "rm_server: %s\n", what.c_str());
    return false;
}

// Turns the options into what runServer needs; false when one cannot be used.
bool prepareServer(const options_s& options, server_s* server) {
    std::string error;
    if (!findBuiltInProfile(options.profile, &server->profile) &&
        !readProfileFile(options.profile, &server->profile, &error)) {
        return refuse("profile " + options.profile + ": " + error);
    }
    server->plan = options.plan;
    if (!findFault(options.fault, &server->plan.kind)) {
        return refuse("fault " + options.fault + ": not one of " + faultNames());
    }
    server->port = options.port;
    server->timeout = std::chrono::milliseconds(options.timeout);
    server->verbose = options.verbose;
    return true;
}

}  // namespace

// Exit status: 0 at the end by a signal, --help and --version; 1 for a wrong option, and when the
// port cannot be taken.
int main(int argc, char** argv) {
    CLI::App app{"Stand-in for a reader's Reader Management server"};
    options_s options;
    addOptions(&app, &options);
    app.set_version_flag("--version", "rm_server " TARNWICK_VERSION, "print the version and end");
    app.failure_message([](const CLI::App*, const CLI::Error& error) {
        return "rm_server: " + std::string(error.what()) + "; --help tells more\n";
    });
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 1;
    }
    server_s server{};
    if (!prepareServer(options, &server)) {
        return 1;
    }
    if (options.printProfile) {
        std::printf("%s\n", renderProfile(server.profile).c_str());
        return 0;
    }
    return runServer(&server);
}
