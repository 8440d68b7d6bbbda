// SPDX-License-Identifier: MIT
// The versions of the program and of what it runs on, as texts. The unit that learns a version
// stores it here; the "version" command and the log read it. Main thread.
#pragma once

#include <string>

// Each is called once, at start-up. The number of the program is that of the build; the
// call returns its text.
std::string init_app_version_string();
void set_radio_api_version_string(int major, int minor, int maintenance, int build);
void set_radio_fw_version_string(int major, int minor, int maintenance, int build);
void set_zmq_version_string(int major, int minor, int patch);

// "tarnwick: 1.2.3.4", "radio_api: 1.2.3.4", "radio_fw: 1.2.3.4" and "zmq: 1.2.3". Empty
// as long as it is not set: without an engine the two of the radio stay so.
std::string get_app_version_string();
std::string get_radio_api_version_string();
std::string get_radio_fw_version_string();
std::string get_zmq_version_string();
