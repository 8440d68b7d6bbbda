// SPDX-License-Identifier: MIT
#include "commands.hpp"

#include <mosquitto.h>
#include <spdlog/fmt/fmt.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <deque>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <thread>
#include <unordered_map>

#include "command_words.hpp"
#include "sinks/pattern.hpp"
#include "topic.hpp"
#include "twctl/sockets.hpp"
#include "wakeup.hpp"

namespace {

using namespace std::chrono_literals;
using steady_t = std::chrono::steady_clock;

constexpr std::size_t mostWaiting = 16;      // requests
constexpr std::size_t mostUnconfirmed = 64;  // responses that the server has not acknowledged
constexpr std::size_t longestLogged = 200;   // bytes of a text from outside
constexpr int endsBeforeNewLink = 3;         // connections in a row that the server ends at a response
constexpr std::chrono::milliseconds firstBackOff = 200ms, lastBackOff = 30s;
constexpr auto idleTick = 1s;
constexpr const char* fromDaemon = "daemon";
constexpr const char* fromGateway = "twgate";

// The topic of requests to a reader.
std::string topicOf(const sink_config_s& config, const std::string& reader) {
    entry_s entry;
    entry.reader = reader;
    const nlohmann::json& commands = config.settings["commands"];
    return pattern_c(commands.value("topic", "tarnwick/{reader}/request"), appendTopicLevel).fill(entry);
}

// A text from outside for the log: in quotes, in ASCII, on one line.
std::string escaped(std::string_view text) {
    using json = nlohmann::json;
    const std::string shown(text.substr(0, longestLogged));
    return json(shown).dump(-1, ' ', true, json::error_handler_t::replace) +
           (text.size() > longestLogged ? "... (" + std::to_string(text.size()) + " bytes)" : "");
}

// As the daemon splits a request.
std::string_view firstWord(std::string_view text) {
    constexpr std::string_view space = " \t\n\v\f\r";
    text.remove_prefix(std::min(text.find_first_not_of(space), text.size()));
    return text.substr(0, text.find_first_of(space));
}

}  // namespace

// All but wakeup is of the thread alone.
struct mqtt_commands_c::impl_s {
    impl_s(const sink_config_s& config, const mqtt_settings_s& sinkSettings);

    void run(const std::stop_token& stop);
    void connect();
    void takeNews();
    void follow(const mqtt_news_s& news);
    void judge(mqtt_request_s request);
    std::string whyDropped(const mqtt_request_s& request) const;
    std::string whyRefused(const mqtt_request_s& request) const;
    void forward(const mqtt_request_s& request, const std::stop_token& stop);
    void respond(const mqtt_request_s& request, const std::string& text, const char* origin);
    void refuse(const mqtt_request_s& request, const std::string& why);
    void tell(spdlog::level::level_enum level, const mqtt_request_s& request, const std::string& what) const;

    const std::string name;
    mqtt_settings_s settings;
    std::map<std::string, source_config_s> daemons;  // by the topic of their requests
    std::set<std::string, std::less<>> allowed;      // first words
    const double timeout;                            // s

    wakeup_c wakeup;
    std::unique_ptr<mqtt_link_c> link;
    steady_t::time_point nextLink{};
    std::chrono::milliseconds backOff = firstBackOff;
    std::string trouble = "connecting";  // that was logged; empty: it is up
    std::deque<mqtt_request_s> waiting;
    std::unordered_map<int, std::string> unconfirmed;  // response topics by message id
    std::jthread thread;
};

mqtt_commands_c::impl_s::impl_s(const sink_config_s& config, const mqtt_settings_s& sinkSettings)
    : name(config.name), settings(sinkSettings), timeout(config.settings["commands"].value("timeout", 10.0)) {
    settings.clientId += "-requests";
    settings.availability.clear();
    settings.newSession = true;
    for (const source_config_s& source : config.daemons) {
        settings.requestTopics.push_back(topicOf(config, source.reader));
        daemons.insert_or_assign(settings.requestTopics.back(), source);
    }
    for (const nlohmann::json& word : config.settings["commands"]["allow"]) {
        allowed.insert(word.get<std::string>());
    }
}

void mqtt_commands_c::impl_s::run(const std::stop_token& stop) {
    const std::stop_callback wakeAtEnd(stop, [this] { wakeup.wake(); });
    while (!stop.stop_requested()) {
        takeNews();
        if (waiting.empty()) {
            wakeup.waitUntil(link ? steady_t::now() + idleTick : nextLink);
        } else {
            const mqtt_request_s request = std::move(waiting.front());
            waiting.pop_front();
            forward(request, stop);
        }
    }
    for (const mqtt_request_s& request : waiting) {
        refuse(request, "the gateway ends");
    }
    link.reset();
}

void mqtt_commands_c::impl_s::connect() {
    unconfirmed.clear();
    link = std::make_unique<mqtt_link_c>(settings, [this] { wakeup.wake(); });
    if (const std::optional<std::string> error = link->open()) {
        follow({.acks = {}, .isOver = true, .trouble = *error});
    }
}

void mqtt_commands_c::impl_s::takeNews() {
    if (!link && steady_t::now() >= nextLink) {
        connect();
    }
    if (!link) {
        return;
    }
    mqtt_news_s news = link->take();
    for (const mqtt_ack_s& ack : news.acks) {
        const auto response = unconfirmed.extract(ack.messageId);
        if (response && ack.reason >= firstMqttFailure) {
            spdlog::warn("sink {}: requests: the response to {} is refused: {}", name,
                         escaped(response.mapped()), mosquitto_reason_string(ack.reason));
        }
    }
    std::ranges::for_each(news.requests, [this](mqtt_request_s& request) { judge(std::move(request)); });
    if (news.lostRequests > 0) {
        spdlog::warn("sink {}: requests: {} are dropped, since too many came at once", name,
                     news.lostRequests);
    }
    follow(news);
}

// Logs what has changed. A link that is over, or whose server ends the connection at a response again and
// again, makes room for a new one.
void mqtt_commands_c::impl_s::follow(const mqtt_news_s& news) {
    const std::string now = news.isUp ? "" : news.trouble.empty() ? trouble : news.trouble;
    if (now != trouble) {
        trouble = now;
        now.empty() ? spdlog::info("sink {}: requests: up", name)
                    : spdlog::warn("sink {}: requests: {}", name, now);
    }
    const bool isStuck = news.endedEarly >= endsBeforeNewLink;
    if (isStuck) {
        spdlog::warn("sink {}: requests: {} responses are given up", name, unconfirmed.size());
    }
    if (news.isOver || isStuck) {
        link.reset();
        nextLink = steady_t::now() + backOff;
        backOff = std::min(backOff * 2, lastBackOff);
    } else if (news.isUp) {
        backOff = firstBackOff;
    }
}

void mqtt_commands_c::impl_s::judge(mqtt_request_s request) {
    if (const std::string why = whyDropped(request); !why.empty()) {
        tell(spdlog::level::warn, request, "dropped, since " + why);
    } else if (const std::string reason = whyRefused(request); !reason.empty()) {
        refuse(request, reason);
    } else {
        waiting.push_back(std::move(request));
    }
}

// Of requests that get no answer.
std::string mqtt_commands_c::impl_s::whyDropped(const mqtt_request_s& request) const {
    const std::string& topic = request.responseTopic;
    return !daemons.contains(request.topic) ? "its topic is not that of a reader"
           : request.isRetained             ? "it is retained"
           : topic.empty()                  ? "it does not have a response topic"
           : topic.starts_with('$') || mosquitto_pub_topic_check(topic.c_str()) != MOSQ_ERR_SUCCESS ||
                   daemons.contains(topic)
               ? "nothing may be published to its response topic"
           : unconfirmed.size() >= mostUnconfirmed ? "too many responses are not acknowledged yet"
                                                   : "";
}

std::string mqtt_commands_c::impl_s::whyRefused(const mqtt_request_s& request) const {
    return request.size > longestRequest
               ? "the request is longer than " + std::to_string(longestRequest) + " bytes"
           : !allowed.contains(firstWord(request.text)) ? "the command is not allowed"
           : waiting.size() >= mostWaiting              ? "too many requests are waiting"
                                                        : "";
}

// News are taken meanwhile, so that others are refused at once.
void mqtt_commands_c::impl_s::forward(const mqtt_request_s& request, const std::stop_token& stop) {
    if (steady_t::now() >= request.expires) {
        tell(spdlog::level::warn, request, "dropped, since it has expired");
        return;
    }
    tell(spdlog::level::info, request, "sent to the daemon");
    std::string reply;
    const exchange_e outcome =
        exchangeText(daemons.at(request.topic).requests, request.text, timeout, &reply, [this, &stop] {
            takeNews();
            return !stop.stop_requested();
        });
    if (outcome == exchange_e::answered) {
        respond(request, reply, fromDaemon);
    } else {
        refuse(request,
               stop.stop_requested() ? "the gateway ends" : fmt::format("no answer within {} s", timeout));
    }
}

void mqtt_commands_c::impl_s::refuse(const mqtt_request_s& request, const std::string& why) {
    tell(spdlog::level::warn, request, "refused, " + why);
    respond(request, "Failure: twgate: " + why, fromGateway);
}

void mqtt_commands_c::impl_s::respond(const mqtt_request_s& request, const std::string& text,
                                      const char* origin) {
    int id = 0;
    const int code = link ? link->respond(request, text, origin, &id) : MOSQ_ERR_CONN_LOST;
    if (code == MOSQ_ERR_SUCCESS || code == MOSQ_ERR_NO_CONN) {
        unconfirmed.insert_or_assign(id, request.responseTopic);
    } else {
        tell(spdlog::level::warn, request, std::string("the response is lost: ") + mosquitto_strerror(code));
    }
    if (code == MOSQ_ERR_OVERSIZE_PACKET && origin == fromDaemon) {
        refuse(request, "the reply has " + std::to_string(text.size()) + " bytes, which the server forbids");
    }
}

// MQTT does not tell who has published.
void mqtt_commands_c::impl_s::tell(spdlog::level::level_enum level, const mqtt_request_s& request,
                                   const std::string& what) const {
    const auto daemon = daemons.find(request.topic);
    spdlog::log(
        level, "sink {}: request to {} of {}: {}: {}", name,
        daemon == daemons.end() ? escaped(request.topic) : daemon->second.reader,
        escaped(request.client.value_or(request.responseTopic)), what,
        request.size > longestRequest ? std::to_string(request.size) + " bytes" : escaped(request.text));
}

mqtt_commands_c::mqtt_commands_c(const sink_config_s& config, const mqtt_settings_s& settings)
    : impl(std::make_unique<impl_s>(config, settings)) {
    impl->thread = std::jthread([own = impl.get()](const std::stop_token& stop) { own->run(stop); });
}

mqtt_commands_c::~mqtt_commands_c() = default;

std::vector<std::string> findCommandMistakes(const sink_config_s& config) {
    std::vector<std::string> mistakes;
    const auto found = config.settings.find("commands");
    if (found == config.settings.end()) {
        return mistakes;
    }
    if (config.settings.value("version", "5") != "5") {
        mistakes.emplace_back("commands: needs version 5");
    }
    if (config.daemons.empty()) {
        mistakes.emplace_back("commands: needs the key requests of a source");
    }
    for (const std::string word : (*found)["allow"]) {
        const auto isWord = [&word](const vocabulary::command_s& command) { return command.word == word; };
        if (std::ranges::none_of(vocabulary::commands, isWord) &&
            std::ranges::none_of(vocabulary::unlistedCommands, isWord)) {
            mistakes.push_back("commands.allow: " + escaped(word) + " is not a command of the daemon");
        }
    }
    const std::string topic = found->value("topic", "{reader}");
    if (const std::string mistake = findTopicMistake(topic, {"reader"}); !mistake.empty()) {
        mistakes.push_back("commands.topic: " + mistake);
    } else if (config.daemons.size() > 1 && topic.find("{reader}") == topic.npos) {
        mistakes.emplace_back("commands.topic: must hold {reader}, since more than one reader can be asked");
    }
    return mistakes;
}
