// SPDX-License-Identifier: MIT
#include "logger.hpp"

#include <gmock/gmock.h>
#include <sys/resource.h>

#include <algorithm>
#include <csignal>
#include <regex>
#include <thread>

#include "support/temp_dir.hpp"
#include "util.hpp"
#include "versions.hpp"

namespace {

using testing::HasSubstr;

void writeLines(const std::string& text, int count) {
    for (int i = 0; i < count; ++i) {
        logInfo("logger", " ", text);
    }
}

TEST(Logger, WritesTextAsItIs) {
    const temp_dir_s directory;
    std::filesystem::current_path(directory.path);
    logCountedError("early", " before the configuration");
    init_app_version_string();
    writeTextFile("tarnwick.log", "whole\ncut");  // by a kill
    configureLogs(false, false);
    const std::string odd("%d %s %msg %datetime {} \n\0 end", 30);
    logCountedWarning("unit", " <", odd, "> ", std::uint8_t{7}, 'c');
    logInfo("unit", std::string(20'000, 'x'));
    logUncountedError("unit", " takes what waits along");
    logDebug("unit", " not written");
    std::string log = readTextFile("tarnwick.log");
    ASSERT_THAT(log, testing::StartsWith("whole\ncut\n"));
    log.erase(0, 10);
    EXPECT_THAT(
        log.substr(0, log.find('\n')),
        testing::MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}Z INFO "
                              "tarnwick: 0\\.2\\.58\\.12"));
    EXPECT_THAT(log, HasSubstr(" WARNING unit <" + odd + "> 7c\n"));
    EXPECT_THAT(log, HasSubstr("xxx... (cut, 20000 bytes in all)\n"));
    EXPECT_THAT(log, testing::EndsWith(" takes what waits along\n"));
    EXPECT_EQ(getErrorCount(), 1U);
    EXPECT_EQ(getWarningCount(), 1U);
}

TEST(Logger, RotatesAtItsLimitAndKeepsFiveOldFiles) {
    const temp_dir_s directory;
    std::filesystem::current_path(directory.path);
    for (const char* suffix : {".1", ".3", ".4", ".5"}) {
        writeTextFile("tarnwick.log" + std::string(suffix), "old" + std::string(suffix));
    }
    // As a process leaves it that is killed while it rotates; the next start fills the gap.
    const std::string full(5242880, 'f');
    writeTextFile("tarnwick.log", full);
    configureLogs(false, true);
    EXPECT_EQ(readTextFile("tarnwick.log.1"), full);
    EXPECT_EQ(readTextFile("tarnwick.log.2"), "old.1");
    EXPECT_EQ(readTextFile("tarnwick.log.3"), "old.3");
    EXPECT_TRUE(isLogLevelEnabled(log_level_e::debug));
    std::thread other([] { writeLines(std::string(1000, 'x'), 3000); });
    writeLines(std::string(1000, 'x'), 3000);
    other.join();
    EXPECT_GE(std::filesystem::file_size("tarnwick.log.1"), 5242880U);
    EXPECT_LT(std::filesystem::file_size("tarnwick.log.1"), 5242880U + 10'000);
    EXPECT_EQ(readTextFile("tarnwick.log.3"), "old.1");
    EXPECT_EQ(readTextFile("tarnwick.log.5"), "old.4");
}

// Nothing is turned meanwhile, and what then stands there are whole lines, each once.
TEST(Logger, ComesBackWhenTheDiskHasRoomAgain) {
    const temp_dir_s directory;
    std::filesystem::current_path(directory.path);
    writeTextFile("tarnwick.log.1", "old.1");
    signal(SIGXFSZ, SIG_IGN);
    configureLogs(false, false);
    const rlimit full{20000, RLIM_INFINITY};  // no file may grow past this
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &full), 0);
    writeLines(std::string(100, 'f'), 1000);
    logUncountedWarning("logger", " disk full");
    EXPECT_LE(std::filesystem::file_size("tarnwick.log"), 20000U);
    const rlimit room{RLIM_INFINITY, RLIM_INFINITY};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &room), 0);
    logUncountedWarning("logger", " room again");
    const std::string log = readTextFile("tarnwick.log");
    EXPECT_THAT(log, testing::ContainsRegex("WARNING logger disk full\n.* WARNING logger room again\n"
                                            ".* WARNING logger the log file could not be written: [0-9]+ "
                                            "lines are missing\n$"));
    std::vector<std::string> lines = split(log.c_str(), '\n');
    const std::regex whole("[^ ]{24} (INFO|WARNING) (logger .*)?");
    EXPECT_TRUE(std::ranges::all_of(lines, [&](auto& line) { return std::regex_match(line, whole); })) << log;
    EXPECT_EQ(readTextFile("tarnwick.log.1"), "old.1");
}

TEST(Logger, ComesWhenItsFileCanBeOpenedAfterTheStart) {
    const temp_dir_s directory;
    std::filesystem::current_path(directory.path);
    std::filesystem::create_directory("tarnwick.log");
    configureLogs(false, false);
    logUncountedWarning("logger", " no file");
    std::filesystem::remove("tarnwick.log");
    writeLines(std::string(1000, 'x'), 5300);
    EXPECT_THAT(readTextFile("tarnwick.log.1"), HasSubstr(" WARNING logger no file\n"));
    EXPECT_LT(std::filesystem::file_size("tarnwick.log"), 5242880U);
}

}  // namespace
