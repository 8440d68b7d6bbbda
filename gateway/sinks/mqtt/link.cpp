// SPDX-License-Identifier: MIT
#include "link.hpp"

#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <signal.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <random>

#include "config.hpp"

namespace {

using namespace std::chrono_literals;
using steady_t = std::chrono::steady_clock;

constexpr auto connectWithin = 10s;
constexpr auto goodbyeWithin = 1s;
constexpr int loopTimeout = 200;  // ms, until the thread looks whether it has to end
constexpr std::chrono::milliseconds firstBackOff = 200ms, lastBackOff = 30s;
constexpr std::uint32_t sessionExpiry = 3'600;  // s for which the server keeps the session of a lost link
constexpr int firstFailure = 128;               // of the reason codes of MQTT 5
constexpr std::string_view online = "online", offline = "offline";

// Properties of MQTT 5; none of them is sent with 3.1.1.
class properties_c {
  public:
    properties_c() = default;
    ~properties_c() { mosquitto_property_free_all(&list); }
    properties_c(const properties_c&) = delete;
    properties_c& operator=(const properties_c&) = delete;
    mosquitto_property* list = nullptr;
};

const char* textOrNull(const std::string& text) {
    return text.empty() ? nullptr : text.c_str();
}

std::string errorText(int code) {
    return code == MOSQ_ERR_ERRNO ? std::strerror(errno) : mosquitto_strerror(code);
}

}  // namespace

// Called by libmosquitto within mosquitto_loop(), on the link's thread; the log's also where it is used.
struct mqtt_link_c::callbacks_s {
    static mqtt_link_c* of(void* link) { return static_cast<mqtt_link_c*>(link); }

    static void connected(mosquitto*, void* link, int reason, int flags, const mosquitto_property*) {
        of(link)->connectReason = reason;
        of(link)->sessionKept = (flags & 1) != 0;
    }

    // The server's reason, such as "Session taken over"; without one the code is MOSQ_ERR_.
    static void disconnected(mosquitto*, void* link, int reason, const mosquitto_property*) {
        if (reason >= firstFailure) {
            const std::lock_guard guard(of(link)->mutex);
            of(link)->detail = mosquitto_reason_string(reason);
        }
    }

    static void acknowledged(mosquitto*, void* link, int id, int reason, const mosquitto_property*) {
        if (id == of(link)->availabilityId) {
            of(link)->availabilityId = 0;  // after 65,535 messages an entry has the same
        } else {
            // A link that is lost before it has brought anything is not tried more often.
            of(link)->backOff = reason < firstFailure ? firstBackOff : of(link)->backOff;
            const std::lock_guard guard(of(link)->mutex);
            of(link)->news.acks.push_back({id, reason});
            of(link)->hasNews = true;
        }
    }

    // The only place where it tells why TLS has failed.
    static void logged(mosquitto*, void* link, int level, const char* text) {
        if (level == MOSQ_LOG_ERR) {
            const std::lock_guard guard(of(link)->mutex);
            of(link)->detail = text;
        }
    }
};

void mqtt_link_c::free_s::operator()(mosquitto* mosquittoClient) const {
    mosquitto_destroy(mosquittoClient);
}

mqtt_link_c::mqtt_link_c(const mqtt_settings_s& linkSettings, std::function<void()> wakeOwner)
    : settings(linkSettings), wake(std::move(wakeOwner)), backOff(firstBackOff) {}

mqtt_link_c::~mqtt_link_c() {
    thread.request_stop();
    if (thread.joinable()) {
        thread.join();
    }
}

std::optional<std::string> mqtt_link_c::configure() {
    static const int initialised = mosquitto_lib_init();
    client.reset(mosquitto_new(settings.clientId.c_str(), settings.newSession, this));
    if (initialised != MOSQ_ERR_SUCCESS || client == nullptr) {
        return "libmosquitto: " + errorText(MOSQ_ERR_ERRNO);
    }
    mosquitto* const made = client.get();
    int code = mosquitto_int_option(made, MOSQ_OPT_PROTOCOL_VERSION,
                                    settings.version5 ? MQTT_PROTOCOL_V5 : MQTT_PROTOCOL_V311);
    const auto also = [&code](int next) { code = code == MOSQ_ERR_SUCCESS ? next : code; };
    also(mosquitto_int_option(made, MOSQ_OPT_SEND_MAXIMUM, settings.window));
    also(mosquitto_int_option(made, MOSQ_OPT_TCP_NODELAY, 1));
    also(mosquitto_threaded_set(made, true));
    if (settings.tls) {
        also(settings.ca.empty() ? mosquitto_int_option(made, MOSQ_OPT_TLS_USE_OS_CERTS, 1)
                                 : MOSQ_ERR_SUCCESS);
        also(mosquitto_tls_set(made, textOrNull(settings.ca),
                               settings.ca.empty() ? "/etc/ssl/certs" : nullptr,
                               textOrNull(settings.certificate), textOrNull(settings.privateKey), nullptr));
        also(mosquitto_tls_opts_set(made, 1, "tlsv1.2", nullptr));
    }
    if (!settings.user.empty()) {
        std::optional<std::string> password;
        std::string error;
        if (!settings.passwordFile.empty() && !(password = readSecret(settings.passwordFile, &error))) {
            return settings.passwordFile + ": " + error;
        }
        also(mosquitto_username_pw_set(made, settings.user.c_str(), password ? password->c_str() : nullptr));
    }
    if (!settings.availability.empty()) {
        also(mosquitto_will_set(made, settings.availability.c_str(), static_cast<int>(offline.size()),
                                offline.data(), 1, true));
    }
    mosquitto_connect_v5_callback_set(made, callbacks_s::connected);
    mosquitto_disconnect_v5_callback_set(made, callbacks_s::disconnected);
    mosquitto_publish_v5_callback_set(made, callbacks_s::acknowledged);
    mosquitto_log_callback_set(made, callbacks_s::logged);
    if (settings.version5 && !settings.newSession) {
        // The function that does not wait for the connection takes no properties. This one keeps them for all
        // connections to come, before it refuses the port.
        properties_c properties;
        also(
            mosquitto_property_add_int32(&properties.list, MQTT_PROP_SESSION_EXPIRY_INTERVAL, sessionExpiry));
        mosquitto_connect_bind_v5(made, settings.host.c_str(), -1, settings.keepAlive, nullptr,
                                  properties.list);
    }
    return code == MOSQ_ERR_SUCCESS ? std::nullopt : std::optional(errorText(code));
}

std::optional<std::string> mqtt_link_c::open(std::stop_token abort) {
    if (std::optional<std::string> error = configure()) {
        return error;
    }
    thread = std::jthread([this](const std::stop_token& stop) { run(stop); });
    std::unique_lock lock(mutex);
    changed.wait(lock, abort, [this] { return wasUp || firstOver; });
    return wasUp ? std::nullopt : std::optional(firstOver ? news.trouble : "twgate ends");
}

void mqtt_link_c::run(const std::stop_token& stop) {
    // A write to a connection that the server has closed must not end the process.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);

    int code =
        mosquitto_connect_async(client.get(), settings.host.c_str(), settings.port, settings.keepAlive);
    for (;;) {
        serve(stop, code);
        if (stop.stop_requested() || !waitBackOff(stop)) {
            return;
        }
        code = mosquitto_reconnect_async(client.get());
    }
}

// From the attempt to connect, which ended with `code`, to the loss of the connection.
void mqtt_link_c::serve(const std::stop_token& stop, int code) {
    const auto begun = steady_t::now();
    std::string reason = code == MOSQ_ERR_SUCCESS ? "" : errorText(code);
    const auto isDropping = [this] {
        const std::lock_guard guard(mutex);
        return dropping;
    };
    connectReason = -1;
    bool up = false;
    while (reason.empty() && !stop.stop_requested()) {
        code = mosquitto_loop(client.get(), loopTimeout, 1);
        const std::string error = errorText(code);
        // Not in the callback: what was in flight is sent again behind it, and has to be before anything new.
        if (!up && connectReason == 0 && code == MOSQ_ERR_SUCCESS) {
            up = true;
            becomeUp();
        } else if (connectReason > 0) {
            reason = settings.version5 ? mosquitto_reason_string(connectReason)
                                       : mosquitto_connack_string(connectReason);
        } else if (code != MOSQ_ERR_SUCCESS) {
            reason = error;
        } else if (!up && steady_t::now() - begun > connectWithin) {
            reason = "the server does not answer";
        } else if (isDropping()) {
            reason = "nothing was confirmed for " + std::to_string(settings.keepAlive) + " s";
        }
        if (std::exchange(hasNews, false)) {
            wake();
        }
    }
    if (up && reason.empty()) {
        sayGoodbye();
    }
    setDown(reason);
}

void mqtt_link_c::becomeUp() {
    if (!settings.availability.empty()) {
        mosquitto_publish_v5(client.get(), &availabilityId, settings.availability.c_str(),
                             static_cast<int>(online.size()), online.data(), 1, true, nullptr);
    }
    const std::lock_guard guard(mutex);
    news.sessionLost = news.sessionLost || (wasUp && !sessionKept);
    news.isUp = wasUp = true;
    news.trouble.clear();
    detail.clear();
    hasNews = true;
    changed.notify_all();
}

void mqtt_link_c::setDown(const std::string& reason) {
    const std::lock_guard guard(mutex);
    news.isUp = false;
    news.trouble = detail.empty() ? reason : detail;
    detail.clear();
    dropping = false;
    firstOver = !wasUp;
    changed.notify_all();
    wake();
}

// Half of the time, and up to as much again at random. False when the thread has to end, also because the
// first try was the last.
bool mqtt_link_c::waitBackOff(const std::stop_token& stop) {
    static thread_local std::mt19937 random{std::random_device{}()};
    std::uniform_int_distribution<std::chrono::milliseconds::rep> jitter(0, (backOff / 2).count());
    const auto wait = backOff / 2 + std::chrono::milliseconds(jitter(random));
    backOff = std::min(backOff * 2, lastBackOff);
    std::unique_lock lock(mutex);
    if (!firstOver) {
        changed.wait_for(lock, stop, wait, [] { return false; });
    }
    return !firstOver && !stop.stop_requested();
}

void mqtt_link_c::sayGoodbye() {
    properties_c properties;
    if (!settings.availability.empty()) {
        mosquitto_publish_v5(client.get(), nullptr, settings.availability.c_str(),
                             static_cast<int>(offline.size()), offline.data(), 0, true, nullptr);
    }
    mosquitto_property_add_int32(&properties.list, MQTT_PROP_SESSION_EXPIRY_INTERVAL, 0);
    mosquitto_disconnect_v5(client.get(), 0, settings.version5 ? properties.list : nullptr);
    const auto end = steady_t::now() + goodbyeWithin;
    while (steady_t::now() < end && mosquitto_loop(client.get(), loopTimeout, 1) == MOSQ_ERR_SUCCESS) {
    }
}

int mqtt_link_c::publish(const std::string& topic, const std::string& payload,
                         const mqtt_metadata_s& metadata, int* messageId) {
    properties_c properties;
    if (settings.version5) {
        mosquitto_property_add_string(&properties.list, MQTT_PROP_CONTENT_TYPE,
                                      std::string(metadata.contentType).c_str());
        for (const attribute_s& property : metadata.userProperties) {
            mosquitto_property_add_string_pair(&properties.list, MQTT_PROP_USER_PROPERTY,
                                               std::string(property.name).c_str(), property.value.c_str());
        }
    }
    return mosquitto_publish_v5(client.get(), messageId, topic.c_str(), static_cast<int>(payload.size()),
                                payload.data(), settings.qos, false, properties.list);
}

bool mqtt_link_c::isUp() const {
    const std::lock_guard guard(mutex);
    return news.isUp;
}

mqtt_news_s mqtt_link_c::take() {
    const std::lock_guard guard(mutex);
    mqtt_news_s taken = news;
    news.acks.clear();
    return taken;
}

void mqtt_link_c::dropConnection() {
    const std::lock_guard guard(mutex);
    dropping = true;
}
