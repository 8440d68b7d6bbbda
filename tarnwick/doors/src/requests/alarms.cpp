// SPDX-License-Identifier: MIT
// Alarms: errors and warnings that are counted, logged and, where they concern the reader's
// other software, published on `events`. Main thread.
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

// Degrees Celsius. Readings up to these are ignored, also where the limits that `events` sets
// are lower.
constexpr std::int8_t amb_temp_threshold = 75;
constexpr std::int8_t pa_temp_threshold = 105;

constexpr int hysteresis = 5;  // degrees Celsius

// Where a temperature is kept, and what is said of it.
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

// {"component":"TW","data":{"eventNum":7,"message":"..."},"timestamp":"...","type":"error"}
//
// `number` counts the errors, or the warnings, since the start. The message may hold text of
// the engine, of which bytes that are not UTF-8 become U+FFFD.
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
    sendEvent(event);
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
