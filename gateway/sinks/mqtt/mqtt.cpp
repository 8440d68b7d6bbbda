// SPDX-License-Identifier: MIT
// Type "mqtt": each entry is one message to an MQTT server, version 5 or 3.1.1. With QoS 1 and 2 an entry is
// confirmed when the server has acknowledged it, with QoS 0 when it is written to the socket.
#include <mosquitto.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <iterator>
#include <unordered_map>

#include "commands.hpp"
#include "link.hpp"
#include "sink.hpp"
#include "sinks/pattern.hpp"
#include "sinks/refusals.hpp"
#include "topic.hpp"

namespace {

using namespace std::chrono_literals;
using steady_t = std::chrono::steady_clock;

constexpr auto refusedAgainAfter = 5s;
// Connections in a row that the server ends without a reason and before it acknowledges anything.
constexpr int endsBeforeSuspicion = 3;

std::string textOf(const sink_config_s& config, const char* key, const std::string& otherwise = "") {
    return config.settings.value(key, otherwise);
}

// "mqtts://host:port" of a checked configuration; without a port that of the scheme.
void takeUrl(const std::string& url, mqtt_settings_s* settings) {
    constexpr int plainPort = 1883, tlsPort = 8883;
    settings->tls = url.starts_with("mqtts:");
    const std::string place = url.substr(url.find("//") + 2);
    const std::size_t colon = place.find(':', place.starts_with('[') ? place.find(']') : 0);
    settings->host = place.substr(0, colon);
    if (settings->host.starts_with('[')) {
        settings->host = settings->host.substr(1, settings->host.size() - 2);
    }
    settings->port =
        colon == place.npos ? settings->tls ? tlsPort : plainPort : std::stoi(place.substr(colon + 1));
}

mqtt_settings_s settingsOf(const sink_config_s& config) {
    mqtt_settings_s settings;
    entry_s gateway;
    gateway.reader = config.reader;
    takeUrl(textOf(config, "url"), &settings);
    settings.version5 = textOf(config, "version", "5") == "5";
    settings.clientId = textOf(config, "clientId", "twgate-" + config.reader + "-" + config.name);
    settings.user = textOf(config, "user");
    settings.passwordFile = textOf(config, "passwordFile");
    settings.ca = textOf(config, "ca");
    settings.certificate = textOf(config, "certificate");
    settings.privateKey = textOf(config, "privateKey");
    settings.qos = config.settings.value("qos", settings.qos);
    settings.keepAlive = config.settings.value("keepAlive", settings.keepAlive);
    settings.window = config.settings.value("window", settings.window);
    settings.availability =
        pattern_c(textOf(config, "availability", "tarnwick/{reader}/availability"), appendTopicLevel)
            .fill(gateway);
    return settings;
}

class mqtt_sink_c : public sink_c {
  public:
    mqtt_sink_c(const sink_config_s& config, sink_context_s senderContext)
        : sink_c({.window = static_cast<std::size_t>(settingsOf(config).window),
                  .batch = static_cast<std::size_t>(settingsOf(config).window)}),
          topic(textOf(config, "topic", "tarnwick/{reader}/{stream}"), appendTopicLevel),
          settings(settingsOf(config)),
          sinkConfig(config),
          form(textOf(config, "format") == "cloudevent" ? message_form_e::structured
               : settings.version5                      ? message_form_e::binary
                                                        : message_form_e::bare),
          context(std::move(senderContext)),
          refusals(config) {}

    std::optional<failure_s> open() override;
    std::size_t offer(std::span<const entry_s> entries) override;
    poll_s poll() override;
    void close() override;

  private:
    std::optional<failure_s> connect(bool toEndSession);
    bool mayGo(std::int64_t seq) const;
    void send(const entry_s& entry);
    void setAside(const entry_s& entry, const std::string& reason);
    void takeAck(const mqtt_ack_s& ack);
    void sendRefused();
    std::optional<failure_s> judgeLink(const mqtt_news_s& news);
    std::optional<failure_s> judgeEnds(const mqtt_news_s& news);

    const pattern_c topic;
    const mqtt_settings_s settings;
    const sink_config_s sinkConfig;
    const message_form_e form;
    const sink_context_s context;
    std::optional<mqtt_commands_c> commands;  // from the first open() on

    std::unique_ptr<mqtt_link_c> link;
    bool endsSession = false;               // the link only ends the session of an earlier process
    std::unordered_map<int, entry_s> sent;  // by message id: not acknowledged yet
    std::deque<entry_s> refused;            // by the server, for a reason that may go
    std::string refusal;                    // of the last one; empty: nothing is refused
    steady_t::time_point refusedAgain{};    // when they are sent again
    steady_t::time_point lastProgress{};    // since which nothing was acknowledged while something is sent
    bool suspect = false;                   // the connection was dropped, since nothing was acknowledged
    refusals_c refusals;                    // for good
    bool isAlone = false;                   // what is sent last is one that is suspected
    std::vector<settled_s> settled;
    std::string trouble;      // for which the link has to be closed
    std::string lastTrouble;  // of the link, until it is up again
};

// A new process numbers its messages anew. With QoS 2 a server that still has the session of an earlier one
// takes a message with an old number for a repeat, so that session ends first.
std::optional<failure_s> mqtt_sink_c::open() {
    if (!commands && sinkConfig.settings.contains("commands")) {
        commands.emplace(sinkConfig, settings);
    }
    return connect(settings.qos == 2);
}

std::optional<failure_s> mqtt_sink_c::connect(bool toEndSession) {
    mqtt_settings_s attempt = settings;
    attempt.newSession = toEndSession;
    attempt.availability = toEndSession ? "" : settings.availability;
    link.reset();
    link = std::make_unique<mqtt_link_c>(attempt, context.wake);
    endsSession = toEndSession;
    lastProgress = steady_t::now();
    suspect = false;
    if (const std::optional<std::string> error = link->open()) {
        link.reset();
        return failure_s{*error};
    }
    return std::nullopt;
}

// What is suspected goes alone, and nothing goes before what the server may accept later.
bool mqtt_sink_c::mayGo(std::int64_t seq) const {
    return refused.empty() && (sent.empty() || !(isAlone || refusals.isSuspect(seq)));
}

std::size_t mqtt_sink_c::offer(std::span<const entry_s> entries) {
    if (sent.empty()) {
        refusals.forgetBelow(entries.front().seq);
    }
    std::size_t count = 0;
    for (const entry_s& entry : entries) {
        if (refusals.wasSetAside(entry.seq)) {
            settled.push_back({entry.seq, entry.seq, settled_s::setAside});
        } else if (trouble.empty() && !endsSession && link->isUp() && mayGo(entry.seq)) {
            send(entry);
        } else {
            break;
        }
        ++count;
    }
    if (!settled.empty() || !trouble.empty()) {
        context.wake();
    }
    return count;
}

void mqtt_sink_c::send(const entry_s& entry) {
    int id = 0;
    const int code = link->publish(topic.fill(entry), message_s(entry, form), &id);
    const bool isQueued = code == MOSQ_ERR_NO_CONN && settings.qos > 0;
    if (code == MOSQ_ERR_SUCCESS || isQueued) {
        lastProgress = sent.empty() ? steady_t::now() : lastProgress;
        isAlone = refusals.isSuspect(entry.seq);
        sent.insert_or_assign(id, entry);
    } else if (code == MOSQ_ERR_INVAL || code == MOSQ_ERR_MALFORMED_UTF8 || code == MOSQ_ERR_PAYLOAD_SIZE ||
               code == MOSQ_ERR_OVERSIZE_PACKET) {
        setAside(entry, mosquitto_strerror(code));
    } else {
        trouble = mosquitto_strerror(code);
    }
}

void mqtt_sink_c::setAside(const entry_s& entry, const std::string& reason) {
    if (const std::optional<std::string> error = refusals.setAside(entry, reason)) {
        trouble = *error;
    } else {
        settled.push_back({entry.seq, entry.seq, settled_s::setAside});
    }
}

void mqtt_sink_c::takeAck(const mqtt_ack_s& ack) {
    const auto found = sent.find(ack.messageId);
    if (found == sent.end()) {
        return;
    }
    const entry_s entry = std::move(found->second);
    sent.erase(found);
    lastProgress = steady_t::now();
    suspect = false;
    if (ack.reason < firstMqttFailure) {
        settled.push_back({entry.seq, entry.seq});
    } else if (isOfTheMessage(ack.reason)) {
        setAside(entry, mosquitto_reason_string(ack.reason));
    } else {
        refusal = topic.fill(entry) + ": " + mosquitto_reason_string(ack.reason);
        refusedAgain = steady_t::now() + refusedAgainAfter;
        refused.push_back(entry);
    }
}

// Those that the server may accept now.
void mqtt_sink_c::sendRefused() {
    if (!refused.empty() && steady_t::now() >= refusedAgain) {
        refusal.clear();
        for (const entry_s& entry : std::exchange(refused, {})) {
            send(entry);
        }
    }
}

// Nothing acknowledged for the keep-alive: the connection is dropped, and what is in flight goes over the
// next one within the session. When that does not help, all begins anew.
std::optional<failure_s> mqtt_sink_c::judgeLink(const mqtt_news_s& news) {
    const auto now = steady_t::now();
    if (!news.isUp || sent.empty()) {
        lastProgress = now;
    }
    if (news.isOver || (!news.isUp && !sent.empty() && settings.qos == 0)) {
        return failure_s{news.trouble};  // with QoS 0 what was not written is gone
    }
    if (news.isUp && endsSession) {
        return connect(false);
    }
    if (news.sessionLost && settings.qos == 2) {
        return failure_s{"the server has lost the session"};
    }
    if (now - lastProgress > std::chrono::seconds(settings.keepAlive)) {
        if (suspect) {
            return failure_s{"nothing was acknowledged for " + std::to_string(settings.keepAlive) +
                             " s, twice"};
        }
        suspect = true;
        lastProgress = now;
        link->dropConnection();
    }
    return judgeEnds(news);
}

// A server that ends every connection at a message tells at best that it does so because of one.
std::optional<failure_s> mqtt_sink_c::judgeEnds(const mqtt_news_s& news) {
    if (sent.empty() || news.endedEarly < (news.messageRefused ? 1 : endsBeforeSuspicion)) {
        return std::nullopt;
    }
    const std::string reason = news.trouble + ", " + std::to_string(news.endedEarly) + " times";
    if (isAlone) {
        setAside(sent.begin()->second, reason);
        return failure_s{reason, std::chrono::milliseconds(0)};
    }
    for (const auto& [id, entry] : sent) {
        refusals.suspect(entry.seq);
    }
    return failure_s{reason + "; " + std::to_string(sent.size()) + " messages go one by one now",
                     std::chrono::milliseconds(0)};
}

poll_s mqtt_sink_c::poll() {
    const mqtt_news_s news = link->take();
    std::ranges::for_each(news.acks, [this](const mqtt_ack_s& ack) { takeAck(ack); });
    if (news.isUp) {
        sendRefused();
    }
    const bool isReady = news.isUp && !endsSession;
    poll_s result;
    result.failure = judgeLink(news);
    if (!trouble.empty()) {
        result.failure = failure_s{std::exchange(trouble, {})};
    }
    result.settled = std::exchange(settled, {});
    lastTrouble = result.failure          ? result.failure->text
                  : isReady               ? ""
                  : !news.trouble.empty() ? news.trouble
                  : lastTrouble.empty()   ? connecting
                                          : lastTrouble;
    result.down = isReady ? refusal : lastTrouble;
    return result;
}

void mqtt_sink_c::close() {
    link.reset();
    sent.clear();
    refused.clear();
    refusal.clear();
    settled.clear();
    trouble.clear();
}

}  // namespace

std::vector<std::string> findMqttMistakes(const sink_config_s& config) {
    std::vector<std::string> mistakes;
    constexpr int lastPort = 65'535;
    const mqtt_settings_s settings = settingsOf(config);
    const auto check = [&mistakes](bool isWrong, const std::string& mistake) {
        if (isWrong) {
            mistakes.push_back(mistake);
        }
    };
    check(settings.port < 1 || settings.port > lastPort, "url: ports are from 1 to 65535");
    const std::string availability = textOf(config, "availability");
    for (const auto& [key, mistake] :
         {std::pair("topic", findTopicMistake(textOf(config, "topic", "-"), placeholderNames())),
          std::pair("availability",
                    availability.empty() ? "" : findTopicMistake(availability, {"reader"}))}) {
        check(!mistake.empty(), std::string(key) + ": " + mistake);
    }
    for (const char* key : {"ca", "certificate", "privateKey"}) {
        const std::string file = textOf(config, key);
        check(!file.empty() && !settings.tls, std::string(key) + ": is for TLS; use mqtts:// in url");
        const bool isUnreadable = !file.empty() && ::access(file.c_str(), R_OK) != 0;
        check(isUnreadable, std::string(key) + ": " + file + ": " + std::strerror(errno));
    }
    check(settings.certificate.empty() != settings.privateKey.empty(),
          "certificate and privateKey need each other");
    check(settings.user.empty() && !settings.passwordFile.empty(), "passwordFile: needs user");
    std::ranges::move(findCommandMistakes(config), std::back_inserter(mistakes));
    std::string error;
    const bool hasPassword = settings.passwordFile.empty() || readSecret(settings.passwordFile, &error);
    check(!hasPassword, "passwordFile: " + settings.passwordFile + ": " + error);
    return mistakes;
}

std::unique_ptr<sink_c> makeMqttSink(const sink_config_s& config, sink_context_s context) {
    return std::make_unique<mqtt_sink_c>(config, std::move(context));
}
