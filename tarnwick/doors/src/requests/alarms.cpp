// SPDX-License-Identifier: MIT
// Errors and warnings that the reader's other software is to know of, and the
// temperatures among them.
#include <zmq.h>

#include <cstdlib>
#include <nlohmann/json.hpp>

#include "logger.hpp"
#include "requests.hpp"
#include "requests/report.hpp"
#include "util.hpp"
#include "zmq_intfc.hpp"

namespace requests {

// Written by the notes below, read by the heartbeat.
std::int8_t current_amb_temp = noTemperature;
std::int8_t current_pa_temp = noTemperature;

namespace {

// The temperatures that last passed the hysteresis, in degrees Celsius. Written
// and read by noteHigh.
std::int8_t prev_reported_amb_temp = noTemperature;
std::int8_t prev_reported_pa_temp = noTemperature;

// Above these a reading is looked at, whatever the limits of `events` are.
constexpr std::int8_t amb_temp_threshold = 75;
constexpr std::int8_t pa_temp_threshold = 105;

constexpr int hysteresis = 5;  // degrees Celsius

struct thermometer_s {
    std::int8_t* current;
    std::int8_t* reported;
    std::int8_t threshold;
    const std::int16_t* limit;
    const char* name;
};
constexpr thermometer_s ambient{&current_amb_temp, &prev_reported_amb_temp, amb_temp_threshold,
                                &report_warning.ambientLimit, "Ambient"};
constexpr thermometer_s amplifier{&current_pa_temp, &prev_reported_pa_temp, pa_temp_threshold,
                                  &report_warning.paLimit, "PA"};

void noteHigh(const thermometer_s& thermometer, std::int8_t celsius) {
    *thermometer.current = celsius;
    if (celsius <= thermometer.threshold || std::abs(celsius - *thermometer.reported) <= hysteresis) {
        return;
    }
    *thermometer.reported = celsius;
    // Quirk: both limits are compared with the ambient temperature, also for the
    // amplifier.
    if (current_amb_temp > *thermometer.limit) {
        std::string text = sprintfStr("%s Temperature High @ %d C", thermometer.name, celsius);
        logWarning(&text, true);
    }
}

void noteCritical(const thermometer_s& thermometer, std::int8_t celsius) {
    *thermometer.current = celsius;
    std::string text = sprintfStr("%s Temperature Critical @ %d C", thermometer.name, celsius);
    logError(&text, true);
}

// The text may hold what the engine wrote, which need not be UTF-8.
void publishAlarm(const char* type, std::uint64_t number, const std::string& message) {
    timeval now{};
    gettimeofday(&now, nullptr);
    std::string timestamp;
    getISOString(&now, &timestamp);
    using nlohmann::json;
    const std::string event = json{
        {"component", "TW"},
        {"data", {{"eventNum", number}, {"message", message}}},
        {"timestamp", timestamp},
        {"type", type}}.dump(-1, ' ', false, json::error_handler_t::replace);
    zmq_send(events, event.data(), event.size(), 0);
}

}  // namespace

int logError(std::string* text, bool publish) {
    logCountedError("requests", " ", *text);
    if (publish) {
        publishAlarm("error", getErrorCount(), *text);
    }
    return 0;
}

int logWarning(std::string* text, bool publish) {
    logCountedWarning("requests", " ", *text);
    if (publish) {
        publishAlarm("warning", getWarningCount(), *text);
    }
    return 0;
}

void noteHighAmbientTemperature(std::int8_t celsius) {
    noteHigh(ambient, celsius);
}

void noteHighPATemperature(std::int8_t celsius) {
    noteHigh(amplifier, celsius);
}

void noteCriticalAmbientTemperature(std::int8_t celsius) {
    noteCritical(ambient, celsius);
}

void noteCriticalPATemperature(std::int8_t celsius) {
    noteCritical(amplifier, celsius);
}

}  // namespace requests
