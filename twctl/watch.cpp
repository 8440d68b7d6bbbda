// SPDX-License-Identifier: MIT
// One thread waits for frames, signals, the clock and the end of standard output in one poll.
#include "watch.hpp"

#include <unistd.h>
#include <zmq.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "decoding.hpp"
#include "exit_status.hpp"
#include "live_table.hpp"
#include "report_gaps.hpp"
#include "sockets.hpp"

const std::array<channel_s, 3> channels{{
    {"tags", "ipc:///tmp/data", decodeTagFrame},
    {"events", "ipc:///tmp/events", decodeTextFrame},
    {"gpio", "ipc:///tmp/gpio_led_controller", decodeTextFrame},
}};

namespace {

// Frames taken before the signals and the clock are looked at again.
constexpr int framesInOneGo = 256;

// What a step leads to: the next one, or the end. `silentlyDone` is the end of a pipe's reader.
enum progress_e { goOn, enough, silentlyDone, trouble };

// Subscribes and binds or connects. A subscriber's number is the two bytes with which its
// frames begin, low byte first, so the filter is ZeroMQ's. False, with a sentence, when it
// cannot be done.
bool attach(const watch_s& watch, void* socket) {
    if (watch.bind && hasLiveListener(watch.endpoint)) {
        std::fprintf(stderr, "twctl: %s: another process listens there, and would lose its frames\n",
                     watch.endpoint.c_str());
        return false;
    }
    std::string prefix;
    if (watch.subscriber) {
        prefix = {static_cast<char>(*watch.subscriber & 0xff), static_cast<char>(*watch.subscriber >> 8)};
    }
    zmq_setsockopt(socket, ZMQ_SUBSCRIBE, prefix.data(), prefix.size());
    const int rc =
        watch.bind ? zmq_bind(socket, watch.endpoint.c_str()) : zmq_connect(socket, watch.endpoint.c_str());
    if (rc != 0) {
        std::fprintf(stderr, "twctl: %s: %s\n", watch.endpoint.c_str(), zmq_strerror(errno));
    }
    return rc == 0;
}

// What the errno of a write leads to.
progress_e afterWriting(int error) {
    if (error == 0) {
        return goOn;
    }
    if (error == EPIPE) {
        return silentlyDone;
    }
    std::fprintf(stderr, "twctl: standard output: %s\n", std::strerror(error));
    return trouble;
}

// Time between two drawings of the live table on a terminal.
constexpr std::chrono::milliseconds redrawInterval{500};

// What has been shown, and why some frames were not.
struct display_s {
    bool onTerminal = isatty(STDOUT_FILENO) == 1;
    std::uint64_t shown = 0;
    bool unreadable = false;      // a frame was not a tag report
    bool withoutAntenna = false;  // a filter by antenna could not judge a report
    bool toldUnreadable = false;
    bool toldWithoutAntenna = false;
    report_gaps_t gaps;
    live_table_s table;
    clock_point nextDraw = table.began;
    std::size_t drawn = 0;
};

// Whether the table is drawn, which lines in between would tear.
bool drawsLive(const watch_s& watch, const display_s& display) {
    return watch.form == form_e::live && display.onTerminal;
}

// Whether reports must be taken apart, which costs more than printing them.
bool needsRecords(const watch_s& watch) {
    return watch.form != form_e::lines || !wantsAll(watch.filter);
}

// Reads the frame's report, and says whether it is to be shown.
bool isToBeShown(const watch_s& watch, std::string_view frame, tag_record_s* record, display_s* display) {
    if (!needsRecords(watch)) {
        return true;
    }
    if (!readTagFrame(frame, record)) {
        display->unreadable = true;
        return false;
    }
    display->withoutAntenna |= !watch.filter.antennas.empty() && !record->antenna;
    return isWanted(watch.filter, *record);
}

// Shows one frame, if it is wanted, and counts it.
progress_e showFrame(const watch_s& watch, std::string_view frame, display_s* display) {
    tag_record_s record;
    if (!isToBeShown(watch, frame, &record, display)) {
        return goOn;
    }
    progress_e progress = goOn;
    switch (watch.form) {
        case form_e::lines:
            progress = afterWriting(writeLine(watch.channel->decode(frame), false));
            break;
        case form_e::csv:
            progress = afterWriting(writeLine(csvLine(record, watch.columns), false));
            break;
        case form_e::live:
            countReport(&display->table, record, std::chrono::steady_clock::now());
            break;
    }
    return progress == goOn && ++display->shown == watch.count ? enough : progress;
}

void tell(const std::string& what) {
    std::fprintf(stderr, "twctl: %s\n", what.c_str());
}

// Whether the numbers of all reports come here. One of several subscribers gets only its share, and
// the other channels do not have such numbers.
bool countsGaps(const watch_s& watch) {
    return watch.channel == &channels.front() && !watch.subscriber;
}

// Takes the number of a frame, whether or not the frame is to be shown.
void countNumber(const watch_s& watch, std::string_view frame, display_s* display) {
    const std::optional<std::uint64_t> number = countsGaps(watch) ? reportNumber(frame) : std::nullopt;
    const std::string text = number ? takeNumber(&display->gaps, *number) : "";
    if (watch.gaps && !text.empty() && !drawsLive(watch, *display)) {
        tell(text);
    }
}

// Shows what has arrived. A batch of reports is one message of several frames
// and may end with an empty one, which is not a report.
progress_e showFrames(const watch_s& watch, void* socket, display_s* display) {
    progress_e progress = goOn;
    zmq_msg_t message;
    zmq_msg_init(&message);
    for (int i = 0; progress == goOn && i < framesInOneGo; ++i) {
        if (zmq_msg_recv(&message, socket, ZMQ_DONTWAIT) < 0) {
            break;
        }
        const std::string_view frame(static_cast<const char*>(zmq_msg_data(&message)),
                                     zmq_msg_size(&message));
        if (!frame.empty()) {
            countNumber(watch, frame, display);
            progress = showFrame(watch, frame, display);
        }
    }
    zmq_msg_close(&message);
    const progress_e flushed = afterWriting(std::fflush(stdout) == 0 ? 0 : errno);
    return flushed == goOn ? progress : flushed;
}

// Columns that were asked for are all shown, with or without values.
void chooseColumns(const watch_s& watch, live_table_s* table) {
    if (watch.form == form_e::live && !watch.columns.empty()) {
        table->columns.clear();
        for (const std::string& column : watch.columns) {
            table->columns.push_back({column, true});
        }
    }
}

progress_e drawWhenDue(const watch_s& watch, display_s* display) {
    const clock_point now = std::chrono::steady_clock::now();
    if (!drawsLive(watch, *display) || now < display->nextDraw) {
        return goOn;
    }
    display->nextDraw = now + redrawInterval;
    return afterWriting(drawTable(display->table, now, &display->drawn));
}

// The table as it is at the end; without a terminal it is the only one.
progress_e finishLive(const watch_s& watch, display_s* display) {
    const clock_point now = std::chrono::steady_clock::now();
    if (drawsLive(watch, *display)) {
        return afterWriting(drawTable(display->table, now, &display->drawn));
    }
    progress_e progress = goOn;
    for (const std::string& line : tableLines(display->table, now, display->table.tags.size())) {
        progress = progress == goOn ? afterWriting(writeLine(line, true)) : progress;
    }
    return progress;
}

void tellOnce(bool happened, bool* told, const char* what) {
    if (happened && !*told) {
        tell(what);
        *told = true;
    }
}

// Why fewer reports are shown than have come; each reason is told once.
void tellLeftOut(display_s* display) {
    tellOnce(display->unreadable, &display->toldUnreadable, "frames that are not tag reports are left out");
    tellOnce(display->withoutAntenna, &display->toldWithoutAntenna,
             "reports without an antenna are left out; the mode's \"tagMetaData\" must hold \"ANTENNA\"");
}

// What the daemon says about the numbers of its reports; nothing when it does not tell.
std::optional<account_numbers_s> askNumbers(const watch_s& watch) {
    return watch.daemon.empty() ? std::nullopt : askAccountNumbers(watch.daemon);
}

// What is missing at the end. `before` is what askNumbers() returned at the beginning.
void tellGaps(const watch_s& watch, const report_gaps_t& gaps,
              const std::optional<account_numbers_s>& before) {
    for (const std::string& line : describeGaps(gaps)) {
        tell(line);
    }
    const auto now = hasGaps(gaps) ? askNumbers(watch) : std::nullopt;
    if (now) {
        tell(describeHeldBack(gaps, before, *now));
    }
}

// The end of the watch or the next drawing, whichever comes first.
deadline_t nextWake(const watch_s& watch, const display_s& display, const deadline_t& deadline) {
    if (!drawsLive(watch, display)) {
        return deadline;
    }
    return deadline ? std::min(*deadline, display.nextDraw) : display.nextDraw;
}

int watchUntilDone(const watch_s& watch, void* socket, int signals, display_s* display) {
    const deadline_t deadline = watch.seconds > 0 ? deadlineIn(watch.seconds) : deadline_t{};
    for (;;) {
        zmq_pollitem_t items[] = {
            {socket, 0, ZMQ_POLLIN, 0},
            {nullptr, signals, ZMQ_POLLIN, 0},
            {nullptr, STDOUT_FILENO, ZMQ_POLLERR, 0},  // its reader has gone
        };
        zmq_poll(items, 3, millisecondsLeft(nextWake(watch, *display, deadline)));
        progress_e progress = items[0].revents != 0 ? showFrames(watch, socket, display) : goOn;
        progress = progress == goOn ? drawWhenDue(watch, display) : progress;
        if (!drawsLive(watch, *display)) {
            tellLeftOut(display);
        }
        if (progress == trouble) {
            return exitTrouble;
        }
        if (progress != goOn || items[1].revents != 0 || items[2].revents != 0) {
            return exitSuccess;
        }
        if (millisecondsLeft(deadline) == 0) {
            return watch.count > 0 ? exitNoAnswer : exitSuccess;
        }
    }
}

}  // namespace

int runWatch(const watch_s& watch) {
    const descriptor_s signals{openSignals()};
    if (watch.gaps && !countsGaps(watch)) {
        tell("gaps are not counted: one of several subscribers gets only some of the reports");
    }
    const auto before = watch.gaps && countsGaps(watch) ? askNumbers(watch) : std::nullopt;
    const connection_s connection = openConnection(ZMQ_SUB);
    if (!attach(watch, connection.socket.get())) {
        return exitTrouble;
    }
    const bound_file_c file(watch.bind ? watch.endpoint : "");
    display_s display;
    chooseColumns(watch, &display.table);
    if (watch.form == form_e::csv && afterWriting(writeLine(csvHeader(watch.columns), true)) == trouble) {
        return exitTrouble;
    }
    const int status = watchUntilDone(watch, connection.socket.get(), signals.fd, &display);
    if (watch.form == form_e::live && status != exitTrouble && finishLive(watch, &display) == trouble) {
        return exitTrouble;
    }
    tellLeftOut(&display);
    tellGaps(watch, display.gaps, before);
    if (status == exitNoAnswer) {
        std::fprintf(stderr, "twctl: %" PRIu64 " of %" PRIu64 " frames within %g s\n", display.shown,
                     watch.count, watch.seconds);
    }
    return status;
}
