// SPDX-License-Identifier: MIT
// Type "mqtt": each entry is one message to an MQTT server, version 5 or 3.1.1. With QoS 1 and 2 an entry is
// confirmed when the server has acknowledged it, with QoS 0 when it is written to the socket.
#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <deque>
#include <unordered_map>

#include "link.hpp"
#include "sink.hpp"
#include "topic.hpp"

namespace {

using namespace std::chrono_literals;
using steady_t = std::chrono::steady_clock;

constexpr auto refusedAgainAfter = 5s;
constexpr int firstFailure = 128;  // of the reason codes of MQTT 5
constexpr std::string_view structuredType = "application/cloudevents+json";

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
        fillTopic(textOf(config, "availability", "tarnwick/{reader}/availability"), gateway);
    return settings;
}

// What to do about a message that the server has refused.
enum class refusal_e { settle, tryAgain };

// Reason codes of MQTT 5 that tell of the message itself.
refusal_e judgeRefusal(int reason) {
    constexpr std::array ofTheMessage{MQTT_RC_TOPIC_NAME_INVALID, MQTT_RC_PACKET_TOO_LARGE,
                                      MQTT_RC_PAYLOAD_FORMAT_INVALID};
    return std::ranges::find(ofTheMessage, reason) != ofTheMessage.end() ? refusal_e::settle
                                                                         : refusal_e::tryAgain;
}

class mqtt_sink_c : public sink_c {
  public:
    mqtt_sink_c(const sink_config_s& config, sink_context_s senderContext)
        : sink_c({.window = static_cast<std::size_t>(settingsOf(config).window),
                  .batch = static_cast<std::size_t>(settingsOf(config).window)}),
          name(config.name),
          topic(textOf(config, "topic", "tarnwick/{reader}/{stream}")),
          structured(textOf(config, "format") == "cloudevent"),
          settings(settingsOf(config)),
          context(std::move(senderContext)) {}

    std::optional<failure_s> open() override;
    std::size_t offer(std::span<const entry_s> entries) override;
    poll_s poll() override;
    void close() override;

  private:
    void send(const entry_s& entry);
    void setAside(const entry_s& entry, const std::string& reason);
    void takeAck(const mqtt_ack_s& ack);
    void sendRefused();
    void judgeLink(const mqtt_news_s& news, poll_s* result);

    const std::string name;
    const std::string topic;
    const bool structured;
    const mqtt_settings_s settings;
    const sink_context_s context;

    std::unique_ptr<mqtt_link_c> link;
    std::unordered_map<int, entry_s> sent;  // by message id: not acknowledged yet
    std::deque<entry_s> refused;            // by the server, for a reason that may go
    std::string refusal;                    // of the last one; empty: nothing is refused
    steady_t::time_point refusedAgain{};    // when they are sent again
    steady_t::time_point lastProgress{};    // since which nothing was acknowledged while something is sent
    bool suspect = false;                   // the connection was dropped, since nothing was acknowledged
    std::vector<settled_s> settled;
    std::string trouble;
};

std::optional<failure_s> mqtt_sink_c::open() {
    // A new process numbers its messages anew. With QoS 2 a server that still has the session of an earlier
    // one takes a message with an old number for a repeat, so that session ends first.
    for (const bool newSession : {true, false}) {
        if (newSession && settings.qos < 2) {
            continue;
        }
        mqtt_settings_s attempt = settings;
        attempt.newSession = newSession;
        attempt.availability = newSession ? "" : settings.availability;
        link = std::make_unique<mqtt_link_c>(attempt, context.wake);
        if (const std::optional<std::string> error = link->open(context.abort)) {
            link.reset();
            return failure_s{*error};
        }
    }
    lastProgress = steady_t::now();
    suspect = false;
    return std::nullopt;
}

std::size_t mqtt_sink_c::offer(std::span<const entry_s> entries) {
    if (!link->isUp()) {
        return 0;  // becoming up wakes the sender
    }
    for (const entry_s& entry : entries) {
        send(entry);
    }
    return entries.size();
}

void mqtt_sink_c::send(const entry_s& entry) {
    const std::vector<attribute_s> attributes =
        structured || !settings.version5 ? std::vector<attribute_s>() : attributesOf(entry);
    const mqtt_metadata_s metadata{structured ? structuredType : eventContentType, attributes};
    int id = 0;
    const int code = link->publish(fillTopic(topic, entry), structured ? structuredEvent(entry) : entry.body,
                                   metadata, &id);
    const bool isQueued = code == MOSQ_ERR_NO_CONN && settings.qos > 0;
    if (code == MOSQ_ERR_SUCCESS || isQueued) {
        lastProgress = sent.empty() ? steady_t::now() : lastProgress;
        sent.insert_or_assign(id, entry);
    } else if (code == MOSQ_ERR_INVAL || code == MOSQ_ERR_MALFORMED_UTF8 || code == MOSQ_ERR_PAYLOAD_SIZE ||
               code == MOSQ_ERR_OVERSIZE_PACKET) {
        setAside(entry, mosquitto_strerror(code));
    } else {
        trouble = mosquitto_strerror(code);
    }
}

// There is no other place for it: the log tells which one is missing.
void mqtt_sink_c::setAside(const entry_s& entry, const std::string& reason) {
    spdlog::error("sink {}: {}/{} with {} bytes is not sent: {}", name, entry.reader, idOf(entry),
                  entry.body.size(), reason);
    settled.push_back({entry.seq, entry.seq, settled_s::setAside});
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
    if (ack.reason < firstFailure) {
        settled.push_back({entry.seq, entry.seq});
    } else if (judgeRefusal(ack.reason) == refusal_e::settle) {
        setAside(entry, mosquitto_reason_string(ack.reason));
    } else {
        refusal = fillTopic(topic, entry) + ": " + mosquitto_reason_string(ack.reason);
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
void mqtt_sink_c::judgeLink(const mqtt_news_s& news, poll_s* result) {
    const auto now = steady_t::now();
    if (!news.isUp || sent.empty()) {
        lastProgress = now;
    }
    if (!news.isUp && settings.qos == 0) {
        result->failure = failure_s{news.trouble};  // what was not written is gone
    } else if (news.sessionLost && settings.qos == 2) {
        result->failure = failure_s{"the server has lost the session"};
    } else if (now - lastProgress <= std::chrono::seconds(settings.keepAlive)) {
        return;
    } else if (suspect) {
        result->failure =
            failure_s{"nothing was acknowledged for " + std::to_string(settings.keepAlive) + " s, twice"};
    } else {
        suspect = true;
        lastProgress = now;
        link->dropConnection();
    }
}

poll_s mqtt_sink_c::poll() {
    const mqtt_news_s news = link->take();
    std::ranges::for_each(news.acks, [this](const mqtt_ack_s& ack) { takeAck(ack); });
    if (news.isUp) {
        sendRefused();
    }
    poll_s result;
    judgeLink(news, &result);
    if (!trouble.empty()) {
        result.failure = failure_s{std::exchange(trouble, {})};
    }
    result.settled = std::exchange(settled, {});
    result.down = news.isUp ? refusal : news.trouble;
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
         {std::pair("topic", findTopicMistake(textOf(config, "topic", "-"), topicPlaceholders())),
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
    std::string error;
    const bool hasPassword = settings.passwordFile.empty() || readSecret(settings.passwordFile, &error);
    check(!hasPassword, "passwordFile: " + settings.passwordFile + ": " + error);
    return mistakes;
}

std::unique_ptr<sink_c> makeMqttSink(const sink_config_s& config, sink_context_s context) {
    return std::make_unique<mqtt_sink_c>(config, std::move(context));
}
