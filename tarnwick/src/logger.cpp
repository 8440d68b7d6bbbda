// SPDX-License-Identifier: MIT
#include "logger.hpp"

#include <easylogging++.h>
#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>

#include "requests.hpp"
#include "rxe.h"
#include "util.hpp"

INITIALIZE_EASYLOGGINGPP

namespace {

constexpr const char* logFileName = "tarnwick.log";
constexpr const char* logFormat = "%datetime{%Y-%M-%dT%H:%m:%s.%gZ} %level %msg";
constexpr const char* packetLogFileName = "logs/packet_log";
constexpr int oldLogFiles = 5;

// Lines counted since start. Written by any thread, read by heartbeats and alarms.
std::atomic<std::uint64_t> errorCount{0};
std::atomic<std::uint64_t> warningCount{0};

// The lowest level that is written. Written once by configureLogs; read by any
// thread. Above every level until then.
constexpr int noLevel = static_cast<int>(log_level_e::error) + 1;
std::atomic<int> lowestLevel{noLevel};

// Runs beside the library's own writer, one line at a time under the library's
// lock. A stream that once failed to write refuses everything after it; taking
// the mark away lets the log go on as soon as the disk has room again.
class stream_revival : public el::LogDispatchCallback {
  protected:
    void handle(const el::LogDispatchData* data) override {
        const el::LogMessage* const message = data->logMessage();
        auto* const stream = message->logger()->typedConfigurations()->fileStream(message->level());
        if (stream != nullptr && stream->fail()) {
            stream->clear();
        }
    }
};

el::Configurations makeConfiguration(bool cli, bool verbose) {
    struct setting_s {
        el::ConfigurationType type;
        const char* value;
    };
    const setting_s settings[] = {
        {el::ConfigurationType::Enabled, "false"},
        {el::ConfigurationType::Format, logFormat},
        {el::ConfigurationType::SubsecondPrecision, "3"},
        {el::ConfigurationType::Filename, logFileName},
        {el::ConfigurationType::MaxLogFileSize, "5242880"},  // bytes
        {el::ConfigurationType::LogFlushThreshold, "100"},   // lines of one level
        {el::ConfigurationType::ToStandardOutput, cli ? "true" : "false"},
    };
    el::Configurations configuration;
    configuration.setToDefault();
    for (const setting_s& setting : settings) {
        configuration.setGlobally(setting.type, setting.value);
    }
    if (verbose) {
        configuration.set(el::Level::Debug, el::ConfigurationType::Enabled, "true");
    }
    for (const el::Level level : {el::Level::Info, el::Level::Warning, el::Level::Error}) {
        configuration.set(level, el::ConfigurationType::Enabled, "true");
    }
    return configuration;
}

// The two ways to switch the engine's packet log. Both return whether it worked.
bool stopPacketLog() {
    return RXE_disablePacketLogging() == 0;
}

bool restartPacketLog() {
    RXE_disablePacketLogging();
    return RXE_enablePacketLogging(packetLogFileName) == 0;
}

}  // namespace

void setup_syslog() {
    setlogmask(LOG_UPTO(LOG_INFO));
    openlog("tarnwick", LOG_PID | LOG_CONS | LOG_NDELAY, LOG_LOCAL1);
    syslog(LOG_NOTICE, "Program started by User %d", static_cast<int>(getuid()));
}

int configureLogs(bool cli, bool verbose) {
    const el::Configurations configuration = makeConfiguration(cli, verbose);
    el::Helpers::installPreRollOutCallback([](const char* filename, std::size_t size) {
        RotationHandler(filename, static_cast<unsigned>(size));
    });
    el::Helpers::installLogDispatchCallback<stream_revival>("stream_revival");
    el::Loggers::reconfigureLogger(el::base::consts::kDefaultLoggerId, configuration);
    lowestLevel.store(static_cast<int>(verbose ? log_level_e::debug : log_level_e::info),
                      std::memory_order_relaxed);
    logInfo(get_app_version_string());
    return 0;
}

void RotationHandler(const char* filename, unsigned /*size*/) {
    const std::string base = std::string(filename) + ".";
    for (int newer = oldLogFiles - 1; newer >= 1; --newer) {
        std::rename((base + std::to_string(newer)).c_str(), (base + std::to_string(newer + 1)).c_str());
    }
    std::rename(filename, (base + "1").c_str());
}

void incrementErrorCount() {
    errorCount.fetch_add(1, std::memory_order_relaxed);
}
void incrementWarningCount() {
    warningCount.fetch_add(1, std::memory_order_relaxed);
}
std::uint64_t getErrorCount() {
    return errorCount.load(std::memory_order_relaxed);
}
std::uint64_t getWarningCount() {
    return warningCount.load(std::memory_order_relaxed);
}

bool isLogLevelEnabled(log_level_e level) {
    return static_cast<int>(level) >= lowestLevel.load(std::memory_order_relaxed);
}

void logLine(log_level_e level, std::string_view unit, std::string_view text) {
    if (!isLogLevelEnabled(level)) {
        return;
    }
    // A view, since of a string the library takes no more than up to the first NUL.
    const std::string joined = std::string(unit).append(text);
    const std::string_view line = joined;
    switch (level) {
        case log_level_e::debug:
            LOG(DEBUG) << line;
            break;
        case log_level_e::info:
            LOG(INFO) << line;
            break;
        case log_level_e::warning:
            LOG(WARNING) << line;
            break;
        case log_level_e::error:
            LOG(ERROR) << line;
            break;
    }
}

int loggingHandler(std::vector<std::string>* tokens, std::string* reply) {
    // Main thread. What the engine was last told with success.
    static bool rxe_packet_log_running = false;

    *reply = "Success: ";
    if (tokens->size() <= 1) {
        sprintfStrAppend(reply, "radioPacketLog: %s", rxe_packet_log_running ? "ON" : "OFF");
        return 0;
    }
    std::string value;
    if (getParamValue("radioPacketLog", tokens, &value) != 0) {
        return 0;
    }
    const bool turnOn = value == "ON";
    if (!turnOn && value != "OFF") {
        // The text has always named the parameter packet_log.
        sprintfStr(reply,
                   "Failure: %s is not an acceptable value for packet_log (acceptable values are: ON or OFF)",
                   value.c_str());
    } else if (turnOn ? restartPacketLog() : stopPacketLog()) {
        rxe_packet_log_running = turnOn;
        *reply = "Success";
    } else {
        *reply = turnOn ? "Failure: RXE_enablePacketLogging failed to enable logging"
                        : "Failure: RXE_disablePacketLogging failed to disable logging";
    }
    return 0;
}
