// SPDX-License-Identifier: MIT
#include "logger.hpp"

#include <easylogging++.h>
#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "turn.hpp"
#include "util.hpp"
#include "versions.hpp"

INITIALIZE_EASYLOGGINGPP

namespace {

// In the working directory. A line is its time, level, unit and text.
constexpr const char* logFileName = "tarnwick.log";
constexpr const char* logFormat = "%datetime{%Y-%M-%dT%H:%m:%s.%gZ} %level %msg";
constexpr int oldLogFiles = 5;
constexpr std::uintmax_t maxLogFileSize = 5'242'880;  // bytes

// Lines counted since start. Written by any thread, read by heartbeats and alarms.
std::atomic<std::uint64_t> errorCount{0};
std::atomic<std::uint64_t> warningCount{0};

// Bytes of a line. Lines that the daemon makes without texts from outside are shorter.
constexpr std::size_t longestLine = 16 * 1024;
// Bytes of a text from outside, such as a request.
constexpr std::size_t longestEscapedText = 4 * 1024;

// Lines that were lost while the disk was full, and that no warning has counted yet. Increased by
// the writer below when there is room again, set to 0 by tellMissing. Any thread.
std::atomic<std::uint64_t> missingLines{0};

// Renames the file to ".1" and ".1" to ".2" and so on; the file that is then `oldest` is replaced.
void shiftLogs(const char* filename, int oldest) {
    const std::string base = std::string(filename) + ".";
    for (int newer = oldest - 1; newer >= 1; --newer) {
        std::rename((base + std::to_string(newer)).c_str(), (base + std::to_string(newer + 1)).c_str());
    }
    std::rename(filename, (base + "1").c_str());
}

// Writes in place of the library's own writer, one line at a time under the library's
// lock. The library takes the position of a stream that has failed, -1, for a size above
// the limit: on a full disk each flush would rotate the log, until the lines from before
// the full disk are gone. And it would hold back warnings as it does other lines.
class line_writer : public el::LogDispatchCallback {
  public:
    line_writer() = default;
    line_writer(const line_writer&) = delete;
    line_writer& operator=(const line_writer&) = delete;
    // At the end of the process, when the library has closed its stream.
    ~line_writer() override {
        if (!waiting_.empty()) {
            std::ofstream(logFileName, std::ios::app) << waiting_;
        }
    }

  protected:
    void handle(const el::LogDispatchData* data) override {
        const el::LogMessage& message = *data->logMessage();
        const el::Level level = message.level();
        el::base::TypedConfigurations& settings = *message.logger()->typedConfigurations();
        const std::string line = message.logger()->logBuilder()->build(&message, true);
        const bool isUrgent = level == el::Level::Warning || level == el::Level::Error;
        keep(line, isUrgent);
        // The library counts the lines of each level.
        if (message.logger()->isFlushNeeded(level) || isUrgent || waiting_.size() >= mostWaiting) {
            // The library gives up a file that it cannot open at the start.
            std::fstream* const file = settings.fileStream(level);
            write(file != nullptr ? file : &opened_, *message.logger(), level);
        }
        if (settings.toStandardOutput(level)) {
            std::cout << line << std::flush;
        }
    }

  private:
    // Keeps a line until it is written. While the disk is full the first 8 KiB of lines wait, and of
    // warnings and errors the first 16 KiB.
    void keep(const std::string& line, bool isUrgent) {
        if (waiting_.size() < (isUrgent ? 2 * mostWaiting : mostWaiting)) {
            waiting_ += line;
        } else {
            ++lost_;
        }
    }

    // Writes all lines that wait, or none: a part that a full disk took is cut off again.
    void write(std::fstream* file, el::Logger& logger, el::Level level) {
        if (!file->is_open()) {
            file->open(logFileName, std::ios::app);
        }
        std::error_code none;
        const std::uintmax_t size = std::filesystem::file_size(logFileName, none);
        file->write(waiting_.data(), static_cast<std::streamsize>(waiting_.size()));
        file->flush();
        if (file->fail()) {
            file->close();
            if (!none && std::filesystem::file_size(logFileName, none) > size && !none) {
                std::filesystem::resize_file(logFileName, size, none);
            }
            return;
        }
        waiting_.clear();
        missingLines.fetch_add(lost_, std::memory_order_relaxed);
        lost_ = 0;
        // A pipe or a device does not have a position, and is not rotated.
        if (const std::streamoff position = file->tellp(); position >= 0) {
            // Rotates a file of the library that is full, and sets this level's count of lines to 0.
            logger.flush(level, file);
            if (file == &opened_ && static_cast<std::uintmax_t>(position) >= maxLogFileSize) {
                opened_.close();
                shiftLogs(logFileName, oldLogFiles);
            }
        }
    }

    // Bytes.
    static constexpr std::size_t mostWaiting = 8 * 1024;
    // In place of the library's stream when the file could not be opened at the start.
    std::fstream opened_;
    // Whole lines, in their order.
    std::string waiting_;
    // Lines that were lost since the disk is full.
    std::uint64_t lost_ = 0;
};

void writeLine(log_level_e level, std::string_view line) {
    // A view, since the library would write a string only up to its first NUL.
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

// A line of the engine thread that came while another thread was writing; that thread writes it.
struct left_line_s {
    log_level_e level{};
    std::string line;
};
void finishLine(left_line_s& left) {
    writeLine(left.level, left.line);
}

// All lines go through here, one at a time, so that no thread waits for a lock of the library. Any
// thread.
turn_s<left_line_s, 1024, finishLine> writing;

// Warns of lines that were lost. Not counted: no unit has failed.
void tellMissing() {
    if (missingLines.load(std::memory_order_relaxed) == 0) {
        return;
    }
    if (const std::uint64_t missing = missingLines.exchange(0, std::memory_order_relaxed); missing != 0) {
        logUncountedWarning("logger", " the log file could not be written: ", missing, " lines are missing");
    }
}

// Levels are off unless they are turned on here, so that those of the library alone stay off.
el::Configurations makeConfiguration(bool cli, bool verbose) {
    struct setting_s {
        el::ConfigurationType type;
        const char* value;
    };
    const std::string fileSize = std::to_string(maxLogFileSize);
    const setting_s settings[] = {
        {el::ConfigurationType::Enabled, "false"},
        {el::ConfigurationType::Format, logFormat},
        {el::ConfigurationType::SubsecondPrecision, "3"},
        {el::ConfigurationType::Filename, logFileName},
        {el::ConfigurationType::MaxLogFileSize, fileSize.c_str()},
        {el::ConfigurationType::LogFlushThreshold, "100"},  // lines of one level
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

// The library empties a file that is full at the start and keeps nothing of it. A process that is
// killed between the line that fills the log and the end of the rotation leaves such a file, and
// perhaps a gap in the numbers of the old ones, which is filled first.
void rotateFullLog() {
    std::error_code none;
    if (const std::uintmax_t size = std::filesystem::file_size(logFileName, none);
        none || size < maxLogFileSize) {
        return;
    }
    int oldest = 1;
    while (oldest < oldLogFiles &&
           std::filesystem::exists(logFileName + ("." + std::to_string(oldest)), none)) {
        ++oldest;
    }
    shiftLogs(logFileName, oldest);
}

// A process that is killed while it writes leaves a part of a line, in which the next line would go on.
void endLastLine() {
    std::error_code none;
    if (!std::filesystem::is_regular_file(logFileName, none)) {
        return;
    }
    std::fstream log(logFileName, std::ios::in | std::ios::out | std::ios::ate | std::ios::binary);
    if (log.tellg() > 0) {
        log.seekg(-1, std::ios::end);
        if (const int last = log.get(); last != '\n' && last != std::fstream::traits_type::eof()) {
            log.seekp(0, std::ios::end);
            log << '\n';
        }
    }
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
    el::Helpers::installLogDispatchCallback<line_writer>("line_writer");
    el::Helpers::uninstallLogDispatchCallback<el::base::DefaultLogDispatchCallback>(
        "DefaultLogDispatchCallback");
    rotateFullLog();
    endLastLine();
    el::Loggers::reconfigureLogger(el::base::consts::kDefaultLoggerId, configuration);
    logger_detail::lowestLevel.store(static_cast<int>(verbose ? log_level_e::debug : log_level_e::info),
                                     std::memory_order_relaxed);
    logInfo(get_app_version_string());
    return 0;
}

void RotationHandler(const char* filename, unsigned /*size*/) {
    shiftLogs(filename, oldLogFiles);
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

void logger_detail::append(std::string& line, escaped_s part) {
    appendPrintable(part.text, longestEscapedText, &line);
}

void logLine(log_level_e level, std::string_view unit, std::string_view text) {
    if (!isLogLevelEnabled(level)) {
        return;
    }
    std::string joined = std::string(unit).append(text.substr(0, longestLine));
    if (text.size() > longestLine) {
        appendCutNote(text.size(), &joined);
    }
    writing.doOrLeave([&] { writeLine(level, joined); },
                      [&](left_line_s& left) {
                          left.level = level;
                          left.line = joined;
                      });
    tellMissing();
}
