// SPDX-License-Identifier: MIT
#include "link.hpp"

#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <signal.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <random>
#include <thread>

#include "config.hpp"
#include "sinks/ending.hpp"

namespace {

using namespace std::chrono_literals;
using steady_t = std::chrono::steady_clock;

constexpr auto connectWithin = 10s;
constexpr auto goodbyeWithin = 500ms;
constexpr int loopTimeout = 200;  // ms, until the thread looks whether it has to end
constexpr std::chrono::milliseconds firstBackOff = 200ms, lastBackOff = 30s;
constexpr std::uint32_t sessionExpiry = 3'600;     // s for which the server keeps the session of a lost link
constexpr std::uint32_t largestPacket = 1U << 20;  // bytes, of a link that takes requests
constexpr std::size_t mostRequests = 64;           // that are not taken
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

struct free_s {
    void operator()(mosquitto* client) const { mosquitto_destroy(client); }
};

const char* textOrNull(const std::string& text) {
    return text.empty() ? nullptr : text.c_str();
}

// The text or the bytes that a function of libmosquitto has allocated.
template <class Byte>
std::string take(Byte* bytes, std::size_t size) {
    std::string taken(static_cast<const char*>(static_cast<const void*>(bytes)), size);
    std::free(bytes);  // NOLINT(cppcoreguidelines-no-malloc)
    return taken;
}

mqtt_request_s requestOf(const mosquitto_message& message, const mosquitto_property* properties) {
    mqtt_request_s request{.topic = message.topic,
                           .text = {},
                           .size = static_cast<std::size_t>(message.payloadlen),
                           .isRetained = message.retain,
                           .responseTopic = {},
                           .correlation = {}};
    if (request.size > 0 && request.size <= longestRequest) {
        request.text.assign(static_cast<const char*>(message.payload), request.size);
    }
    char *text = nullptr, *name = nullptr;
    void* bytes = nullptr;
    std::uint16_t size = 0;
    std::uint32_t seconds = 0;
    if (mosquitto_property_read_string(properties, MQTT_PROP_RESPONSE_TOPIC, &text, false) != nullptr) {
        request.responseTopic = take(text, std::strlen(text));
    }
    if (mosquitto_property_read_binary(properties, MQTT_PROP_CORRELATION_DATA, &bytes, &size, false) !=
        nullptr) {
        request.hasCorrelation = true;
        request.correlation = bytes == nullptr ? "" : take(bytes, size);
    }
    if (mosquitto_property_read_int32(properties, MQTT_PROP_MESSAGE_EXPIRY_INTERVAL, &seconds, false) !=
        nullptr) {
        request.expires = steady_t::now() + std::chrono::seconds(seconds);
    }
    const mosquitto_property* pair =
        mosquitto_property_read_string_pair(properties, MQTT_PROP_USER_PROPERTY, &name, &text, false);
    while (pair != nullptr) {
        const std::string property = take(name, std::strlen(name)), value = take(text, std::strlen(text));
        if (property == "client" && !request.client) {
            request.client = value;
        }
        pair = mosquitto_property_read_string_pair(pair, MQTT_PROP_USER_PROPERTY, &name, &text, true);
    }
    return request;
}

std::string errorText(int code) {
    return code == MOSQ_ERR_ERRNO ? std::strerror(errno) : mosquitto_strerror(code);
}

}  // namespace

bool isOfTheMessage(int reason) {
    constexpr std::array reasons{MQTT_RC_TOPIC_NAME_INVALID, MQTT_RC_PACKET_TOO_LARGE,
                                 MQTT_RC_PAYLOAD_FORMAT_INVALID};
    return std::ranges::find(reasons, reason) != reasons.end();
}

// All that the link's thread uses. It may outlive the link (ending.hpp).
struct mqtt_link_c::impl_s {
    impl_s(const mqtt_settings_s& linkSettings, std::function<void()> wakeOwner)
        : settings(linkSettings), wake(std::move(wakeOwner)) {}

    std::optional<std::string> configure();
    std::optional<std::string> setPassword();
    void run(const std::stop_token& stop);
    void serve(const std::stop_token& stop, int code);
    void becomeUp();
    void sayGoodbye();
    void setDown(const std::string& reason, bool endedByServer);
    bool waitBackOff(const std::stop_token& stop);

    struct callbacks_s;

    const mqtt_settings_s settings;
    std::unique_ptr<mosquitto, free_s> client;

    // Of the link's thread.
    bool hasNews = false;      // that the owner was not woken for
    int connectReason = -1;    // of the last CONNACK; -1: none yet on this connection
    int endReason = 0;         // of the server's DISCONNECT; 0: none on this connection
    bool sessionKept = false;  // the last CONNACK has said so
    int availabilityId = 0;    // message that says "online"
    std::chrono::milliseconds backOff = firstBackOff;

    mutable std::mutex mutex;  // of the rest
    std::function<void()> wake;
    std::condition_variable_any changed;
    mqtt_news_s news;
    std::string detail;  // what the library or the server has said of the present connection's end
    bool wasUp = false;  // since open()
    bool dropping = false;
    bool isWaiting = false;  // a message was sent since the last acknowledgement

    std::jthread thread;
};

// Called by libmosquitto within mosquitto_loop(), on the link's thread; the log's also where it is used.
struct mqtt_link_c::impl_s::callbacks_s {
    static impl_s* of(void* link) { return static_cast<impl_s*>(link); }

    static void connected(mosquitto*, void* link, int reason, int flags, const mosquitto_property*) {
        of(link)->connectReason = reason;
        of(link)->sessionKept = (flags & 1) != 0;
    }

    // The server's reason, such as "Session taken over"; without one the code is MOSQ_ERR_.
    static void disconnected(mosquitto*, void* link, int reason, const mosquitto_property*) {
        if (reason >= firstMqttFailure) {
            const std::lock_guard guard(of(link)->mutex);
            of(link)->endReason = reason;
            of(link)->detail = mosquitto_reason_string(reason);
        }
    }

    static void acknowledged(mosquitto*, void* link, int id, int reason, const mosquitto_property*) {
        if (id == of(link)->availabilityId) {
            of(link)->availabilityId = 0;  // after 65,535 messages an entry has the same
        } else {
            // A link that is lost before it has brought anything is not tried more often.
            of(link)->backOff = reason < firstMqttFailure ? firstBackOff : of(link)->backOff;
            const std::lock_guard guard(of(link)->mutex);
            of(link)->news.acks.push_back({id, reason});
            of(link)->news.endedEarly = 0;
            of(link)->isWaiting = false;
            of(link)->hasNews = true;
        }
    }

    static void arrived(mosquitto*, void* link, const mosquitto_message* message,
                        const mosquitto_property* properties) {
        const std::lock_guard guard(of(link)->mutex);
        if (of(link)->news.requests.size() < mostRequests) {
            of(link)->news.requests.push_back(requestOf(*message, properties));
        } else {
            of(link)->news.lostRequests += 1;
        }
        of(link)->hasNews = true;
    }

    // A subscription that the server refuses is tried again on the next connection.
    static void subscribed(mosquitto*, void* link, int, int count, const int* reasons,
                           const mosquitto_property*) {
        const int* const refused =
            std::find_if(reasons, reasons + count, [](int reason) { return reason >= firstMqttFailure; });
        if (refused != reasons + count) {
            const std::lock_guard guard(of(link)->mutex);
            of(link)->detail =
                std::string("the subscription is refused: ") + mosquitto_reason_string(*refused);
            of(link)->dropping = true;
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

std::optional<std::string> mqtt_link_c::impl_s::configure() {
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
    if (!settings.availability.empty()) {
        also(mosquitto_will_set(made, settings.availability.c_str(), static_cast<int>(offline.size()),
                                offline.data(), 1, true));
    }
    mosquitto_connect_v5_callback_set(made, callbacks_s::connected);
    mosquitto_disconnect_v5_callback_set(made, callbacks_s::disconnected);
    mosquitto_publish_v5_callback_set(made, callbacks_s::acknowledged);
    mosquitto_log_callback_set(made, callbacks_s::logged);
    mosquitto_message_v5_callback_set(made, callbacks_s::arrived);
    mosquitto_subscribe_v5_callback_set(made, callbacks_s::subscribed);
    properties_c properties;
    if (settings.version5 && !settings.newSession) {
        also(
            mosquitto_property_add_int32(&properties.list, MQTT_PROP_SESSION_EXPIRY_INTERVAL, sessionExpiry));
    }
    if (!settings.requestTopics.empty()) {
        also(mosquitto_property_add_int32(&properties.list, MQTT_PROP_MAXIMUM_PACKET_SIZE, largestPacket));
    }
    if (properties.list != nullptr) {
        // The function that does not wait for the connection takes no properties. This one keeps them for all
        // connections to come, before it refuses the port.
        mosquitto_connect_bind_v5(made, settings.host.c_str(), -1, settings.keepAlive, nullptr,
                                  properties.list);
    }
    return code == MOSQ_ERR_SUCCESS ? setPassword() : std::optional(errorText(code));
}

// Before each connection: the password may have changed.
std::optional<std::string> mqtt_link_c::impl_s::setPassword() {
    std::optional<std::string> password;
    std::string error;
    if (!settings.passwordFile.empty() && !(password = readSecret(settings.passwordFile, &error))) {
        return settings.passwordFile + ": " + error;
    }
    const int code = settings.user.empty()
                         ? MOSQ_ERR_SUCCESS
                         : mosquitto_username_pw_set(client.get(), settings.user.c_str(),
                                                     password ? password->c_str() : nullptr);
    return code == MOSQ_ERR_SUCCESS ? std::nullopt : std::optional(errorText(code));
}

void mqtt_link_c::impl_s::run(const std::stop_token& stop) {
    // A write to a connection that the server has closed must not end the process.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);

    serve(stop,
          mosquitto_connect_async(client.get(), settings.host.c_str(), settings.port, settings.keepAlive));
    while (!stop.stop_requested() && waitBackOff(stop)) {
        if (const std::optional<std::string> error = setPassword()) {
            setDown(*error, false);
        } else {
            serve(stop, mosquitto_reconnect_async(client.get()));
        }
    }
}

// From the attempt to connect, which ended with `code`, to the loss of the connection.
void mqtt_link_c::impl_s::serve(const std::stop_token& stop, int code) {
    const auto begun = steady_t::now();
    std::string reason = code == MOSQ_ERR_SUCCESS ? "" : errorText(code);
    const auto isDropping = [this] {
        const std::lock_guard guard(mutex);
        return dropping;
    };
    connectReason = -1;
    endReason = 0;
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
            const std::lock_guard guard(mutex);
            wake();
        }
    }
    if (up && reason.empty()) {
        sayGoodbye();
    }
    setDown(reason, up && !reason.empty() && code != MOSQ_ERR_SUCCESS && code != MOSQ_ERR_KEEPALIVE);
}

void mqtt_link_c::impl_s::becomeUp() {
    if (!settings.availability.empty()) {
        mosquitto_publish_v5(client.get(), &availabilityId, settings.availability.c_str(),
                             static_cast<int>(online.size()), online.data(), 1, true, nullptr);
    }
    for (const std::string& topic : settings.requestTopics) {
        mosquitto_subscribe_v5(client.get(), nullptr, topic.c_str(), 1, MQTT_SUB_OPT_RETAIN_AS_PUBLISHED,
                               nullptr);
    }
    const std::lock_guard guard(mutex);
    news.sessionLost = news.sessionLost || (wasUp && !sessionKept);
    news.isUp = wasUp = true;
    news.trouble.clear();
    detail.clear();
    hasNews = true;
}

void mqtt_link_c::impl_s::setDown(const std::string& reason, bool endedByServer) {
    const std::lock_guard guard(mutex);
    news.isUp = false;
    news.trouble = detail.empty() ? reason : detail;
    news.isOver = !wasUp;
    // Other reasons that it tells, such as that it shuts down, are not the messages' fault.
    if (endedByServer && isWaiting && (endReason == 0 || isOfTheMessage(endReason))) {
        news.endedEarly += 1;
        news.messageRefused = endReason != 0;
    }
    detail.clear();
    dropping = false;
    wake();
}

// Half of the time, and up to as much again at random. False when the thread has to end, also because the
// first try was the last.
bool mqtt_link_c::impl_s::waitBackOff(const std::stop_token& stop) {
    static thread_local std::mt19937 random{std::random_device{}()};
    std::uniform_int_distribution<std::chrono::milliseconds::rep> jitter(0, (backOff / 2).count());
    const auto wait = backOff / 2 + std::chrono::milliseconds(jitter(random));
    backOff = std::min(backOff * 2, lastBackOff);
    std::unique_lock lock(mutex);
    if (!news.isOver) {
        changed.wait_for(lock, stop, wait, [] { return false; });
    }
    return !news.isOver && !stop.stop_requested();
}

void mqtt_link_c::impl_s::sayGoodbye() {
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

mqtt_link_c::mqtt_link_c(const mqtt_settings_s& settings, std::function<void()> wakeOwner)
    : impl(std::make_shared<impl_s>(settings, std::move(wakeOwner))) {}

mqtt_link_c::~mqtt_link_c() {
    {
        const std::lock_guard guard(impl->mutex);
        impl->wake = [] {};
    }
    impl->thread.request_stop();
    endInTime([own = std::move(impl)] {
        if (own->thread.joinable()) {
            own->thread.join();
        }
    });
}

std::optional<std::string> mqtt_link_c::open() {
    if (std::optional<std::string> error = impl->configure()) {
        return error;
    }
    impl->thread = std::jthread([own = impl.get()](const std::stop_token& stop) { own->run(stop); });
    return std::nullopt;
}

int mqtt_link_c::publish(const std::string& topic, const message_s& message, int* messageId) {
    const mqtt_settings_s& settings = impl->settings;
    properties_c properties;
    if (settings.version5) {
        mosquitto_property_add_string(&properties.list, MQTT_PROP_CONTENT_TYPE,
                                      std::string(message.contentType).c_str());
        for (const attribute_s& property : message.attributes) {
            mosquitto_property_add_string_pair(&properties.list, MQTT_PROP_USER_PROPERTY,
                                               std::string(property.name).c_str(), property.value.c_str());
        }
    }
    {
        const std::lock_guard guard(impl->mutex);
        impl->isWaiting = true;
    }
    return mosquitto_publish_v5(impl->client.get(), messageId, topic.c_str(),
                                static_cast<int>(message.body.size()), message.body.data(), settings.qos,
                                false, properties.list);
}

int mqtt_link_c::respond(const mqtt_request_s& request, const std::string& text, const char* origin,
                         int* messageId) {
    properties_c properties;
    mosquitto_property_add_string_pair(&properties.list, MQTT_PROP_USER_PROPERTY, "from", origin);
    if (request.hasCorrelation) {
        mosquitto_property_add_binary(&properties.list, MQTT_PROP_CORRELATION_DATA,
                                      request.correlation.data(),
                                      static_cast<std::uint16_t>(request.correlation.size()));
    }
    {
        const std::lock_guard guard(impl->mutex);
        impl->isWaiting = true;
    }
    return mosquitto_publish_v5(impl->client.get(), messageId, request.responseTopic.c_str(),
                                static_cast<int>(text.size()), text.data(), 1, false, properties.list);
}

bool mqtt_link_c::isUp() const {
    const std::lock_guard guard(impl->mutex);
    return impl->news.isUp;
}

mqtt_news_s mqtt_link_c::take() {
    const std::lock_guard guard(impl->mutex);
    mqtt_news_s taken = impl->news;
    impl->news.acks.clear();
    impl->news.requests.clear();
    impl->news.lostRequests = 0;
    return taken;
}

void mqtt_link_c::dropConnection() {
    const std::lock_guard guard(impl->mutex);
    impl->dropping = true;
}
