// SPDX-License-Identifier: MIT
// The commands "start" and "stop". Only the engine knows whether the radio runs; it is asked
// each time. Main thread.
#include "command_words.hpp"
#include "engine_io/parameters.hpp"
#include "logger.hpp"
#include "radio.hpp"
#include "requests.hpp"
#include "rxe.h"
#include "simulator.hpp"
#include "util.hpp"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdio>
#include <cstdlib>

namespace requests {

namespace {

// Read by the software that starts this process: whether the radio is to be
// started too. In the working directory, without a newline.
constexpr const char* autoStartFile = "autoStart.txt";

// The run that was started last has tags that the engine makes up. Main thread.
bool hasFakeTags = false;

constexpr const char* startOngoing =
    "Failure: Start currently ongoing. Issue a stop prior to issuing a start.";

// "true" or "false". A failure is logged; it changes neither the reply nor the counters.
void recordAutoStart(std::string_view wanted) {
    std::string cause;
    if (!replaceFile(autoStartFile, wanted, &cause)) {
        logUncountedError("requests", " autoStart.txt does not tell the last start or stop: ", cause);
    }
}

// Fills the reply when the engine refused. Returns whether it did.
bool refused(const char* operation, RXE_API_STATUS status, std::string* reply) {
    if (status == 0) {
        return false;
    }
    sprintfStr(reply, "Failure: %s returned error: %d", operation, static_cast<int>(status));
    return true;
}

int startOnce(std::vector<std::string>* /*tokens*/, std::string* reply) {
    return startRXE(false, reply);
}

// "start sim <tags per second>": tags that the engine makes up. Quirk: it starts also while the
// radio runs, autoStart.txt stays as it is, and the start is not announced.
int startFakeTags(std::vector<std::string>* tokens, std::string* reply) {
    if (tokens->size() < 3) {
        *reply = "Failure: sim requires tps";
        return 0;
    }
    if (refused("RXE_resetDb()", RXE_resetDb(), reply)) {
        return 0;
    }
    const auto tagsPerSecond = static_cast<unsigned short>(std::strtol((*tokens)[2].c_str(), nullptr, 10));
    if (refused("RXE_txFakeTags()", RXE_txFakeTags(tagsPerSecond), reply)) {
        return 0;
    }
    hasFakeTags = true;
    *reply = "Success";
    return 0;
}

// A leading decimal number, the nearest one that an int holds; 0 without digits.
int leadingNumber(const std::string& text) {
    return static_cast<int>(std::clamp<long>(std::strtol(text.c_str(), nullptr, 10), INT_MIN, INT_MAX));
}

// "start sim_bearing <tags per second> <array reader>": the simulator in place of the engine.
// What is wrong with its files is told on standard output only.
int startBearings(std::vector<std::string>* tokens, std::string* reply) {
    if (isStartOngoing()) {
        *reply = startOngoing;
        return 0;
    }
    if (tokens->size() < 4) {
        *reply = "Failure: sim_bearing requires tps and aar number";
        return 0;
    }
    const int tagsPerSecond = leadingNumber((*tokens)[2]);
    const int aar = leadingNumber((*tokens)[3]);
    std::printf("tps: %s or %d\n", (*tokens)[2].c_str(), tagsPerSecond);
    const auto stdAz = static_cast<float>(get_std_az(tokens));
    const auto stdEl = static_cast<float>(get_std_el(tokens));
    startSimulationThread(aar, tagsPerSecond, stdAz, stdEl);
    *reply = "Success";
    return 0;
}

// The forms of "start" by their first parameter.
struct startForm_s {
    std::string_view parameter;
    command_handler handler;
};
constexpr std::array startForms{
    startForm_s{vocabulary::sim.name, startFakeTags},
    startForm_s{vocabulary::simBearing.name, startBearings},
    startForm_s{vocabulary::doNotPersistState.name, startOnce},
};

}  // namespace

bool isSimulating() {
    return isSimulationRunning() || (hasFakeTags && isStartOngoing());
}

int startRXE(bool persist, std::string* reply) {
    if (isStartOngoing()) {
        *reply = startOngoing;
        return 0;
    }
    if (isSimulationRunning()) {
        *reply = "Failure: simulation is currently ongoing. Issue a stop prior to issuing a start.";
        return 0;
    }
    if (refused("RXE_resetDb()", RXE_resetDb(), reply)) {
        return 0;
    }
    // The database is empty, so a reset that was scheduled because it filled up is not needed.
    cancel_database_timer();
    if (refused("RXE_start()", RXE_start(), reply)) {
        return 0;
    }
    hasFakeTags = false;
    *reply = "Success";
    if (persist) {
        recordAutoStart("true");
    }
    send_radio_start_message();
    return 0;
}

int startHandler(std::vector<std::string>* tokens, std::string* reply) {
    reply->clear();
    if (tokens->size() == 1) {
        return startRXE(true, reply);
    }
    const auto* form = std::ranges::find(startForms, (*tokens)[1], &startForm_s::parameter);
    if (form == startForms.end()) {
        *reply = "Failure: param not recognized";
        return 0;
    }
    return form->handler(tokens, reply);
}

int stopHandler(std::vector<std::string>* /*tokens*/, std::string* reply) {
    reply->clear();
    if (isSimulationRunning()) {
        stopSimulationThread();
    }
    if (RXE_stop() != 0) {
        *reply = "Failure";
        return 0;
    }
    *reply = "Success";
    // Also after "start doNotPersistState": there is no stop that leaves the file alone.
    recordAutoStart("false");
    send_radio_stop_message();
    return 0;
}

}  // namespace requests
