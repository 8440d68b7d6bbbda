// SPDX-License-Identifier: MIT
// An engine whose operations fail for good, one after the other: the daemon serves on and
// ends properly. A Reader Management server that does not answer: it ends and says so. The
// command reference plays what only one command needs.
#include <gtest/gtest.h>

#include "support/reader.hpp"

namespace {

TEST(FailedStart, ofAnEngineIsToldToWhoNeedsIt) {
    // The operation, and the replies that are not a success.
    const std::pair<std::string, std::string> cases[] = {
        {"RXE_disconnect", ""},
        {"RXE_formatPayloadToStruct", ""},
        {"RXE_resume", "Failure: Start currently ongoing. Issue a stop prior to issuing a start.\n"},
        {"RXE_resetDb", "Failure: RXE_resetDb() returned error: 77\n"},
        {"RXE_stop", "Failure\n"},
    };
    for (const auto& [operation, expected] : cases) {
        SCOPED_TRACE(operation);
        const std::string failing = R"({"failing": [{"status": 77, "count": 0, "operation": ")";
        reader_s reader({.scenario = failing + operation + "\"}]}"});
        std::string refused;
        for (const char* request : {"start", "status", "stop", R"(mode {"type": "INVENTORY"})"}) {
            const std::string reply = ask(request);
            refused += reply.starts_with("Success") ? "" : reply + "\n";
        }
        EXPECT_EQ(refused, expected);
        EXPECT_EQ(reader.exit(), 0);
        EXPECT_TRUE(reader.log().ends_with("main goodbye\n"));
    }
}

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
