// SPDX-License-Identifier: MIT
// News of the radio side: what the engine reported and the main thread alone
// may log and publish. A message is a topic and a payload, one frame each.
#include "requests/news.hpp"

#include <zmq.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "engine_io/olios.hpp"
#include "logger.hpp"
#include "requests.hpp"
#include "requests/report.hpp"
#include "util.hpp"
#include "zmq_intfc.hpp"

namespace requests {

namespace {

// Text of the last run's stop cause, for the line of its end. Written and read
// by onRunEnded.
std::string most_recent_done_state_string;

// Why a run ended, one bit each.
struct stop_cause_s {
    std::uint16_t value;
    std::string_view text;
};
constexpr std::array stopCauses{
    stop_cause_s{1, "Stopped due to host request (stop command)"},
    stop_cause_s{2, "Stopped due to reaching olio loop count"},
    stop_cause_s{4, "Stopped due to reaching dwell time"},
    stop_cause_s{8, "Stopped due to reaching tag count"},
    stop_cause_s{16, "Stopped due to GPIO trigger"},
    stop_cause_s{32, "Stopped due to error"},
    stop_cause_s{64, "Stopped due to no enabled olios"},
    stop_cause_s{1024, "Stopped due to misconfiguration"},
};
constexpr std::uint16_t firstErrorCause = 32;  // from this number on the end is not a regular one

// A cause with more than one bit set has no name.
std::string stopCauseText(std::uint16_t cause) {
    const auto* row = std::ranges::find(stopCauses, cause, &stop_cause_s::value);
    return row == stopCauses.end() ? "Unknown Stop Cause" + std::to_string(cause) : std::string(row->text);
}

// ---- payload decoders. The least length in the table keeps them inside the payload.

std::uint8_t byteAt(std::string_view payload, std::size_t index) {
    return static_cast<std::uint8_t>(payload[index]);
}

std::int8_t celsiusOf(std::string_view payload) {
    return static_cast<std::int8_t>(payload[0]);
}

// The id stands as it does on the wire: high byte first.
std::uint16_t txAntennaOf(std::string_view payload) {
    return getTxAntForOlio(static_cast<std::uint16_t>(byteAt(payload, 0) << 8 | byteAt(payload, 1)));
}

template <class Record>
Record recordOf(std::string_view payload) {
    Record record{};
    std::memcpy(&record, payload.data(), sizeof record);
    return record;
}

// ---- handlers

void onError(std::string_view payload) {
    std::string text(payload);
    logError(&text, report_error.tarnwick);
}

// Quirk: the switch is that of the errors, although the message is a warning.
void onWarning(std::string_view payload) {
    std::string text(payload);
    logWarning(&text, report_error.tarnwick);
}

// Antenna 0 stands for an olio that is not known, and is not an antenna.
void onAntenna(std::string_view payload, bool disconnected) {
    if (const std::uint16_t port = txAntennaOf(payload); port != 0) {
        noteAntenna(port, disconnected);
    }
}

void onApiError(std::string_view payload) {
    std::string text = sprintfStr("API Error: 0x%02x%02x%02x%02x", byteAt(payload, 3), byteAt(payload, 2),
                                  byteAt(payload, 1), byteAt(payload, 0));
    logWarning(&text, report_warning.radio_api);
}

void onRunEnded(std::string_view payload) {
    const auto run = recordOf<START_INFO_s>(payload);
    most_recent_done_state_string = stopCauseText(run.stopCause);
    // Quirk: single precision, so that a long run shows fewer digits.
    const double seconds = static_cast<double>(static_cast<float>(run.duration)) / 1'000'000;
    logInfo("requests", " duration: ", seconds, " seconds, total tag reads: ", run.tagReads,
            ", total rounds: ", run.rounds, ", stop cause: ", most_recent_done_state_string);
    if (run.stopCause >= firstErrorCause) {
        std::string text = sprintfStr("RXE Stopped due to error: %s", most_recent_done_state_string.c_str());
        logError(&text, report_error.radio);
        RXE_getErr();  // the log that this asks for arrives as news of its own
    }
}

void onStopped(std::string_view) {
    logInfo("requests", " radio stopped");
}

void onDatabaseWarning(std::string_view payload) {
    scheduleDatabaseReset(recordOf<DB_WARNING_s>(payload));
}

void onDatabaseFull(std::string_view) {
    std::string text = "Database full, resetting database";
    logError(&text, report_error.database);
    reset_database();
}

void onErrorLog(std::string_view payload) {
    std::string text = "RXE Error: " + std::string(payload);
    logError(&text, report_error.radio);
}

// By topic. A message with less payload than its handler reads is ignored, and so is one with
// an unknown topic.
struct news_s {
    std::string_view topic;
    std::size_t minLength;
    void (*handler)(std::string_view payload);
};
constexpr news_s news[] = {
    {"error", 0, onError},
    {"warning", 0, onWarning},
    {"ant_disconnect", 2, [](std::string_view payload) { onAntenna(payload, true); }},
    {"ant_connect", 2, [](std::string_view payload) { onAntenna(payload, false); }},
    {"amb_temp_hi", 1, [](std::string_view payload) { noteHighAmbientTemperature(celsiusOf(payload)); }},
    {"amb_temp_crit", 1,
     [](std::string_view payload) { noteCriticalAmbientTemperature(celsiusOf(payload)); }},
    {"pa_temp_hi", 1, [](std::string_view payload) { noteHighPATemperature(celsiusOf(payload)); }},
    {"pa_temp_crit", 1, [](std::string_view payload) { noteCriticalPATemperature(celsiusOf(payload)); }},
    {"pa_failure", 1, [](std::string_view payload) { noteAmplifierFailure(byteAt(payload, 0)); }},
    {"api_error", 4, onApiError},
    {"start_info", sizeof(START_INFO_s), onRunEnded},
    {"start_ack", 0, onStopped},
    {"db_warning", sizeof(DB_WARNING_s), onDatabaseWarning},
    {"db_error", 0, onDatabaseFull},
    {"err_log", 0, onErrorLog},
};

// Takes a whole message, so that the next one begins with its topic.
std::vector<std::string> receiveFrames(void* socket) {
    std::vector<std::string> frames;
    std::string frame;
    do {
        if (zmq_recv_string(socket, &frame) != 0) {
            break;
        }
        frames.push_back(frame);
    } while (hasMoreFrames(socket));
    return frames;
}

}  // namespace

bool hasMoreFrames(void* socket) {
    int more = 0;
    std::size_t size = sizeof more;
    return zmq_getsockopt(socket, ZMQ_RCVMORE, &more, &size) == 0 && more != 0;
}

void handleRadioNews() {
    const std::vector<std::string> frames = receiveFrames(sockets::main_from_radio_async);
    if (frames.empty()) {
        return;
    }
    const auto* row = std::ranges::find(news, frames[0], &news_s::topic);
    if (frames.size() > 1 && row != std::end(news) && frames[1].size() >= row->minLength) {
        row->handler(frames[1]);
    }
}

}  // namespace requests
