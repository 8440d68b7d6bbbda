// SPDX-License-Identifier: MIT
#include "picture.hpp"

#include <spdlog/fmt/fmt.h>

#include <algorithm>
#include <utility>

#include "event.hpp"

namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using steady_t = std::chrono::steady_clock;

constexpr auto updateEvery = 100ms;
constexpr auto lookEvery = 250ms;                // while nobody watches
constexpr auto wholeKept = 250ms;                // so that many who ask at once cost no more than one
constexpr std::size_t mostQueued = 16UL << 20;   // bytes of bodies
constexpr std::size_t longestBody = 64UL << 10;  // bytes
constexpr std::size_t mostReaders = 255;
constexpr std::size_t mostRows = 500;  // of an update
constexpr std::size_t mostAlarms = 100;
constexpr std::int64_t millisecond = 1'000;  // microseconds

std::string textOf(const json& value) {
    return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

// A text member of a document that a daemon wrote, cut after some length.
std::string textIn(const json& object, const char* key) {
    constexpr std::size_t longest = 1'000;
    const auto member = object.find(key);
    return member != object.end() && member->is_string() ? member->get<std::string>().substr(0, longest) : "";
}

}  // namespace

json parseShallow(std::string_view text) {
    constexpr int deepest = 16;
    return json::parse(
        text, [](int depth, json::parse_event_t, const json&) { return depth <= deepest; }, false);
}

picture_c::picture_c(std::size_t capacity) : tags(capacity) {}

picture_c::~picture_c() {
    stop();
}

void picture_c::start() {
    if (!thread.joinable()) {
        startedAt = nowMicroseconds() / millisecond;
        session = std::to_string(startedAt);
        isOn = true;
        thread = std::jthread([this](const std::stop_token& stop) { run(stop); });
    }
}

void picture_c::stop() {
    if (thread.joinable()) {
        isOn = false;
        thread.request_stop();
        thread.join();
        updated.notify_all();
    }
}

void picture_c::take(const std::vector<new_entry_s>& entries, const std::vector<source_account_s>& sources) {
    // Only this thread writes them.
    if (newReaders.size() < std::min(sources.size(), mostReaders)) {
        const std::lock_guard guard(queueMutex);
        for (std::size_t i = newReaders.size(); i < std::min(sources.size(), mostReaders); ++i) {
            newReaders.push_back(sources[i].reader);
        }
    }
    if (!isOn || entries.empty()) {
        return;
    }
    const std::lock_guard guard(queueMutex);
    for (const new_entry_s& entry : entries) {
        queueUp(entry);
    }
}

void picture_c::takePresence(const std::vector<new_entry_s>& entries) {
    const auto isOther = [](const new_entry_s& entry) {
        return entry.stream != stream_e::tags && entry.stream != stream_e::events;
    };
    if (!isOn || std::ranges::none_of(entries, isOther)) {
        return;
    }
    const std::lock_guard guard(queueMutex);
    for (const new_entry_s& entry : entries) {
        if (isOther(entry)) {
            queueUp(entry);
        }
    }
}

// `queueMutex` is held.
void picture_c::queueUp(const new_entry_s& entry) {
    if (queue.text.size() + entry.body.size() > mostQueued || entry.body.size() > longestBody ||
        entry.source >= mostReaders) {
        ++missed;
        return;
    }
    queue.text += entry.body;
    queue.rows.push_back({entry.source, entry.boot, entry.stream, entry.takenAt, entry.body.size()});
}

// `mutex` is held.
void picture_c::absorb() {
    batch_s batch;
    {
        const std::lock_guard guard(queueMutex);
        std::swap(batch, queue);
        missedSeen = missed;
        if (newReaders.size() > readers.size()) {
            readers = newReaders;
            news.readers = true;
        }
    }
    std::string_view rest = batch.text;
    for (const batch_s::row_s& row : batch.rows) {
        const std::string_view body = rest.substr(0, row.length);
        rest.remove_prefix(row.length);
        const std::int64_t at = row.takenAt / millisecond;
        if (row.stream == stream_e::events) {
            absorbEvent(row.source, body, at);
            continue;
        }
        if (row.stream != stream_e::tags) {
            absorbPresence(row.boot, body);
            continue;
        }
        const tag_read_s read = readOfReport(body);
        ++reports;
        sourceOf[row.boot] = row.source;
        rates.take(row.source, read.antenna);
        if (!read.epc.empty()) {
            tags.take(row.source, read, at);
            if (hasPresence) {
                tags.takeState(row.source, read.epc, tag_state_e::present);
            }
        }
    }
    news.rates |= rates.closeUntil(nowMicroseconds() / millisecond);
}

void picture_c::absorbEvent(std::size_t reader, std::string_view body, std::int64_t at) {
    const json document = parseShallow(body);
    if (!document.is_object()) {
        return;
    }
    const auto data = document.find("data");
    if (data == document.end() || !data->is_object()) {
        return;
    }
    const std::string type = textIn(document, "type");
    if (type == "heartbeat") {
        heartbeats[reader] = {at, *data};
        news.heartbeats = true;
    } else if (type == "error" || type == "warning") {
        const auto number = data->find("eventNum");
        alarms.push_back(
            {at, reader, type, textIn(*data, "message"),
             number != data->end() && number->is_number_unsigned() ? number->get<std::uint64_t>() : 0});
        ++alarmsSeen;
        ++alarmCounts[{reader, type}];
        if (alarms.size() > mostAlarms) {
            alarms.pop_front();
        }
    }
}

// The read that has made a tag present came before.
void picture_c::absorbPresence(std::int64_t boot, std::string_view body) {
    if (const auto source = sourceOf.find(boot); source != sourceOf.end()) {
        tags.takeState(
            source->second, textMember(body, "epc"),
            textMember(body, "event") == "departed" ? tag_state_e::departed : tag_state_e::present);
    }
}

void picture_c::takeStatus(json newStatus, health_s newHealth) {
    const std::lock_guard guard(mutex);
    statusTime = steady_t::now();
    hasPresence = newStatus.contains("presence");
    if (!status || *status != newStatus || newHealth != healthNow) {
        status = std::make_shared<const json>(std::move(newStatus));
        healthNow = std::move(newHealth);
        news.status = true;
    }
}

void picture_c::takeAccount(const std::string& reader, daemon_account_s account) {
    const std::lock_guard guard(mutex);
    daemon_account_s& own = accounts[reader];
    if (account.account.is_null()) {  // the last one known stays
        own.trouble = std::move(account.trouble);
    } else {
        own = std::move(account);
    }
    news.accounts = true;
}

health_s picture_c::health() const {
    const std::lock_guard guard(mutex);
    return healthNow;
}

steady_t::time_point picture_c::statusAt() const {
    const std::lock_guard guard(mutex);
    return statusTime;
}

picture_numbers_s picture_c::numbers() {
    const std::lock_guard guard(mutex);
    absorb();
    return {.readers = readers,
            .reports = rates.totals(),
            .heartbeats = heartbeats,
            .alarms = alarmCounts,
            .accounts = accounts,
            .status = status,
            .tags = tags.size(),
            .unseen = missedSeen};
}

void picture_c::run(const std::stop_token& stop) {
    while (!stop.stop_requested()) {
        std::this_thread::sleep_for(isWatched() ? updateEvery : lookEvery);
        const std::lock_guard guard(mutex);
        absorb();
        if (steady_t::now() - lastWholeAt > wholeKept) {
            lastWhole.reset();
        }
        if (!isWatched()) {
            tags.dropChanges();
            continue;
        }
        if (const update_t update = makeUpdate()) {
            const std::lock_guard updateGuard(updateMutex);
            updates.push_back(update);
            ++version;
            if (updates.size() > mostUpdates) {
                updates.pop_front();
            }
        }
        updated.notify_all();
    }
}

// Nothing when nothing has changed.
update_t picture_c::makeUpdate() {
    const bool isQuiet = !tags.hasChanges() && !news.status && !news.accounts && !news.heartbeats &&
                         !news.rates && !news.readers && news.reports == reports && news.alarms == alarmsSeen;
    if (isQuiet) {
        return nullptr;
    }
    auto update = std::make_shared<std::string>();
    std::string& out = *update;
    out = fmt::format("event: update\nid: {0}\ndata: {{\"version\":{0},\"at\":{1},", version + 1,
                      nowMicroseconds() / millisecond);
    writeTotals(&out);
    out += ",\"tags\":[";
    tags.writeChanged(mostRows, &out);
    out += "],\"forgotten\":[";
    tags.writeForgotten(mostRows, &out);
    out += "]";
    if (std::exchange(news.readers, false)) {
        out += ",\"readers\":" + textOf(readers);
    }
    if (std::exchange(news.rates, false)) {
        out += ",\"rates\":";
        rates.writeLast(&out);
    }
    if (std::exchange(news.status, false)) {
        writeStatus(&out);
    }
    if (std::exchange(news.accounts, false)) {
        writeAccounts(&out);
    }
    if (std::exchange(news.heartbeats, false)) {
        writeHeartbeats(&out);
    }
    if (const std::uint64_t fresh = alarmsSeen - std::exchange(news.alarms, alarmsSeen); fresh > 0) {
        writeAlarms(alarms.size() - std::min<std::size_t>(fresh, alarms.size()), &out);
    }
    news.reports = reports;
    out += "}\n\n";
    return update;
}

std::shared_ptr<const std::string> picture_c::whole() {
    const std::lock_guard guard(mutex);
    std::uint64_t versionNow = 0;
    {
        const std::lock_guard updateGuard(updateMutex);
        versionNow = version;
    }
    const auto now = steady_t::now();
    if (lastWhole && lastWholeVersion == versionNow && now - lastWholeAt < wholeKept) {
        return lastWhole;
    }
    absorb();
    auto text = std::make_shared<std::string>();
    constexpr std::size_t rowSize = 120;
    text->reserve(tags.size() * rowSize);
    *text = fmt::format(
        R"({{"version":{},"session":"{}","at":{},"program":"{}","startedAt":{},"readers":{},"tagColumns":{},)",
        versionNow, session, nowMicroseconds() / millisecond, TARNWICK_VERSION, startedAt, textOf(readers),
        tag_table_c::columns());
    writeTotals(text.get());
    *text += ",\"tags\":[";
    tags.writeAll(text.get());
    *text += "],\"rates\":";
    rates.writeAll(text.get());
    writeStatus(text.get());
    writeAccounts(text.get());
    writeHeartbeats(text.get());
    writeAlarms(0, text.get());
    *text += "}";
    lastWhole = text;
    lastWholeVersion = versionNow;
    lastWholeAt = now;
    return text;
}

void picture_c::writeTotals(std::string* out) const {
    *out += fmt::format(R"("totals":{{"reports":{},"tags":{},"forgotten":{},"unseen":{}}})", reports,
                        tags.size(), tags.forgotten(), missedSeen);
}

void picture_c::writeStatus(std::string* out) const {
    *out += ",\"status\":" + (status ? textOf(*status) : "null");
    *out +=
        ",\"health\":" + textOf(json{{"ready", healthNow.reasons.empty()}, {"reasons", healthNow.reasons}});
}

void picture_c::writeAccounts(std::string* out) const {
    json list = json::array();
    for (const std::string& reader : readers) {
        const auto own = accounts.find(reader);
        list.push_back(own == accounts.end() ? json(nullptr)
                                             : json{{"at", own->second.at},
                                                    {"account", own->second.account},
                                                    {"trouble", own->second.trouble}});
    }
    *out += ",\"accounts\":" + textOf(list);
}

void picture_c::writeHeartbeats(std::string* out) const {
    json list = json::array();
    for (std::size_t i = 0; i < readers.size(); ++i) {
        const auto own = heartbeats.find(i);
        list.push_back(own == heartbeats.end()
                           ? json(nullptr)
                           : json{{"at", own->second.first}, {"data", own->second.second}});
    }
    *out += ",\"heartbeats\":" + textOf(list);
}

void picture_c::writeAlarms(std::size_t from, std::string* out) const {
    json list = json::array();
    for (std::size_t i = from; i < alarms.size(); ++i) {
        const alarm_s& alarm = alarms[i];
        list.push_back({{"at", alarm.at},
                        {"reader", alarm.reader},
                        {"type", alarm.type},
                        {"message", alarm.message},
                        {"number", alarm.number}});
    }
    *out += ",\"alarms\":" + textOf(list);
}

picture_c::stream_c::stream_c(picture_c* source) : picture(source) {
    // What has changed while nobody watched is in the whole picture.
    const std::lock_guard guard(picture->mutex);
    ++picture->streams;
    const std::lock_guard updateGuard(picture->updateMutex);
    version = picture->version;
}

picture_c::stream_c::~stream_c() {
    --picture->streams;
}

std::optional<std::string> picture_c::stream_c::next(std::chrono::milliseconds patience) {
    if (!std::exchange(greeted, true)) {
        return fmt::format("retry: 2000\n\nevent: hello\ndata: {{\"version\":{},\"session\":\"{}\"}}\n\n",
                           version, picture->session);
    }
    std::unique_lock guard(picture->updateMutex);
    picture->updated.wait_for(guard, patience,
                              [this] { return picture->version > version || !picture->isOn; });
    const std::uint64_t behind = picture->version - version;
    if (!picture->isOn || behind > picture->updates.size()) {
        return std::nullopt;
    }
    std::string text;
    for (std::size_t i = picture->updates.size() - behind; i < picture->updates.size(); ++i) {
        text += *picture->updates[i];
    }
    version = picture->version;
    return text;
}
