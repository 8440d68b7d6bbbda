// SPDX-License-Identifier: MIT
// The versions of the program, the radio and ZeroMQ, as texts. The unit that learns a version
// stores it here; the command "version" and the log read it. Main thread.
#pragma once

#include <string>

// Each is called once, at start-up. The first stores the version of the build, which CMake passes
// in, and returns its text; the others take the numbers that the engine library (RXE_getAPIVerNum),
// the firmware (RXE_PARAM_FW_VERSION) and ZeroMQ give.
std::string init_app_version_string();
void set_radio_api_version_string(int major, int minor, int maintenance, int build);
void set_radio_fw_version_string(int major, int minor, int maintenance, int build);
void set_zmq_version_string(int major, int minor, int patch);

// "tarnwick: 1.2.3.4", "radio_api: 1.2.3.4", "radio_fw: 1.2.3.4" and "zmq: 1.2.3". Each is empty
// until it is set; both of the radio stay empty without an engine.
std::string get_app_version_string();
std::string get_radio_api_version_string();
std::string get_radio_fw_version_string();
std::string get_zmq_version_string();
