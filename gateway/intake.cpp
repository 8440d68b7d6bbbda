// SPDX-License-Identifier: MIT
// A wake takes all that has arrived, up to a bound, and hands it on in one go: one lock for many frames.
#include "intake.hpp"

#include <spdlog/spdlog.h>
#include <zmq.h>

#include <algorithm>
#include <charconv>
#include <optional>

#include "event.hpp"
#include "http/picture.hpp"
#include "report_json.hpp"
#include "twctl/decoding.hpp"
#include "twctl/sockets.hpp"

namespace {

constexpr int queueLength = 1'000'000;           // messages; memory only for those that wait
constexpr std::int64_t largestFrame = 16 << 20;  // bytes
constexpr std::size_t mostAtOnce = 2'000;        // frames between two looks at the other sockets
constexpr long tick = 500;                       // ms between two pulses

// Compact JSON has no control characters, and a line of a file must not break.
bool isOneObject(std::string_view text) {
    return text.starts_with('{') && text.ends_with('}') &&
           std::ranges::none_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x20; });
}

// One endpoint that is open.
struct inlet_s {
    std::string endpoint;
    std::string reader;
    stream_e stream = stream_e::tags;
    std::size_t source = 0;  // index in the accounts
    std::optional<connection_s> connection;
    std::unique_ptr<bound_file_c> file;
};
using inlets_t = std::vector<std::unique_ptr<inlet_s>>;

// False with the reason.
bool openInlet(inlet_s* inlet, std::string* error) {
    const char* const endpoint = inlet->endpoint.c_str();
    if (hasLiveListener(inlet->endpoint)) {
        const pid_t holder = listenerOf(inlet->endpoint);
        *error = inlet->endpoint + ": " +
                 (holder == 0 ? "another process" : "process " + std::to_string(holder)) +
                 " listens there, and its reports are not taken from it";
        return false;
    }
    inlet->connection.emplace(openConnection(ZMQ_SUB));
    void* const socket = inlet->connection->socket.get();
    constexpr int heartbeat = 2'000;  // ms; a reader without power closes nothing
    zmq_setsockopt(socket, ZMQ_RCVHWM, &queueLength, sizeof queueLength);
    zmq_setsockopt(socket, ZMQ_MAXMSGSIZE, &largestFrame, sizeof largestFrame);
    zmq_setsockopt(socket, ZMQ_HEARTBEAT_IVL, &heartbeat, sizeof heartbeat);
    zmq_setsockopt(socket, ZMQ_SUBSCRIBE, "", 0);
    const bool isFile = ipcFile(inlet->endpoint).has_value();
    if ((isFile ? zmq_bind(socket, endpoint) : zmq_connect(socket, endpoint)) != 0) {
        *error = inlet->endpoint + ": " + zmq_strerror(zmq_errno());
        return false;
    }
    inlet->file = std::make_unique<bound_file_c>(inlet->endpoint);
    return true;
}

judged_frame_s judge(stream_e stream, std::string_view frame) {
    return stream == stream_e::tags ? judgeTagFrame(frame) : judgeEventFrame(frame);
}

}  // namespace

judged_frame_s judgeTagFrame(std::string_view frame) {
    constexpr std::uint8_t jsonKind = 0, reducedKind = 2;
    const std::optional<tag_frame_s> parts = splitTagFrame(frame);
    if (parts && parts->kind != jsonKind) {
        return {jsonOfBinary(parts->body, parts->kind == reducedKind), reportNumber(frame)};
    }
    const std::string_view text = parts ? parts->body : frame;
    const std::optional<std::uint64_t> number = reportNumber(frame);
    return isOneObject(text) && number ? judged_frame_s{std::string(text), number}
                                       : judged_frame_s{{}, std::nullopt};
}

judged_frame_s judgeEventFrame(std::string_view frame) {
    const bool isEvent = isOneObject(frame) && frame.find("\"type\":\"") != frame.npos;
    return {isEvent ? std::string(frame) : std::string(), std::nullopt};
}

std::int64_t uptimeOf(std::string_view body) {
    const std::string_view text = textMember(body, "uptime");
    std::int64_t seconds = 0, part = 0;
    const char* at = text.data();
    const char* const end = text.data() + text.size();
    for (int i = 0; i < 3; ++i) {
        const auto [next, error] = std::from_chars(at, end, part);
        const bool isLast = i == 2;
        if (error != std::errc() || (isLast ? next != end : next == end || *next != ':') || part < 0) {
            return -1;
        }
        seconds = seconds * 60 + part;
        at = next + 1;
    }
    return seconds;
}

struct intake_c::impl_s {
    impl_s(spool_c* target, picture_c* watching) : spool(target), picture(watching) {}

    void run(const std::stop_token& stop);
    bool takeFrom(inlet_s* inlet);
    void takeFrame(const inlet_s& inlet, std::string_view frame, std::int64_t now);
    void placeNumber(source_account_s* source, std::uint64_t number, std::int64_t now);
    void nameBoot(source_account_s* source, std::int64_t now);
    void handOver();
    void endThread();
    void chooseSources(const std::vector<source_config_s>& sources);

    spool_c* spool;
    picture_c* picture;
    std::atomic<std::uint64_t> pulse{0};
    // Of the thread while it runs, else of the main thread.
    inlets_t inlets;
    std::vector<source_account_s> sources;
    std::vector<new_entry_s> entries;
    bool changed = false;  // an account has changed
    std::jthread thread;
};

void intake_c::impl_s::nameBoot(source_account_s* source, std::int64_t now) {
    beginBoot(source, now);
    source->boot.row = spool->addBoot(source->reader, source->boot.name);
}

void intake_c::impl_s::placeNumber(source_account_s* source, std::uint64_t number, std::int64_t now) {
    const std::uint64_t awaited = source->boot.next;
    number_e place = takeNumber(source, number, now);
    if (place == number_e::restart) {
        spdlog::warn("{}: the daemon has restarted: report {} came where {} was awaited", source->reader,
                     number, awaited);
        nameBoot(source, now);
        place = takeNumber(source, number, now);
    }
    if (place == number_e::gap) {
        const lost_range_s& gap = source->lastGaps.back();
        spdlog::warn("{}: {} report{} never came, from {} to {}", source->reader, gap.last - gap.first + 1,
                     gap.first == gap.last ? "" : "s", gap.first, gap.last);
    }
}

void intake_c::impl_s::takeFrame(const inlet_s& inlet, std::string_view frame, std::int64_t now) {
    source_account_s& source = sources[inlet.source];
    judged_frame_s judged = judge(inlet.stream, frame);
    changed = true;
    if (judged.body.empty()) {
        ++source.notReports;
        return;
    }
    if (source.boot.name == 0) {
        nameBoot(&source, now);
    }
    if (judged.number) {
        placeNumber(&source, *judged.number, now);
    } else if (const std::int64_t uptime = uptimeOf(judged.body);
               inlet.stream == stream_e::events && uptime >= 0) {
        takeUptime(&source, uptime);
    }
    entries.push_back({.source = inlet.source,
                       .stream = inlet.stream,
                       .boot = source.boot.row,
                       .number = judged.number,
                       .takenAt = now,
                       .body = std::move(judged.body)});
}

// What has arrived, up to a bound. Whether there was anything.
bool intake_c::impl_s::takeFrom(inlet_s* inlet) {
    const std::int64_t now = nowMicroseconds();
    bool any = false;
    zmq_msg_t message;
    zmq_msg_init(&message);
    for (std::size_t i = 0; i < mostAtOnce; ++i) {
        if (zmq_msg_recv(&message, inlet->connection->socket.get(), ZMQ_DONTWAIT) < 0) {
            break;
        }
        any = true;
        const std::string_view frame(static_cast<const char*>(zmq_msg_data(&message)),
                                     zmq_msg_size(&message));
        if (!frame.empty()) {  // an empty one ends a batch
            takeFrame(*inlet, frame, now);
        }
    }
    zmq_msg_close(&message);
    return any;
}

void intake_c::impl_s::handOver() {
    if (std::exchange(changed, false)) {
        if (picture != nullptr) {
            picture->take(entries, sources);
        }
        spool->take(std::exchange(entries, {}), &sources);
    }
}

void intake_c::impl_s::run(const std::stop_token& stop) {
    std::vector<zmq_pollitem_t> items;
    for (const auto& inlet : inlets) {
        items.push_back({inlet->connection->socket.get(), 0, ZMQ_POLLIN, 0});
    }
    constexpr auto lastLook = std::chrono::seconds(1);  // of a publisher that does not pause
    std::optional<std::chrono::steady_clock::time_point> end;
    bool any = true;
    while (!end || (any && std::chrono::steady_clock::now() < *end)) {
        if (!end && stop.stop_requested()) {
            end = std::chrono::steady_clock::now() + lastLook;
        }
        constexpr long shortTick = 100;  // ms; a stop is noticed after it
        zmq_poll(items.data(), static_cast<int>(items.size()), any ? 0 : std::min(tick, shortTick));
        any = false;
        for (const auto& inlet : inlets) {
            any |= takeFrom(inlet.get());
        }
        handOver();
        ++pulse;
    }
}

void intake_c::impl_s::endThread() {
    if (thread.joinable()) {
        thread.request_stop();
        thread.join();
    }
}

// Accounts of readers that are no longer listed stay in the spool.
void intake_c::impl_s::chooseSources(const std::vector<source_config_s>& wanted) {
    const std::vector<source_account_s> before = sources.empty() ? spool->account().sources : sources;
    sources = before;
    for (const source_config_s& source : wanted) {
        if (std::ranges::find(sources, source.reader, &source_account_s::reader) == sources.end()) {
            sources.emplace_back().reader = source.reader;
        }
    }
    changed = true;
    for (const auto& inlet : inlets) {
        const auto own = std::ranges::find(sources, inlet->reader, &source_account_s::reader);
        inlet->source = static_cast<std::size_t>(own - sources.begin());
    }
}

intake_c::intake_c(spool_c* spool, picture_c* picture) : impl(std::make_unique<impl_s>(spool, picture)) {}

intake_c::~intake_c() {
    close();
}

bool intake_c::open(const std::vector<source_config_s>& sources, std::string* error) {
    inlets_t fresh;
    const auto want = [&](const source_config_s& source, const std::string& endpoint, stream_e stream) {
        if (endpoint.empty()) {
            return true;
        }
        auto inlet = std::make_unique<inlet_s>();
        inlet->endpoint = endpoint;
        inlet->reader = source.reader;
        inlet->stream = stream;
        const bool isOpen = std::ranges::any_of(impl->inlets, [&](const auto& known) {
            return known->endpoint == endpoint && known->stream == stream;
        });
        const bool usable = isOpen || openInlet(inlet.get(), error);
        fresh.push_back(std::move(inlet));
        return usable;
    };
    for (const source_config_s& source : sources) {
        if (!want(source, source.tags, stream_e::tags) || !want(source, source.events, stream_e::events)) {
            return false;
        }
    }
    impl->endThread();
    for (const auto& inlet : fresh) {
        for (const auto& known : impl->inlets) {
            if (known->endpoint == inlet->endpoint && !inlet->connection) {
                inlet->connection = std::move(known->connection);
                inlet->file = std::move(known->file);
            }
        }
    }
    impl->inlets = std::move(fresh);
    impl->chooseSources(sources);
    impl->thread = std::jthread([this](const std::stop_token& stop) { impl->run(stop); });
    return true;
}

void intake_c::close() {
    impl->endThread();
    impl->inlets.clear();
}

std::uint64_t intake_c::pulse() const {
    return impl->pulse;
}
