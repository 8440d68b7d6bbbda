// SPDX-License-Identifier: MIT
// The command line of "twctl watch".
#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "exit_status.hpp"
#include "sockets.hpp"
#include "subcommands.hpp"
#include "watch.hpp"
#include "words.hpp"

namespace {

constexpr int highestSubscriber = 1024;

// What the options of "watch" say, as they are parsed.
struct watch_options_s {
    std::string channel;
    std::string bindEndpoint;
    std::string connectEndpoint;
    bool tcp = false;
    int subscriber = -1;  // -1: not given
    bool csv = false;
    bool live = false;
    watch_s watch;
};

CLI::Validator hexDigits() {
    return CLI::Validator(
        [](std::string& text) {
            const bool isHex = !text.empty() && text.find_first_not_of("0123456789abcdefABCDEF") == text.npos;
            return isHex ? std::string() : "\"" + text + "\" is no row of hex digits";
        },
        "HEX");
}

CLI::Validator frameCount() {
    return CLI::Validator(
        [](std::string& text) {
            constexpr std::size_t mostDigits = 19;  // of what 64 bits hold for certain
            const bool isCount = text.size() <= mostDigits &&
                                 text.find_first_not_of("0123456789") == text.npos &&
                                 text.find_first_not_of('0') != text.npos;
            return isCount ? std::string() : "\"" + text + "\" is no whole number from 1 on";
        },
        "COUNT");
}

int startWatch(watch_options_s* options) {
    watch_s* watch = &options->watch;
    watch->channel = std::find_if(channels.begin(), channels.end(),
                                  [&](const channel_s& row) { return row.name == options->channel; });
    if (options->subscriber >= 0) {
        watch->subscriber = static_cast<std::uint16_t>(options->subscriber);
    }
    const bool overTcp = options->tcp || options->subscriber >= 0;
    const bool likeTags = options->csv || options->live || !wantsAll(watch->filter);
    if ((overTcp || likeTags) && options->channel != channels.front().name) {
        throw CLI::ValidationError("--tcp, --subscriber, --epc, --antenna, --csv and --live",
                                   "only for tags");
    }
    watch->form = options->csv ? form_e::csv : options->live ? form_e::live : form_e::lines;
    watch->bind = !overTcp && options->connectEndpoint.empty();
    watch->endpoint = endpointOf(!options->connectEndpoint.empty() ? options->connectEndpoint
                                 : overTcp                         ? tagTcpEndpoint
                                 : !options->bindEndpoint.empty()  ? options->bindEndpoint
                                                                   : watch->channel->endpoint);
    return runWatch(*watch);
}

void addWhere(CLI::App* sub, watch_options_s* options) {
    CLI::Option* tcp = sub->add_flag("--tcp", options->tcp,
                                     "Connect to the daemon's tcp port 5160, where tag reports go while\n"
                                     "data_analytics is STRING or BINARY");
    CLI::Option* subscriber = sub->add_option("--subscriber", options->subscriber,
                                              "Of the reports on tcp port 5160 only those of this number;\n"
                                              "0 is for tags that were read without a CRC")
                                  ->check(CLI::Range(0, highestSubscriber));
    CLI::Option* connect =
        sub->add_option("--connect", options->connectEndpoint, "Connect to this endpoint instead");
    sub->add_option("--bind,--socket", options->bindEndpoint, "Bind this endpoint instead")
        ->excludes(tcp)
        ->excludes(subscriber)
        ->excludes(connect);
    connect->excludes(tcp);
}

void addWhatAndHow(CLI::App* sub, watch_options_s* options) {
    watch_s* watch = &options->watch;
    sub->add_option("--epc", watch->filter.epcPrefixes,
                    "Only tags whose EPC begins with these hex digits;\n"
                    "may stand more than once")
        ->check(hexDigits())
        ->take_all()
        ->expected(1);
    sub->add_option("--antenna", watch->filter.antennas,
                    "Only reads by this antenna; may stand more than once")
        ->check(CLI::Range(0, 65535))
        ->take_all()
        ->expected(1);
    CLI::Option* csv = sub->add_flag("--csv", options->csv, "Comma-separated values under a line of names");
    sub->add_flag("--live", options->live,
                  "A table of the tags, drawn twice a second on a terminal; elsewhere\nonce, at the end")
        ->excludes(csv);
    sub->add_option("--count", watch->count, "End after this many frames have been shown")
        ->check(frameCount());
    sub->add_option("--seconds", watch->seconds, "End after this time")->check(secondsRange());
}

}  // namespace

void addWatch(CLI::App* app, int* status) {
    auto options = std::make_shared<watch_options_s>();
    CLI::App* sub = app->add_subcommand("watch", "Prints what the daemon sends, one line for each frame");
    sub->footer(std::string("Without --tcp, --subscriber or --connect the endpoint is bound: the daemon\n"
                            "connects to ipc:///tmp/data (tags), ipc:///tmp/events (events) or\n"
                            "ipc:///tmp/gpio_led_controller (gpio).\n\n") +
                exitStatusHelp);
    sub->add_option("channel", options->channel, "What to watch")
        ->required()
        ->check(CLI::IsMember(wordsAfter({"watch"})));
    addWhatAndHow(sub, options.get());
    addWhere(sub, options.get());
    sub->callback([options, status] { *status = startWatch(options.get()); });
}
