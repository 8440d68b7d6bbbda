// SPDX-License-Identifier: MIT
#include "versions.hpp"

#include "util.hpp"

namespace {

// Each is set once at start-up, before the radio thread exists, and read for the command "version"
// and the log. Empty until it is set. Main thread.
std::string appVersion;
std::string radioApiVersion;
std::string radioFwVersion;
std::string zmqVersion;

}  // namespace

std::string init_app_version_string() {
    appVersion = "tarnwick: " TARNWICK_VERSION;
    return appVersion;
}

void set_radio_api_version_string(int major, int minor, int maintenance, int build) {
    sprintfStr(&radioApiVersion, "radio_api: %u.%u.%u.%u", static_cast<unsigned>(major),
               static_cast<unsigned>(minor), static_cast<unsigned>(maintenance),
               static_cast<unsigned>(build));
}

void set_radio_fw_version_string(int major, int minor, int maintenance, int build) {
    sprintfStr(&radioFwVersion, "radio_fw: %u.%u.%u.%u", static_cast<unsigned>(major),
               static_cast<unsigned>(minor), static_cast<unsigned>(maintenance),
               static_cast<unsigned>(build));
}

void set_zmq_version_string(int major, int minor, int patch) {
    sprintfStr(&zmqVersion, "zmq: %u.%u.%u", static_cast<unsigned>(major), static_cast<unsigned>(minor),
               static_cast<unsigned>(patch));
}

std::string get_app_version_string() {
    return appVersion;
}

std::string get_radio_api_version_string() {
    return radioApiVersion;
}

std::string get_radio_fw_version_string() {
    return radioFwVersion;
}

std::string get_zmq_version_string() {
    return zmqVersion;
}
