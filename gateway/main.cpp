// SPDX-License-Identifier: MIT
// twgate: the options.
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

#include <CLI/CLI.hpp>
#include <string>

#include "config.hpp"
#include "gateway.hpp"
#include "status.hpp"

namespace {

struct options_s {
    std::string config = "/etc/tarnwick/twgate.json";
    bool check = false;
    bool verbose = false;
    std::string status = defaultStatusEndpoint;
    bool json = false;
};

void prepareLog(bool verbose) {
    auto log = spdlog::stderr_logger_mt("twgate");
    log->set_pattern("%Y-%m-%dT%H:%M:%S.%eZ %l %v", spdlog::pattern_time_type::utc);
    log->set_level(verbose ? spdlog::level::debug : spdlog::level::info);
    log->flush_on(spdlog::level::trace);
    spdlog::set_default_logger(log);
}

}  // namespace

// Exit status: that of runGateway() or printStatus(); 64 (EX_USAGE) for a wrong option.
int main(int argc, char** argv) {
    CLI::App app{"Delivers what a reader publishes to MQTT, Kafka, webhooks, files and local subscribers"};
    options_s options;
    app.add_option("-c,--config", options.config, "The configuration")
        ->type_name("FILE")
        ->capture_default_str();
    app.add_flag("--check", options.check, "Tell every mistake of the configuration and end");
    app.add_flag("-v,--verbose", options.verbose, "Also log at level debug");
    app.set_version_flag("--version", "twgate " TARNWICK_VERSION, "Print the version and end");
    app.require_subcommand(0, 1);
    CLI::App* status = app.add_subcommand("status", "Tell what came, what went and what is pending");
    status->add_option("--socket", options.status, "The status socket of the gateway")
        ->type_name("ENDPOINT")
        ->capture_default_str();
    status->add_flag("--json", options.json, "The account as JSON");
    app.failure_message([](const CLI::App*, const CLI::Error& error) {
        return "twgate: " + std::string(error.what()) + "; --help tells more\n";
    });
    constexpr int usage = 64;
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : usage;
    }
    if (status->parsed()) {
        return printStatus(options.status, options.json);
    }
    if (options.check) {
        return checkConfig(options.config);
    }
    prepareLog(options.verbose);
    return runGateway(options.config);
}
