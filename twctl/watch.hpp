// SPDX-License-Identifier: MIT
// "twctl watch": the frames of one of the daemon's channels, one line each. Only one process
// can bind an endpoint, so a second "watch" of the same channel is refused.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "tag_record.hpp"

// What can be watched. The daemon connects to these endpoints, so the client binds them.
// The first channel is that of the tag reports, for which alone filters and forms exist.
struct channel_s {
    const char* name;      // the word on the command line
    const char* endpoint;  // where the daemon connects
    // The line for a frame, without a newline.
    std::string (*decode)(std::string_view frame);
};
extern const std::array<channel_s, 3> channels;

// Where tag reports are offered while the daemon's data_analytics is STRING or
// BINARY; there the daemon listens and the client connects.
inline constexpr const char* tagTcpEndpoint = "tcp://127.0.0.1:5160";

// How tag reports are shown: a line for each frame, comma-separated values, or the table of
// live_table.hpp. The other channels have lines only.
enum class form_e { lines, csv, live };

// One run, as the command line asks for it.
struct watch_s {
    const channel_s* channel = nullptr;
    std::string endpoint;
    bool bind = true;                         // false: connect, as to tcp port 5160
    std::optional<std::uint16_t> subscriber;  // only frames that begin with this number
    tag_filter_s filter;
    form_e form = form_e::lines;
    columns_t columns;        // of the forms csv and live; empty: the usual ones
    std::uint64_t count = 0;  // frames to show; 0 is no limit
    double seconds = 0.0;     // how long to watch; 0 is no limit
    bool gaps = false;        // tell each gap in the numbers of the reports as it happens
    std::string daemon;       // reply socket of the daemon that sends the reports; empty: not known
};

// Prints frames, of tag reports those that the filter wants, until `count` of them are shown,
// `seconds` are over, SIGINT or SIGTERM comes, or the reader of standard output goes away. The
// file of a bound endpoint is gone on return. Standard error tells which tag reports never came, if
// any, and how many of these the daemon held back. Blocks the two signals for good. Returns an
// exit_status_e: exitNoAnswer when the time is over before `count`.
int runWatch(const watch_s& watch);
