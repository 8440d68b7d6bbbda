// SPDX-License-Identifier: MIT
// An engine whose operations fail, one after the other and for good, and a Reader
// Management server that does not answer: the daemon ends and says so, or serves on and
// ends properly. The command reference plays what only one command needs.
#include <gtest/gtest.h>

#include "support/reader.hpp"

namespace {

// Waits for the daemon's end, and checks its last words.
void expectEndBy(reader_s* reader, const std::string& status) {
    EXPECT_EQ(reader->daemon->waitForExit(), 0);
    EXPECT_TRUE(reader->log().ends_with("ERROR main Failed to initiazlize rxe: " + status +
                                        " - is another application connected to RXE (LLRP, TW)?\n"))
        << reader->log();
}

TEST(FailedStart, ofAnEngineIsToldToWhoNeedsIt) {
    const struct {
        const char* operation;
        const char* status;   // at the daemon's end, null when it serves
        const char* refused;  // the replies that are no success, one a line
    } cases[] = {
        {"RXE_connect", "77", ""},
        {"RXE_getParam", "77", ""},
        {"RXE_setParam2", "1", ""},
        {"RXE_disconnect", nullptr, ""},
        {"RXE_formatPayloadToStruct", nullptr, ""},
        {"RXE_resume", nullptr, "Failure: Start currently ongoing. Issue a stop prior to issuing a start.\n"},
        {"RXE_resetDb", nullptr, "Failure: RXE_resetDb() returned error: 77\n"},
        {"RXE_stop", nullptr, "Failure\n"},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.operation);
        const std::string failing = R"({"failing": [{"status": 77, "count": 0, "operation": ")";
        reader_s reader({.scenario = failing + row.operation + "\"}]}", .awaitReady = row.status == nullptr});
        if (row.status != nullptr) {
            expectEndBy(&reader, row.status);
            continue;
        }
        std::string refused;
        for (const char* request : {"start", "status", "stop", R"(mode {"type": "INVENTORY"})"}) {
            const std::string reply = ask(request);
            refused += reply.starts_with("Success") ? "" : reply + "\n";
        }
        EXPECT_EQ(refused, row.refused);
        EXPECT_EQ(reader.exit(), 0);
        EXPECT_TRUE(reader.log().ends_with("main goodbye\n"));
    }
}

TEST(FailedStart, withoutAnAnswerOfTheServer) {
    for (const bool silent : {false, true}) {
        const auto begin = std::chrono::steady_clock::now();
        reader_s reader({.serverArguments = {"--fault", "silent"}, .server = silent, .awaitReady = false});
        expectEndBy(&reader, "1");
        const bool waited = std::chrono::steady_clock::now() - begin >= std::chrono::seconds(5);
        EXPECT_EQ(waited, silent) << "a silent server has five seconds to speak";
        EXPECT_NE(reader.log().find("ERROR rxe_intfc Cannot connect to RM to get Model\n"),
                  std::string::npos);
    }
}

}  // namespace
