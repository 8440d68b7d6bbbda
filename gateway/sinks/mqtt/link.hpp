// SPDX-License-Identifier: MIT
// A link to an MQTT server: a client of libmosquitto and the thread that runs it, which connects again after
// a loss, within the same session.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "sinks/message.hpp"

// A user, a server and how to speak to it.
struct mqtt_settings_s {
    std::string host;
    int port = 1883;
    bool tls = false;
    bool version5 = true;  // else 3.1.1
    std::string clientId;
    std::string user;                     // empty: none
    std::string passwordFile;             // read for each connection; empty: none
    std::string ca;                       // PEM file; empty with TLS: the certificates that the system trusts
    std::string certificate, privateKey;  // PEM files of the client; empty: none
    int qos = 1;
    int keepAlive = 15;        // s; libmosquitto takes 5 at least
    int window = 200;          // QoS 1 and 2: most messages that are sent and not acknowledged
    std::string availability;  // topic of the retained "online" and "offline"; empty: none
    bool newSession = false;   // a session of an earlier process ends, and this one with the connection
    std::vector<std::string> requestTopics{};  // subscribed to on each connection; version 5 only
};

// What came on one of the request topics.
struct mqtt_request_s {
    std::string topic;
    std::string text;                     // empty when it is longer than longestRequest
    std::size_t size = 0;                 // bytes that it had
    bool isRetained = false;              // it is old, or every later subscriber gets it, too
    std::string responseTopic;            // empty: none
    std::string correlation;              // bytes that the response has to bring back
    bool hasCorrelation = false;          // they may be none
    std::optional<std::string> client{};  // the user property "client", which anybody can claim
    std::chrono::steady_clock::time_point expires = std::chrono::steady_clock::time_point::max();
};
inline constexpr std::size_t longestRequest = 65'536;  // bytes

// Reason codes of MQTT 5, in acknowledgements and when the server disconnects.
inline constexpr int firstMqttFailure = 128;
// Those that tell of one message, which the server will never take.
bool isOfTheMessage(int reason);

// The server's answer to a message; with QoS 0, that it was written to the socket.
struct mqtt_ack_s {
    int messageId = 0;
    int reason = 0;  // below firstMqttFailure is success
};

struct mqtt_news_s {
    std::vector<mqtt_ack_s> acks;
    bool isUp = false;
    bool isOver = false;       // the first try has failed, and there is no other
    bool sessionLost = false;  // since open(): the server has come back without the session
    std::string trouble;       // why it is not up
    // Connections in a row that the server has accepted and ended before it acknowledged a message.
    int endedEarly = 0;
    bool messageRefused = false;  // the last of these for a reason that isOfTheMessage()
    std::vector<mqtt_request_s> requests{};
    std::size_t lostRequests = 0;  // that came while too many were not taken
};

class mqtt_link_c {
  public:
    // `wakeOwner` is called on the link's thread when take() has news.
    mqtt_link_c(const mqtt_settings_s& settings, std::function<void()> wakeOwner);
    // Says "offline" and goodbye when the link is up. The server's session ends with it. Takes 1 s at most,
    // also while the name of the server is looked up.
    ~mqtt_link_c();
    mqtt_link_c(const mqtt_link_c&) = delete;
    mqtt_link_c& operator=(const mqtt_link_c&) = delete;

    // Begins to connect, or the reason why it cannot. When the first try fails the link is over; later
    // ones are its own business.
    std::optional<std::string> open();

    // Returns MOSQ_ERR_SUCCESS with the message's id, or another MOSQ_ERR_ code. With QoS 1 and 2
    // MOSQ_ERR_NO_CONN is a success, too: libmosquitto has queued the message.
    int publish(const std::string& topic, const message_s& message, int* messageId);

    // The response to a request, with its correlation data and QoS 1. `origin` becomes a user property.
    // Returns as publish() does.
    int respond(const mqtt_request_s& request, const std::string& text, const char* origin, int* messageId);

    bool isUp() const;
    mqtt_news_s take();
    // Connects anew, since nothing comes from the other end.
    void dropConnection();

  private:
    struct impl_s;
    std::shared_ptr<impl_s> impl;
};
