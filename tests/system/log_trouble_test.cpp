// SPDX-License-Identifier: MIT
// A log file that cannot be written: the daemon works all the same.
#include <gtest/gtest.h>

#include "support/reader.hpp"

namespace {

TEST(LogTrouble, leavesTheDaemonAtWork) {
    struct case_s {
        const char* legend;
        void (*prepare)(const std::filesystem::path& directory);
    };
    const case_s cases[] = {
        {"no room",
         [](const auto& directory) {
             std::filesystem::create_symlink("/dev/full", directory / "tarnwick.log");
         }},
        {"a folder in its place",
         [](const auto& directory) { std::filesystem::create_directory(directory / "tarnwick.log"); }},
    };
    for (const case_s& row : cases) {
        SCOPED_TRACE(row.legend);
        reader_s reader({.arguments = {"--no_rxe", "-v"}, .server = false, .prepare = row.prepare});
        for (int i = 0; i < 300; ++i) {  // past the flush threshold
            ASSERT_EQ(ask("data_analytics"), "Success: data_analytics OFF");
        }
        EXPECT_EQ(reader.exit(), 0);
        EXPECT_FALSE(std::filesystem::exists(replyFile));
    }
}

}  // namespace
