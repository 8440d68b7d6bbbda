// SPDX-License-Identifier: MIT
// Requests from afar: what comes by MQTT 5 request and response goes to the daemon of a reader, one request
// at a time, and its reply goes back. It has a thread, and a link with a session of its own, so that requests
// neither delay the sink's deliveries nor end their connection, and what was asked while the gateway was away
// is not done later.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "config.hpp"
#include "link.hpp"

class mqtt_commands_c {
  public:
    // Of a sink with the key "commands"; `settings` are those of its own link. Begins at once.
    mqtt_commands_c(const sink_config_s& config, const mqtt_settings_s& settings);
    // Tells those that wait that the gateway ends. Takes 1.1 s at most.
    ~mqtt_commands_c();
    mqtt_commands_c(const mqtt_commands_c&) = delete;
    mqtt_commands_c& operator=(const mqtt_commands_c&) = delete;

  private:
    struct impl_s;
    std::unique_ptr<impl_s> impl;
};

// What is wrong with the key "commands" of a sink, when it has one.
std::vector<std::string> findCommandMistakes(const sink_config_s& config);
