// SPDX-License-Identifier: MIT
// What the running daemon has in force of the settings that a boot file holds, and the requests that
// make it what the file says.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "requests.hpp"

namespace boot {

// The daemon's answers.
struct settings_s {
    std::string form;          // OFF, STRING or BINARY
    unsigned subscribers = 1;  // 1 to 1024
    nlohmann::json events;     // as a request has them, each stat once
    bool reading = false;      // the radio runs, or waits for its start condition
};

// Asks for all of them and changes nothing. What goes wrong is told on standard error. Returns an
// exit_status_e.
int askSettings(const daemon_s& daemon, settings_s* settings);

// A value that is not as the file says. Both values are as JSON has them.
struct difference_s {
    std::string place;  // "events.heartbeat.period"
    std::string wanted;
    std::string now;
};

// One request and what it changes.
struct change_s {
    std::string name;  // the command's word
    std::string request;
    std::vector<difference_s> differences;
    bool shapesReports = false;  // without it reports have another form or go elsewhere
};

// The changes to what a file without faults says, in the order in which they are to be sent; none
// for what is in force already. The start of the radio is not among them.
std::vector<change_s> changesTo(const nlohmann::json& file, const settings_s& now);

}  // namespace boot
