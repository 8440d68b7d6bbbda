// SPDX-License-Identifier: MIT
// An engine whose operations fail, one after the other and for good: the daemon
// ends and says so, or serves on and ends properly. The command reference plays
// those that only one command needs.
#include <gtest/gtest.h>

#include "support/reader.hpp"

namespace {

TEST(EngineFailures, eachEndsTheStartOrIsToldToWhoNeedsIt) {
    struct case_s {
        const char* operation;
        const char* end;      // of the log's last line, null when the daemon serves
        const char* refused;  // the replies that are no success, one a line
    };
    const case_s cases[] = {
        {"RXE_getAPIVerNum", "rxe: 77", ""},
        {"RXE_connect", "rxe: 77", ""},
        {"RXE_getParam", "rxe: 77", ""},
        {"RXE_setParam", "rxe: 1", ""},
        {"RXE_setNVMParam", "rxe: 77", ""},
        {"RXE_setCallback", "rxe: 1", ""},
        {"RXE_setParam2", "rxe: 1", ""},
        {"RXE_disconnect", nullptr, ""},
        {"RXE_formatPayloadToStruct", nullptr, ""},
        {"RXE_resume", nullptr, "Failure: Start currently ongoing. Issue a stop prior to issuing a start.\n"},
        {"RXE_resetDb", nullptr, "Failure: RXE_resetDb() returned error: 77\n"},
        {"RXE_stop", nullptr, "Failure\n"},
    };
    for (const case_s& row : cases) {
        SCOPED_TRACE(row.operation);
        const std::string failing =
            std::string(R"({"status": 77, "count": 0, "operation": ")") + row.operation;
        reader_s reader(
            {.scenario = R"({"failing": [)" + failing + "\"}]}", .awaitReady = row.end == nullptr});
        if (row.end != nullptr) {
            EXPECT_EQ(reader.daemon->waitForExit(), 0);
            EXPECT_TRUE(reader.log().ends_with(std::string("ERROR main Failed to initiazlize ") + row.end +
                                               " - is another application connected to RXE (LLRP, TW)?\n"))
                << reader.log();
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

}  // namespace
