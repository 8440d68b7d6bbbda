// SPDX-License-Identifier: MIT
// The command line of "twctl watch": where frames come from, which ones are shown, and how.
#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "exit_status.hpp"
#include "help.hpp"
#include "requests.hpp"
#include "sockets.hpp"
#include "subcommands.hpp"
#include "watch.hpp"
#include "words.hpp"

namespace {

// Subscribers count from 1; 0 has the tags that were read without a CRC.
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
    std::string columns;  // empty: the usual ones
    std::string daemon;   // empty: not given
    watch_s watch;
};

CLI::Validator hexDigits() {
    return CLI::Validator(
        [](std::string& text) {
            const bool isHex = !text.empty() && text.find_first_not_of("0123456789abcdefABCDEF") == text.npos;
            return isHex ? std::string() : "\"" + text + "\" is not a hex string";
        },
        "");
}

// "epc,azimuth,USER[0-1]" as a list.
columns_t splitColumns(const std::string& text) {
    columns_t columns(1);
    for (const char c : text) {
        c == ',' ? void(columns.emplace_back()) : columns.back().push_back(c);
    }
    return columns;
}

CLI::Validator columnNames() {
    return CLI::Validator(
        [](std::string& text) {
            const columns_t columns = splitColumns(text);
            const auto wrong = std::ranges::find_if_not(columns, isColumn);
            return wrong == columns.end()
                       ? std::string()
                       : "\"" + *wrong + "\" is not a column; use " + joinWords(knownColumns());
        },
        "");
}

CLI::Validator frameCount() {
    return CLI::Validator(
        [](std::string& text) {
            constexpr std::size_t mostDigits = 19;  // of what 64 bits hold for certain
            const bool isCount = text.size() <= mostDigits &&
                                 text.find_first_not_of("0123456789") == text.npos &&
                                 text.find_first_not_of('0') != text.npos;
            return isCount ? std::string() : "\"" + text + "\" is not a whole number from 1 up";
        },
        "");
}

// Turns the options into a watch and runs it. Throws CLI::ValidationError for options that do
// not go together and that the parser cannot tell apart.
int startWatch(watch_options_s* options) {
    watch_s* watch = &options->watch;
    watch->channel = std::find_if(channels.begin(), channels.end(),
                                  [&](const channel_s& row) { return row.name == options->channel; });
    if (options->subscriber >= 0) {
        watch->subscriber = static_cast<std::uint16_t>(options->subscriber);
    }
    const bool overTcp = options->tcp || options->subscriber >= 0;
    const bool likeTags = options->csv || options->live || watch->gaps || !wantsAll(watch->filter);
    if ((overTcp || likeTags) && options->channel != channels.front().name) {
        throw CLI::ValidationError("--tcp, --subscriber, --epc, --antenna, --csv, --live and --gaps",
                                   "only for tags");
    }
    if (!options->columns.empty() && !options->csv && !options->live) {
        throw CLI::ValidationError("--columns", "only with --csv or --live");
    }
    watch->columns = !options->columns.empty() ? splitColumns(options->columns)
                     : options->csv            ? usualColumns()
                                               : columns_t();
    watch->form = options->csv ? form_e::csv : options->live ? form_e::live : form_e::lines;
    watch->bind = !overTcp && options->connectEndpoint.empty();
    watch->endpoint = endpointOf(!options->connectEndpoint.empty() ? options->connectEndpoint
                                 : overTcp                         ? tagTcpEndpoint
                                 : !options->bindEndpoint.empty()  ? options->bindEndpoint
                                                                   : watch->channel->endpoint);
    // Reports of another endpoint may be those of another daemon.
    const bool ofThisReader = options->connectEndpoint.empty() && options->bindEndpoint.empty();
    watch->daemon =
        endpointOf(options->daemon.empty() && ofThisReader ? daemon_s().endpoint : options->daemon);
    return runWatch(*watch);
}

// Bind by default; the three others connect.
void addWhere(CLI::App* sub, watch_options_s* options) {
    CLI::Option* tcp = sub->add_flag("--tcp", options->tcp,
                                     "Connect to the daemon's tcp port 5160, where tag reports go while\n"
                                     "data_analytics is STRING or BINARY");
    CLI::Option* subscriber =
        sub->add_option("--subscriber", options->subscriber,
                        "Of the reports on tcp port 5160 only those of this number, 0 to 1024;\n"
                        "0 is for tags that were read without a CRC")
            ->type_name("N")
            ->check(CLI::Range(0, highestSubscriber));
    CLI::Option* connect = sub->add_option("--connect,--from", options->connectEndpoint,
                                           "Connect to this endpoint instead, such as one of twgate")
                               ->type_name("ENDPOINT");
    sub->add_option("--bind,--socket", options->bindEndpoint,
                    "Bind this endpoint instead; not with the three above")
        ->type_name("ENDPOINT")
        ->excludes(tcp)
        ->excludes(subscriber)
        ->excludes(connect);
    connect->excludes(tcp);
}

void addFilter(CLI::App* sub, tag_filter_s* filter) {
    sub->add_option("--epc", filter->epcPrefixes,
                    "Only tags whose EPC begins with these hex digits;\n"
                    "may be given more than once")
        ->type_name("HEX")
        ->check(hexDigits())
        ->take_all()
        ->expected(1);
    sub->add_option("--antenna", filter->antennas, "Only reads by this antenna; may be given more than once")
        ->type_name("N")
        ->check(CLI::Range(0, 65535))
        ->take_all()
        ->expected(1);
}

// How frames are shown and when to end.
void addForm(CLI::App* sub, watch_options_s* options) {
    watch_s* watch = &options->watch;
    CLI::Option* csv = sub->add_flag("--csv", options->csv, "Comma-separated values below a line of names");
    sub->add_flag("--live", options->live,
                  "A table of the tags, drawn twice a second on a terminal; elsewhere\nonce, at the end")
        ->excludes(csv);
    sub->add_option("--columns", options->columns, "Which columns --csv or --live shows, with commas between")
        ->type_name("NAME,...")
        ->check(columnNames());
    sub->add_option("--count", watch->count, "End after this many frames have been shown")
        ->type_name("N")
        ->check(frameCount());
    sub->add_option("--seconds", watch->seconds, "End after this time")
        ->type_name("SECONDS")
        ->check(secondsRange());
}

// Which reports never came is told without these too, but only at the end.
void addGaps(CLI::App* sub, watch_options_s* options) {
    sub->add_flag("--gaps", options->watch.gaps, "Tell each gap in the reports' numbers as it happens");
    sub->add_option("--daemon", options->daemon,
                    "The reply socket of the daemon that sends the reports: it is asked\n"
                    "how many of the missing ones it held back\n"
                    "(default: " +
                        daemon_s().endpoint + ", without --connect and --bind)")
        ->type_name("ENDPOINT");
}

}  // namespace

void addWatch(CLI::App* app, int* status) {
    auto options = std::make_shared<watch_options_s>();
    CLI::App* sub = app->add_subcommand("watch", "Print what the daemon sends, one line for each frame");
    sub->footer(
        "Without --tcp, --subscriber or --connect the endpoint is bound: the daemon\n"
        "connects to ipc:///tmp/data (tags), ipc:///tmp/events (events) or\n"
        "ipc:///tmp/gpio_led_controller (gpio).\n\n" +
        foldWords("Columns:", knownColumns(), " ") + "\nand memory keys such as USER[0-1]");
    sub->add_option("CHANNEL", options->channel, "What to watch: tags, events or gpio")
        ->required()
        ->check(oneOf(wordsAfter({"watch"})));
    addFilter(sub, &options->watch.filter);
    addForm(sub, options.get());
    addGaps(sub, options.get());
    addWhere(sub, options.get());
    sub->callback([options, status] { *status = startWatch(options.get()); });
}
