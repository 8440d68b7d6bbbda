// SPDX-License-Identifier: MIT
// A Reader Management server that does not answer: the daemon ends and says so.
#include <gtest/gtest.h>

#include "support/reader.hpp"

namespace {

TEST(FailedStart, withoutAnAnswerOfTheServer) {
    for (const bool silent : {false, true}) {
        const auto begin = std::chrono::steady_clock::now();
        reader_s reader({.serverArguments = {"--fault", "silent"}, .server = silent, .awaitReady = false});
        EXPECT_EQ(reader.daemon->waitForExit(), 0);
        const bool waited = std::chrono::steady_clock::now() - begin >= std::chrono::seconds(5);
        EXPECT_EQ(waited, silent) << "a silent server has five seconds to speak";
        const std::string log = reader.log();
        EXPECT_NE(log.find("ERROR rxe_intfc Cannot connect to RM to get Model\n"), log.npos);
        EXPECT_NE(log.find("ERROR main Failed to initiazlize rxe: 1 - is another application "
                           "connected to RXE (LLRP, TW)?\n"),
                  log.npos);
        const std::string server = "ERROR main the cause: the Reader Management server at 127.0.0.1:50009 ";
        EXPECT_TRUE(log.ends_with(server + (silent ? "gave no answer: nothing came within 5 s\n"
                                                   : "cannot be reached: Connection refused\n")))
            << log;
    }
}

}  // namespace
