// SPDX-License-Identifier: MIT
// Type "kafka": a producer of librdkafka for each sink. It is idempotent and keeps the order within each
// partition, so within each key, also when it repeats. The library connects again by itself; until then
// the entries stay in its queue, which is the sender's window. It is closed and opened again only when
// it gives a message back, or refuses the password, which is then read again.
//
// A record that the cluster refuses for good fails its batch and all behind it. Then the entries in flight go
// once more, in batches of one, and what is refused now is set aside (refusals.hpp).
//
// All callbacks but the one that wakes the sender run within rd_kafka_poll(), on the sender's thread.
#include <librdkafka/rdkafka.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <array>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>

#include "properties.hpp"
#include "sink.hpp"
#include "sinks/ending.hpp"
#include "sinks/message.hpp"
#include "sinks/pattern.hpp"
#include "sinks/refusals.hpp"

namespace {

using namespace std::chrono_literals;
using steady_t = std::chrono::steady_clock;
using nlohmann::json;

constexpr auto stalledAfter = 10s;      // without a confirmation while entries are in flight
constexpr auto toldFor = 60s;           // a trouble of the link, before it is told again
constexpr std::size_t errorSize = 512;  // bytes, as librdkafka's own programs have it

// What the cluster says of a record that it will never take. The size is that of a batch.
constexpr std::array ofTheSize{RD_KAFKA_RESP_ERR_MSG_SIZE_TOO_LARGE, RD_KAFKA_RESP_ERR_RECORD_LIST_TOO_LARGE};
constexpr std::array ofTheRecord{RD_KAFKA_RESP_ERR_INVALID_MSG, RD_KAFKA_RESP_ERR_INVALID_RECORD,
                                 RD_KAFKA_RESP_ERR_INVALID_TIMESTAMP, RD_KAFKA_RESP_ERR_TOPIC_EXCEPTION};
// And of a topic that somebody may still make.
constexpr std::array ofAnUnknownTopic{RD_KAFKA_RESP_ERR_UNKNOWN_TOPIC_OR_PART,
                                      RD_KAFKA_RESP_ERR__UNKNOWN_TOPIC};

template <class List>
bool isOneOf(const List& list, rd_kafka_resp_err_t code) {
    return std::ranges::find(list, code) != list.end();
}

// Without its time and its count of repetitions, which make each error text a new one.
std::string plainError(std::string_view text) {
    return std::string(text.substr(0, text.find(" (after ")));
}

// What the library's threads use. It lives as long as they do, which may be longer than the sink.
struct waker_s {
    std::mutex mutex;
    std::function<void()> wake;
};

class kafka_sink_c : public sink_c {
  public:
    kafka_sink_c(const sink_config_s& config, sink_context_s senderContext)
        : sink_c({.window = kafkaWindow(config.settings), .batch = 1'000}),
          name(config.name),
          settings(config.settings),
          context(std::move(senderContext)),
          topicPattern(settings.at("topic").get<std::string>()),
          keyPattern(settings.value("key", std::string("{epc}"))),
          form(settings.value("format", "binary") == "cloudevent" ? message_form_e::structured
                                                                  : message_form_e::binary),
          waitsForTopics(settings.value("unknownTopic", "wait") == "wait"),
          refusals(config) {}
    ~kafka_sink_c() override { kafka_sink_c::close(); }

    std::optional<failure_s> open() override;
    std::size_t offer(std::span<const entry_s> entries) override;
    poll_s poll() override;
    void close() override;

  private:
    bool makeWayFor(const entry_s& entry);
    rd_kafka_resp_err_t produce(const entry_s& entry);
    bool take(const entry_s& entry);
    void setAside(const entry_s& entry, const char* reason);
    bool isFinal(rd_kafka_resp_err_t code) const;
    rd_kafka_topic_t* topicOf(const entry_s& entry);
    void takeReport(const rd_kafka_message_t& message);
    void takeError(int code, const char* reason);
    void keepTelling(const std::string& why);
    void takeStatistics(std::string_view text);
    std::string whyDown() const;

    const std::string name;
    const json settings;
    const sink_context_s context;
    const pattern_c topicPattern, keyPattern;
    const message_form_e form;
    const bool waitsForTopics;  // that do not exist

    rd_kafka_t* producer = nullptr;
    rd_kafka_queue_t* queue = nullptr;
    std::shared_ptr<waker_s> waker;
    std::map<std::string, rd_kafka_topic_t*> topics;
    std::vector<settled_s> settled;  // since the last poll
    std::size_t inFlight = 0;
    steady_t::time_point lastProgress{};               // while entries are in flight
    std::optional<std::string> failure;                // for which the producer has to be closed
    std::string lastError;                             // of a connection, since the last confirmation
    std::string trouble = connecting;                  // until something proves that the link is up
    std::map<std::string, steady_t::time_point> told;  // troubles of the link since it was up, and when

    refusals_c refusals;
    bool sendsAlone = false;                // batches have one entry
    std::map<std::int64_t, entry_s> alone;  // those in flight
    bool beginsAtOnce = false;              // the failure needs no back-off
    std::size_t refused = 0;                // entries of batches that are suspected
    bool wereTooLarge = false;              // because of their size, and none was set aside
    std::size_t mostOfBatch = 0;            // entries; 0: as configured
};

std::optional<failure_s> kafka_sink_c::open() {
    std::vector<std::string> mistakes;
    kafka_conf_ptr conf = makeKafkaConf(settings, &mistakes);
    if (!mistakes.empty()) {
        return failure_s{mistakes.front()};
    }
    std::array<char, errorSize> error{};
    rd_kafka_conf_set(conf.get(), "log.queue", "true", nullptr, 0);
    if (sendsAlone || mostOfBatch > 0) {
        rd_kafka_conf_set(conf.get(), "batch.num.messages",
                          std::to_string(sendsAlone ? 1 : mostOfBatch).c_str(), nullptr, 0);
    }
    rd_kafka_conf_set_opaque(conf.get(), this);
    rd_kafka_conf_set_dr_msg_cb(conf.get(), [](rd_kafka_t*, const rd_kafka_message_t* message, void* self) {
        static_cast<kafka_sink_c*>(self)->takeReport(*message);
    });
    rd_kafka_conf_set_error_cb(conf.get(), [](rd_kafka_t*, int code, const char* reason, void* self) {
        static_cast<kafka_sink_c*>(self)->takeError(code, reason);
    });
    rd_kafka_conf_set_stats_cb(conf.get(), [](rd_kafka_t*, char* text, std::size_t size, void* self) {
        static_cast<kafka_sink_c*>(self)->takeStatistics({text, size});
        return 0;
    });
    // What concerns the link comes as an error too, and is told once.
    rd_kafka_conf_set_log_cb(conf.get(), [](const rd_kafka_t* client, int, const char* topic,
                                            const char* text) {
        const auto* const self = static_cast<const kafka_sink_c*>(rd_kafka_opaque(client));
        // Of our own defaults one is called experimental.
        const bool isWarning = std::string_view(topic) == "CONFWARN" &&
                               std::string_view(text).find("is experimental") == std::string_view::npos;
        spdlog::log(isWarning ? spdlog::level::warn : spdlog::level::debug, "sink {}: {}", self->name, text);
    });
    waker = std::make_shared<waker_s>();  // before the library's threads begin
    waker->wake = context.wake;
    producer = rd_kafka_new(RD_KAFKA_PRODUCER, conf.get(), error.data(), error.size());
    if (producer == nullptr) {
        return failure_s{error.data()};
    }
    static_cast<void>(conf.release());  // the producer's now
    rd_kafka_set_log_queue(producer, nullptr);
    queue = rd_kafka_queue_get_main(producer);
    rd_kafka_queue_cb_event_enable(
        queue,
        [](rd_kafka_t*, void* own) {
            const std::lock_guard guard(static_cast<waker_s*>(own)->mutex);
            static_cast<waker_s*>(own)->wake();
        },
        waker.get());
    return std::nullopt;
}

// The library waits for its threads, which may be looking up names.
void kafka_sink_c::close() {
    if (producer == nullptr) {
        return;
    }
    rd_kafka_queue_cb_event_enable(queue, nullptr, nullptr);
    {
        const std::lock_guard guard(waker->mutex);
        waker->wake = [] {};
    }
    endInTime([client = producer, events = queue, handles = std::move(topics), own = waker] {
        rd_kafka_queue_destroy(events);
        rd_kafka_purge(client, RD_KAFKA_PURGE_F_QUEUE | RD_KAFKA_PURGE_F_INFLIGHT);
        for (const auto& [topic, handle] : handles) {
            rd_kafka_topic_destroy(handle);
        }
        rd_kafka_destroy(client);
    });
    topics.clear();
    producer = nullptr;
    settled.clear();
    alone.clear();
    inFlight = 0;
    failure.reset();
    beginsAtOnce = false;
}

// Nothing when the library refuses the name.
rd_kafka_topic_t* kafka_sink_c::topicOf(const entry_s& entry) {
    const std::string topic = topicPattern.fill(entry);
    if (const auto known = topics.find(topic); known != topics.end()) {
        return known->second;
    }
    rd_kafka_topic_t* const made = rd_kafka_topic_new(producer, topic.c_str(), nullptr);
    if (made != nullptr) {
        topics[topic] = made;
    }
    return made;
}

std::size_t kafka_sink_c::offer(std::span<const entry_s> entries) {
    if (inFlight == 0) {
        lastProgress = steady_t::now();
        refusals.forgetBelow(entries.front().seq);
    }
    const auto stop = std::ranges::find_if_not(entries, [this](const entry_s& entry) { return take(entry); });
    if (failure || !settled.empty()) {
        context.wake();
    }
    return static_cast<std::size_t>(stop - entries.begin());
}

// True when the producer is one for this entry: for batches, or for entries that go alone.
bool kafka_sink_c::makeWayFor(const entry_s& entry) {
    if (refusals.isSuspect(entry.seq) == sendsAlone) {
        return true;
    }
    if (inFlight > 0) {
        return false;  // of the other kind
    }
    if (sendsAlone) {
        // Each was small enough alone, so it was the size of the batch.
        mostOfBatch = wereTooLarge ? std::max<std::size_t>(refused / 2, 1) : mostOfBatch;
        refused = 0;
        wereTooLarge = false;
    }
    const std::vector<settled_s> before = std::exchange(settled, {});
    close();
    settled = before;
    sendsAlone = !sendsAlone;
    if (const std::optional<failure_s> why = open()) {
        failure = why->text;
    }
    return !failure;
}

// True when the entry is in flight or settled.
bool kafka_sink_c::take(const entry_s& entry) {
    if (refusals.wasSetAside(entry.seq)) {
        settled.push_back({entry.seq, entry.seq, settled_s::setAside});
        return true;
    }
    if (failure || !makeWayFor(entry)) {
        return false;
    }
    const rd_kafka_resp_err_t code = produce(entry);
    if (code == RD_KAFKA_RESP_ERR_NO_ERROR) {
        inFlight += 1;
        if (sendsAlone) {
            alone.emplace(entry.seq, entry);
        }
    } else if (isFinal(code)) {
        setAside(entry, rd_kafka_err2str(code));
    } else if (code != RD_KAFKA_RESP_ERR__QUEUE_FULL && code != RD_KAFKA_RESP_ERR__FATAL) {
        // The reports of the messages in flight say more of a fatal error.
        failure = topicPattern.fill(entry) + ": " + rd_kafka_err2str(code);
    }
    return code == RD_KAFKA_RESP_ERR_NO_ERROR || (isFinal(code) && !failure);
}

bool kafka_sink_c::isFinal(rd_kafka_resp_err_t code) const {
    return isOneOf(ofTheSize, code) || isOneOf(ofTheRecord, code) ||
           (!waitsForTopics && isOneOf(ofAnUnknownTopic, code));
}

void kafka_sink_c::setAside(const entry_s& entry, const char* reason) {
    if (const std::optional<std::string> error = refusals.setAside(entry, reason)) {
        failure = *error;
        beginsAtOnce = false;
    } else {
        settled.push_back({entry.seq, entry.seq, settled_s::setAside});
        wereTooLarge = false;
    }
}

// The library copies all of it.
rd_kafka_resp_err_t kafka_sink_c::produce(const entry_s& entry) {
    rd_kafka_topic_t* const topic = topicOf(entry);
    if (topic == nullptr) {
        return RD_KAFKA_RESP_ERR_TOPIC_EXCEPTION;
    }
    // Without an EPC the reader keeps the order of its events, and compacted topics take no empty key.
    std::string key = keyPattern.fill(entry);
    key = key.empty() ? entry.reader : std::move(key);
    const message_s content(entry, form);
    rd_kafka_headers_t* const headers = rd_kafka_headers_new(10);
    const auto add = [headers](std::string_view header, std::string_view value) {
        rd_kafka_header_add(headers, header.data(), static_cast<ssize_t>(header.size()), value.data(),
                            static_cast<ssize_t>(value.size()));
    };
    for (const attribute_s& attribute : content.attributes) {
        add("ce_" + std::string(attribute.name), attribute.value);
    }
    if (form == message_form_e::binary) {
        add("ce_partitionkey", key);
    }
    add("content-type", content.contentType);
    constexpr std::int64_t microsecondsInMs = 1'000;
    std::array<rd_kafka_vu_t, 7> parts{};
    parts[0].vtype = RD_KAFKA_VTYPE_RKT;
    parts[0].u.rkt = topic;
    parts[1].vtype = RD_KAFKA_VTYPE_KEY;
    parts[1].u.mem = {key.data(), key.size()};
    parts[2].vtype = RD_KAFKA_VTYPE_VALUE;
    parts[2].u.mem = {const_cast<char*>(content.body.data()), content.body.size()};
    parts[3].vtype = RD_KAFKA_VTYPE_HEADERS;
    parts[3].u.headers = headers;
    parts[4].vtype = RD_KAFKA_VTYPE_TIMESTAMP;
    parts[4].u.i64 = entry.takenAt / microsecondsInMs;
    parts[5].vtype = RD_KAFKA_VTYPE_OPAQUE;
    parts[5].u.ptr = reinterpret_cast<void*>(static_cast<std::intptr_t>(entry.seq));
    parts[6].vtype = RD_KAFKA_VTYPE_MSGFLAGS;
    parts[6].u.i = RD_KAFKA_MSG_F_COPY;
    rd_kafka_error_t* const error = rd_kafka_produceva(producer, parts.data(), parts.size());
    const rd_kafka_resp_err_t code = rd_kafka_error_code(error);
    if (error != nullptr) {
        rd_kafka_headers_destroy(headers);
        rd_kafka_error_destroy(error);
    }
    return code;
}

void kafka_sink_c::takeReport(const rd_kafka_message_t& message) {
    const auto seq = static_cast<std::int64_t>(reinterpret_cast<std::intptr_t>(message._private));
    const auto own = alone.extract(seq);
    inFlight -= 1;
    if (message.err == RD_KAFKA_RESP_ERR_NO_ERROR) {
        settled.push_back({seq, seq});
        lastProgress = steady_t::now();
        lastError.clear();
        trouble.clear();
        told.clear();
    } else if (isFinal(message.err) && own) {
        beginsAtOnce = true;  // the library gives back what is behind it
        setAside(own.mapped(), rd_kafka_err2str(message.err));
    } else if (isFinal(message.err)) {
        refusals.suspect(seq);
        ++refused;
        wereTooLarge = isOneOf(ofTheSize, message.err);
        beginsAtOnce = true;
        failure = std::string(rd_kafka_topic_name(message.rkt)) + ": " + rd_kafka_err2str(message.err) +
                  ", one of " + std::to_string(refused) + " records; they go one by one now";
    } else if (!failure || (message.err > 0 && !beginsAtOnce)) {
        // An error of the broker is the cause of the library's own.
        failure = std::string(rd_kafka_topic_name(message.rkt)) + ": " + rd_kafka_err2str(message.err);
    }
}

// Each attempt may fail in several ways in turn, twice a second: the log tells each of them once a minute.
void kafka_sink_c::keepTelling(const std::string& why) {
    const auto now = steady_t::now();
    const auto [before, isNew] = told.try_emplace(why, now);
    if (isNew || trouble == connecting || now - before->second > toldFor) {
        before->second = now;
        trouble = why;
    }
}

void kafka_sink_c::takeError(int code, const char* reason) {
    if (code == RD_KAFKA_RESP_ERR__ALL_BROKERS_DOWN) {
        keepTelling(lastError.empty() ? reason : lastError);
        return;
    }
    lastError = plainError(reason);
    if (!trouble.empty()) {
        keepTelling(lastError);
    }
    if (code == RD_KAFKA_RESP_ERR__AUTHENTICATION && !failure) {
        failure = lastError;
    }
}

// Idle, there is no other sign that a broker is there again.
void kafka_sink_c::takeStatistics(std::string_view text) {
    if (inFlight > 0 || trouble.empty()) {
        return;
    }
    const json statistics = json::parse(text, nullptr, false);
    if (statistics.is_object() && statistics.contains("brokers")) {
        const json& brokers = statistics["brokers"];
        const bool isUp = std::any_of(brokers.begin(), brokers.end(),
                                      [](const json& broker) { return broker.value("state", "") == "UP"; });
        trouble = isUp ? "" : trouble;
    }
}

std::string kafka_sink_c::whyDown() const {
    if (trouble.empty() && inFlight > 0 && steady_t::now() - lastProgress > stalledAfter) {
        return "nothing was confirmed for " + std::to_string(stalledAfter.count()) + " s" +
               (lastError.empty() ? "" : "; last error: " + lastError);
    }
    return trouble;
}

poll_s kafka_sink_c::poll() {
    poll_s result;
    if (producer != nullptr) {  // there is none when it could not be made anew
        rd_kafka_poll(producer, 0);
    }
    std::ranges::sort(settled, {}, &settled_s::first);
    for (const settled_s& one : settled) {
        settled_s* const last = result.settled.empty() ? nullptr : &result.settled.back();
        if (last != nullptr && last->last + 1 == one.first && last->outcome == one.outcome) {
            last->last = one.last;
        } else {
            result.settled.push_back(one);
        }
    }
    settled.clear();
    std::array<char, errorSize> fatal{};
    if (!failure && producer != nullptr && inFlight == 0 &&
        rd_kafka_fatal_error(producer, fatal.data(), fatal.size()) != RD_KAFKA_RESP_ERR_NO_ERROR) {
        failure = fatal.data();
    }
    if (failure) {
        // Until a message gets through, the new producer is as little of use as this one.
        trouble = *failure;
        result.failure = failure_s{*std::exchange(failure, std::nullopt)};
        if (beginsAtOnce) {
            result.failure->notBefore = 0ms;
        }
    } else {
        result.down = whyDown();
    }
    return result;
}

}  // namespace

std::unique_ptr<sink_c> makeKafkaSink(const sink_config_s& config, sink_context_s context) {
    return std::make_unique<kafka_sink_c>(config, std::move(context));
}
