// SPDX-License-Identifier: MIT
// The properties of librdkafka: those of the configuration, and the sink's own.
#pragma once

#include <librdkafka/rdkafka.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

struct kafka_conf_deleter_s {
    void operator()(rd_kafka_conf_t* conf) const;
};
using kafka_conf_ptr = std::unique_ptr<rd_kafka_conf_t, kafka_conf_deleter_s>;

// The library's configuration for the settings of a sink; the secrets are read from their files. Appends a
// line for each property that the library refuses and each secret that cannot be read.
kafka_conf_ptr makeKafkaConf(const nlohmann::json& settings, std::vector<std::string>* mistakes);

// Most entries in flight, which the library's queue bounds.
std::size_t kafkaWindow(const nlohmann::json& settings);
