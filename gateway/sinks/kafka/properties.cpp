// SPDX-License-Identifier: MIT
#include "properties.hpp"

#include <algorithm>
#include <array>
#include <charconv>

#include "sink.hpp"

namespace {

using nlohmann::json;
using lines_t = std::vector<std::string>;

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

}  // namespace

void kafka_conf_deleter_s::operator()(rd_kafka_conf_t* conf) const {
    rd_kafka_conf_destroy(conf);
}

kafka_conf_ptr makeKafkaConf(const json& settings, lines_t* mistakes) {
    kafka_conf_ptr conf(rd_kafka_conf_new());
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

std::size_t kafkaWindow(const json& settings) {
    lines_t mistakes;
    const std::string text =
        valueOf(makeKafkaConf(settings, &mistakes).get(), "queue.buffering.max.messages");
    std::size_t window = 0;
    std::from_chars(text.data(), text.data() + text.size(), window);
    return window == 0 ? mostQueued : std::min(window, mostQueued);
}

// Without its servers the library checks how the properties fit together and connects to nobody.
std::vector<std::string> findKafkaMistakes(const sink_config_s& config) {
    lines_t mistakes;
    json settings = config.settings;
    findForbidden(makeKafkaConf(settings, &mistakes).get(), settings.at("properties"), &mistakes);
    if (!mistakes.empty()) {
        return mistakes;
    }
    for (const char* servers : {"bootstrap.servers", "metadata.broker.list"}) {
        settings["properties"].erase(servers);
    }
    kafka_conf_ptr conf = makeKafkaConf(settings, &mistakes);
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
