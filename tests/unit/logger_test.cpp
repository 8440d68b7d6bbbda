// SPDX-License-Identifier: MIT
#include "logger.hpp"

#include <gmock/gmock.h>
#include <sys/resource.h>

#include <csignal>
#include <thread>

#include "requests.hpp"
#include "support/temp_dir.hpp"

namespace {

using testing::HasSubstr;

// 200 lines of one level, so that the library flushes what it holds twice.
void writeLines(const std::string& text, int count = 200) {
    for (int i = 0; i < count; ++i) {
        logInfo("logger", " ", text);
    }
}

TEST(Logger, WritesTextAsItIs) {
    const temp_dir_s directory;
    std::filesystem::current_path(directory.path);
    logCountedError("early", " before the configuration");
    init_app_version_string();
    configureLogs(false, false);
    const std::string odd("%d %s %msg %datetime {} \n\0 end", 30);
    logCountedWarning("unit", " <", odd, "> ", std::uint8_t{7}, 'c');
    logDebug("unit", " not written");
    writeLines("filler");
    const std::string log = readTextFile("tarnwick.log");
    EXPECT_THAT(
        log.substr(0, log.find('\n')),
        testing::MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}Z INFO "
                              "tarnwick: 0\\.2\\.58\\.12"));
    EXPECT_THAT(log, HasSubstr(" WARNING unit <" + odd + "> 7c\n"));
    EXPECT_EQ(log.find("not written"), std::string::npos);
    EXPECT_EQ(getErrorCount(), 1U);
    EXPECT_EQ(getWarningCount(), 1U);
}

TEST(Logger, RotatesAtItsLimitAndKeepsFiveOldFiles) {
    const temp_dir_s directory;
    std::filesystem::current_path(directory.path);
    for (const char* suffix : {".1", ".2", ".3", ".4", ".5"}) {
        writeTextFile("tarnwick.log" + std::string(suffix), "old" + std::string(suffix));
    }
    configureLogs(false, true);
    EXPECT_TRUE(isLogLevelEnabled(log_level_e::debug));
    std::thread other([] { writeLines(std::string(1000, 'x'), 3000); });
    writeLines(std::string(1000, 'x'), 3000);
    other.join();
    EXPECT_GE(std::filesystem::file_size("tarnwick.log.1"), 5242880U);
    EXPECT_LT(std::filesystem::file_size("tarnwick.log.1"), 5242880U + 100 * 1100);
    EXPECT_EQ(readTextFile("tarnwick.log.2"), "old.1");
    EXPECT_EQ(readTextFile("tarnwick.log.5"), "old.4");
}

TEST(Logger, ComesBackWhenTheDiskHasRoomAgain) {
    const temp_dir_s directory;
    std::filesystem::current_path(directory.path);
    signal(SIGXFSZ, SIG_IGN);
    configureLogs(false, false);
    const rlimit full{20000, RLIM_INFINITY};  // no file may grow past this
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &full), 0);
    writeLines(std::string(100, 'f'), 1000);
    EXPECT_LE(std::filesystem::file_size("tarnwick.log"), 20000U);
    const rlimit room{RLIM_INFINITY, RLIM_INFINITY};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &room), 0);
    writeLines("room again", 300);
    EXPECT_THAT(readTextFile("tarnwick.log"), HasSubstr(" INFO logger room again\n"));
}

}  // namespace
