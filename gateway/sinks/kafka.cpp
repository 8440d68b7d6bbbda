// SPDX-License-Identifier: MIT
// Type "kafka": a producer of librdkafka for each sink. It is idempotent and keeps the order within each
// partition, so within each key, also when it repeats. The library connects again by itself; until then
// the entries stay in its queue, which is the sender's window. It is closed and opened again only when
// it gives a message back, or refuses the password, which is then read again.
//
// All callbacks but the log's and onQueue() run within rd_kafka_poll(), on the sender's thread.
#include <librdkafka/rdkafka.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <map>
#include <nlohmann/json.hpp>

#include "sink.hpp"

namespace {

using namespace std::chrono_literals;
using steady_t = std::chrono::steady_clock;
using nlohmann::json;

constexpr auto stalledAfter = 10s;             // without a confirmation while entries are in flight
constexpr std::size_t errorSize = 512;         // bytes, as librdkafka's own programs have it
constexpr std::size_t mostQueued = 1'000'000;  // entries, whatever the property allows

struct property_s {
    const char* name;
    const char* value;
};

// What the sink relies on. A configuration may repeat these, but not change them.
constexpr std::array fixedProperties{
    property_s{"enable.idempotence", "true"}, property_s{"acks", "-1"},  // all
};

// What suits a gateway better than the library's own defaults.
constexpr std::array ownDefaults{
    property_s{"client.id", "twgate"},
    property_s{"queue.buffering.max.messages", "10000"},
    // A message waits for its broker as long as the spool keeps it.
    property_s{"message.timeout.ms", "0"},
    // After a message that the broker has refused none of those behind it may go first.
    property_s{"enable.gapless.guarantee", "true"},
    // A link that swallows everything is replaced after this.
    property_s{"socket.timeout.ms", "10000"},
    property_s{"statistics.interval.ms", "1000"},
};

// Settings that name a file with a secret, and the property that gets it.
constexpr std::array secretFiles{
    property_s{"passwordFile", "sasl.password"},
    property_s{"clientSecretFile", "sasl.oauthbearer.client.secret"},
    property_s{"keyPasswordFile", "ssl.key.password"},
    property_s{"keystorePasswordFile", "ssl.keystore.password"},
};

using lines_t = std::vector<std::string>;

struct conf_deleter_s {
    void operator()(rd_kafka_conf_t* conf) const { rd_kafka_conf_destroy(conf); }
};
using conf_t = std::unique_ptr<rd_kafka_conf_t, conf_deleter_s>;

// Without its time and its count of repetitions, which make each error text a new one.
std::string plainError(std::string_view text) {
    return std::string(text.substr(0, text.find(" (after ")));
}

std::string valueOf(const rd_kafka_conf_t* conf, const char* name) {
    std::array<char, errorSize> value{};
    std::size_t size = value.size();
    return rd_kafka_conf_get(conf, name, value.data(), &size) == RD_KAFKA_CONF_OK ? value.data() : "";
}

void setProperty(rd_kafka_conf_t* conf, const std::string& name, const std::string& value,
                 const std::string& place, lines_t* mistakes) {
    std::array<char, errorSize> error{};
    if (rd_kafka_conf_set(conf, name.c_str(), value.c_str(), error.data(), error.size()) !=
        RD_KAFKA_CONF_OK) {
        const std::string_view text = error.data();
        mistakes->push_back(place + ": " + std::string(text.substr(0, text.find('\n'))));
    }
}

void setSecrets(rd_kafka_conf_t* conf, const json& settings, lines_t* mistakes) {
    for (const auto& [key, property] : secretFiles) {
        const std::string file = settings.value(key, "");
        std::string error;
        if (file.empty()) {
            continue;
        }
        if (const std::optional<std::string> secret = readSecret(file, &error)) {
            setProperty(conf, property, *secret, key, mistakes);
        } else {
            mistakes->push_back(std::string(key) + ": " + file + ": " + error);
        }
    }
}

// A secret in the configuration itself, or a property that the sink relies on with another value.
void findForbidden(const rd_kafka_conf_t* conf, const json& properties, lines_t* mistakes) {
    for (const auto& [key, property] : secretFiles) {
        if (properties.contains(property)) {
            mistakes->push_back("properties." + std::string(property) + ": is a secret; use " + key);
        }
    }
    if (properties.contains("ssl.key.pem")) {
        mistakes->emplace_back("properties.ssl.key.pem: is a secret; use ssl.key.location");
    }
    for (const auto& [property, value] : fixedProperties) {
        if (valueOf(conf, property) != value) {
            mistakes->push_back("properties." + std::string(property) +
                                ": cannot be changed, since entries would be lost or change their order");
        }
    }
    if (properties.contains("transactional.id")) {
        mistakes->emplace_back("properties.transactional.id: twgate uses no transactions");
    }
    if (valueOf(conf, "bootstrap.servers").empty()) {
        mistakes->emplace_back("properties: bootstrap.servers is needed");
    }
}

// The library's configuration, and what is wrong with it.
conf_t confOf(const json& settings, lines_t* mistakes) {
    conf_t conf(rd_kafka_conf_new());
    for (const auto& [name, value] : fixedProperties) {
        setProperty(conf.get(), name, value, name, mistakes);
    }
    for (const auto& [name, value] : ownDefaults) {
        setProperty(conf.get(), name, value, name, mistakes);
    }
    for (const auto& [name, value] : settings.at("properties").items()) {
        setProperty(conf.get(), name, value.is_string() ? value.get<std::string>() : value.dump(),
                    "properties." + name, mistakes);
    }
    setSecrets(conf.get(), settings, mistakes);
    return conf;
}

// The library's queue bounds what is in flight.
std::size_t windowOf(const json& settings) {
    lines_t mistakes;
    const std::string text = valueOf(confOf(settings, &mistakes).get(), "queue.buffering.max.messages");
    std::size_t window = 0;
    std::from_chars(text.data(), text.data() + text.size(), window);
    return window == 0 ? mostQueued : std::min(window, mostQueued);
}

// A text with placeholders such as "tarnwick.{stream}".
class pattern_c {
  public:
    // The schema has checked the placeholders.
    explicit pattern_c(std::string text) : pattern(std::move(text)) {}

    std::string fill(const entry_s& entry) const {
        std::string text;
        for (std::string_view rest = pattern; !rest.empty();) {
            const std::size_t begin = std::min(rest.find('{'), rest.size());
            text += rest.substr(0, begin);
            rest.remove_prefix(begin);
            if (!rest.empty()) {
                const std::size_t end = rest.find('}');
                text += valueOfWord(rest.substr(1, end - 1), entry);
                rest.remove_prefix(end + 1);
            }
        }
        return text;
    }

  private:
    static std::string_view valueOfWord(std::string_view word, const entry_s& entry) {
        return word == "epc"      ? std::string_view(entry.key)
               : word == "reader" ? std::string_view(entry.reader)
               : word == "stream" ? streamName(entry.stream)
                                  : typeOf(entry);
    }

    std::string pattern;
};

class kafka_sink_c : public sink_c {
  public:
    kafka_sink_c(const sink_config_s& config, sink_context_s senderContext)
        : sink_c({.window = windowOf(config.settings), .batch = 1'000}),
          name(config.name),
          settings(config.settings),
          context(std::move(senderContext)),
          topicPattern(settings.at("topic")),
          keyPattern(settings.value("key", "{epc}")),
          isStructured(settings.value("format", "binary") == "cloudevent") {}
    ~kafka_sink_c() override { kafka_sink_c::close(); }

    std::optional<failure_s> open() override;
    std::size_t offer(std::span<const entry_s> entries) override;
    poll_s poll() override;
    void close() override;

  private:
    bool produce(const entry_s& entry);
    rd_kafka_topic_t* topicOf(const entry_s& entry);
    void takeReport(const rd_kafka_message_t& message);
    void takeError(int code, const char* reason);
    void takeStatistics(std::string_view text);
    std::string whyDown() const;

    const std::string name;
    const json settings;
    const sink_context_s context;
    const pattern_c topicPattern, keyPattern;
    const bool isStructured;

    rd_kafka_t* producer = nullptr;
    rd_kafka_queue_t* queue = nullptr;
    std::map<std::string, rd_kafka_topic_t*> topics;
    std::vector<std::int64_t> confirmed;  // since the last poll
    std::size_t inFlight = 0;
    steady_t::time_point lastProgress{};  // while entries are in flight
    std::optional<std::string> failure;   // for which the producer has to be closed
    std::string lastError;                // of a connection, since the last confirmation
    std::string trouble = "connecting";   // until something proves that the link is up
};

std::optional<failure_s> kafka_sink_c::open() {
    lines_t mistakes;
    conf_t conf = confOf(settings, &mistakes);
    if (!mistakes.empty()) {
        return failure_s{mistakes.front()};
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
    std::array<char, errorSize> error{};
    producer = rd_kafka_new(RD_KAFKA_PRODUCER, conf.get(), error.data(), error.size());
    if (producer == nullptr) {
        return failure_s{error.data()};
    }
    static_cast<void>(conf.release());  // the producer's now
    queue = rd_kafka_queue_get_main(producer);
    rd_kafka_queue_cb_event_enable(
        queue, [](rd_kafka_t*, void* self) { static_cast<const kafka_sink_c*>(self)->context.wake(); }, this);
    return std::nullopt;
}

void kafka_sink_c::close() {
    if (producer == nullptr) {
        return;
    }
    rd_kafka_queue_cb_event_enable(queue, nullptr, nullptr);
    rd_kafka_queue_destroy(queue);
    rd_kafka_purge(producer, RD_KAFKA_PURGE_F_QUEUE | RD_KAFKA_PURGE_F_INFLIGHT);
    for (const auto& [topic, handle] : topics) {
        rd_kafka_topic_destroy(handle);
    }
    topics.clear();
    rd_kafka_destroy(producer);
    producer = nullptr;
    confirmed.clear();
    inFlight = 0;
    failure.reset();
}

rd_kafka_topic_t* kafka_sink_c::topicOf(const entry_s& entry) {
    const std::string topic = topicPattern.fill(entry);
    const auto known = topics.find(topic);
    return known != topics.end() ? known->second
                                 : topics[topic] = rd_kafka_topic_new(producer, topic.c_str(), nullptr);
}

std::size_t kafka_sink_c::offer(std::span<const entry_s> entries) {
    if (inFlight == 0) {
        lastProgress = steady_t::now();
    }
    const auto refused =
        std::ranges::find_if_not(entries, [this](const entry_s& entry) { return produce(entry); });
    const auto count = static_cast<std::size_t>(refused - entries.begin());
    inFlight += count;
    if (failure) {
        context.wake();
    }
    return count;
}

// The library copies all of it. False when its queue is full, or with a failure.
bool kafka_sink_c::produce(const entry_s& entry) {
    rd_kafka_topic_t* const topic = topicOf(entry);
    // Without an EPC the reader keeps the order of its events, and compacted topics take no empty key.
    std::string key = keyPattern.fill(entry);
    key = key.empty() ? entry.reader : std::move(key);
    rd_kafka_headers_t* const headers = rd_kafka_headers_new(10);
    const auto add = [headers](std::string_view header, std::string_view value) {
        rd_kafka_header_add(headers, header.data(), static_cast<ssize_t>(header.size()), value.data(),
                            static_cast<ssize_t>(value.size()));
    };
    if (isStructured) {
        add("content-type", "application/cloudevents+json; charset=UTF-8");
    } else {
        for (const attribute_s& attribute : attributesOf(entry)) {
            add("ce_" + std::string(attribute.name), attribute.value);
        }
        add("ce_partitionkey", key);
        add("content-type", eventContentType);
    }
    const std::string structured = isStructured ? structuredEvent(entry) : std::string();
    const std::string& body = isStructured ? structured : entry.body;
    constexpr std::int64_t microsecondsInMs = 1'000;
    std::array<rd_kafka_vu_t, 7> parts{};
    parts[0].vtype = RD_KAFKA_VTYPE_RKT;
    parts[0].u.rkt = topic;
    parts[1].vtype = RD_KAFKA_VTYPE_KEY;
    parts[1].u.mem = {key.data(), key.size()};
    parts[2].vtype = RD_KAFKA_VTYPE_VALUE;
    parts[2].u.mem = {const_cast<char*>(body.data()), body.size()};
    parts[3].vtype = RD_KAFKA_VTYPE_HEADERS;
    parts[3].u.headers = headers;
    parts[4].vtype = RD_KAFKA_VTYPE_TIMESTAMP;
    parts[4].u.i64 = entry.takenAt / microsecondsInMs;
    parts[5].vtype = RD_KAFKA_VTYPE_OPAQUE;
    parts[5].u.ptr = reinterpret_cast<void*>(static_cast<std::intptr_t>(entry.seq));
    parts[6].vtype = RD_KAFKA_VTYPE_MSGFLAGS;
    parts[6].u.i = RD_KAFKA_MSG_F_COPY;
    rd_kafka_error_t* const error = rd_kafka_produceva(producer, parts.data(), parts.size());
    if (error == nullptr) {
        return true;
    }
    rd_kafka_headers_destroy(headers);
    // The reports of the messages in flight say more of a fatal error.
    const rd_kafka_resp_err_t code = rd_kafka_error_code(error);
    if (code != RD_KAFKA_RESP_ERR__QUEUE_FULL && code != RD_KAFKA_RESP_ERR__FATAL && !failure) {
        failure = std::string(rd_kafka_topic_name(topic)) + ": " + rd_kafka_error_string(error);
    }
    rd_kafka_error_destroy(error);
    return false;
}

void kafka_sink_c::takeReport(const rd_kafka_message_t& message) {
    inFlight -= 1;
    if (message.err == RD_KAFKA_RESP_ERR_NO_ERROR) {
        confirmed.push_back(static_cast<std::int64_t>(reinterpret_cast<std::intptr_t>(message._private)));
        lastProgress = steady_t::now();
        lastError.clear();
        trouble.clear();
    } else if (!failure || message.err > 0) {  // an error of the broker is the cause of the library's own
        failure = std::string(rd_kafka_topic_name(message.rkt)) + ": " + rd_kafka_err2str(message.err);
    }
}

void kafka_sink_c::takeError(int code, const char* reason) {
    if (code == RD_KAFKA_RESP_ERR__ALL_BROKERS_DOWN) {
        trouble = lastError.empty() ? reason : lastError;
        return;
    }
    lastError = plainError(reason);
    trouble = trouble.empty() ? "" : lastError;
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
    rd_kafka_poll(producer, 0);
    poll_s result;
    std::ranges::sort(confirmed);
    for (const std::int64_t seq : confirmed) {
        if (!result.settled.empty() && result.settled.back().last + 1 == seq) {
            result.settled.back().last = seq;
        } else {
            result.settled.push_back({seq, seq});
        }
    }
    confirmed.clear();
    std::array<char, errorSize> fatal{};
    if (!failure && inFlight == 0 &&
        rd_kafka_fatal_error(producer, fatal.data(), fatal.size()) != RD_KAFKA_RESP_ERR_NO_ERROR) {
        failure = fatal.data();
    }
    if (failure) {
        // Until a message gets through, the new producer is as little of use as this one.
        trouble = *failure;
        result.failure = failure_s{*std::exchange(failure, std::nullopt)};
    } else {
        result.down = whyDown();
    }
    return result;
}

}  // namespace

// Without its servers the library checks how the properties fit together and connects to nobody.
std::vector<std::string> findKafkaMistakes(const sink_config_s& config) {
    lines_t mistakes;
    json settings = config.settings;
    findForbidden(confOf(settings, &mistakes).get(), settings.at("properties"), &mistakes);
    if (!mistakes.empty()) {
        return mistakes;
    }
    for (const char* servers : {"bootstrap.servers", "metadata.broker.list"}) {
        settings["properties"].erase(servers);
    }
    conf_t conf = confOf(settings, &mistakes);
    rd_kafka_conf_set_log_cb(conf.get(), nullptr);
    std::array<char, errorSize> error{};
    rd_kafka_t* const producer = rd_kafka_new(RD_KAFKA_PRODUCER, conf.get(), error.data(), error.size());
    if (producer == nullptr) {
        return {"properties: " + std::string(error.data())};
    }
    static_cast<void>(conf.release());
    rd_kafka_destroy(producer);
    return {};
}

std::unique_ptr<sink_c> makeKafkaSink(const sink_config_s& config, sink_context_s context) {
    return std::make_unique<kafka_sink_c>(config, std::move(context));
}
