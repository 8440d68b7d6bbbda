// SPDX-License-Identifier: MIT
// A link to an MQTT server: a client of libmosquitto and the thread that runs it, which connects again after
// a loss, within the same session.
#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "event.hpp"

struct mosquitto;

// A user, a server and how to speak to it.
struct mqtt_settings_s {
    std::string host;
    int port = 1883;
    bool tls = false;
    bool version5 = true;  // else 3.1.1
    std::string clientId;
    std::string user;                     // empty: none
    std::string passwordFile;             // read at each open(); empty: none
    std::string ca;                       // PEM file; empty with TLS: the certificates that the system trusts
    std::string certificate, privateKey;  // PEM files of the client; empty: none
    int qos = 1;
    int keepAlive = 15;        // s; libmosquitto takes 5 at least
    int window = 200;          // QoS 1 and 2: most messages that are sent and not acknowledged
    std::string availability;  // topic of the retained "online" and "offline"; empty: none
    bool newSession = false;   // a session of an earlier process ends, and this one with the connection
};

// What a message says of its content in MQTT 5.
struct mqtt_metadata_s {
    std::string_view contentType;
    std::span<const attribute_s> userProperties;
};

// The server's answer to a message; with QoS 0, that it was written to the socket.
struct mqtt_ack_s {
    int messageId = 0;
    int reason = 0;  // reason code of MQTT 5; below 128 is success
};

struct mqtt_news_s {
    std::vector<mqtt_ack_s> acks;
    bool isUp = false;
    bool sessionLost = false;  // since open(): the server has come back without the session
    std::string trouble;       // why it is not up
};

class mqtt_link_c {
  public:
    // `wake` is called on the link's thread when take() has news.
    mqtt_link_c(const mqtt_settings_s& linkSettings, std::function<void()> wakeOwner);
    // Says "offline" and goodbye when the link is up, for 1 s at most. The server's session ends with it.
    ~mqtt_link_c();
    mqtt_link_c(const mqtt_link_c&) = delete;
    mqtt_link_c& operator=(const mqtt_link_c&) = delete;

    // Waits until the server has accepted the client; the reason when it has not within 10 s, or `abort`
    // came. The first try: later ones are the link's own business.
    std::optional<std::string> open(std::stop_token abort);

    // Returns MOSQ_ERR_SUCCESS with the message's id, or another MOSQ_ERR_ code. With QoS 1 and 2
    // MOSQ_ERR_NO_CONN is a success, too: libmosquitto has queued the message.
    int publish(const std::string& topic, const std::string& payload, const mqtt_metadata_s& metadata,
                int* messageId);

    bool isUp() const;
    mqtt_news_s take();
    // Connects anew, since nothing comes from the other end.
    void dropConnection();

  private:
    struct callbacks_s;
    struct free_s {
        void operator()(mosquitto* client) const;
    };

    std::optional<std::string> configure();
    void run(const std::stop_token& stop);
    void serve(const std::stop_token& stop, int code);
    void becomeUp();
    void sayGoodbye();
    void setDown(const std::string& reason);
    bool waitBackOff(const std::stop_token& stop);

    const mqtt_settings_s settings;
    const std::function<void()> wake;
    std::unique_ptr<mosquitto, free_s> client;

    // Of the link's thread.
    bool hasNews = false;      // that the owner was not woken for
    int connectReason = -1;    // of the last CONNACK; -1: none yet on this connection
    bool sessionKept = false;  // the last CONNACK has said so
    int availabilityId = 0;    // message that says "online"
    std::chrono::milliseconds backOff{0};

    mutable std::mutex mutex;  // of the rest
    std::condition_variable_any changed;
    mqtt_news_s news;
    std::string detail;      // what the library or the server has said of the present connection's end
    bool wasUp = false;      // since open()
    bool firstOver = false;  // the first try has failed
    bool dropping = false;

    std::jthread thread;
};
