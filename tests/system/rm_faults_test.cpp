// SPDX-License-Identifier: MIT
// A Reader Management server that is not there or answers wrongly: the daemon
// says what it could not learn, closes the radio and ends with status 0.
#include <gtest/gtest.h>

#include "support/reader.hpp"

namespace {

TEST(RmFaults, eachIsLoggedAndEndsTheStart) {
    struct case_s {
        const char* legend;
        bool server;
        std::vector<std::string> serverArguments;
        const char* log;
    };
    const char* const noModel = "ERROR rxe_intfc Cannot connect to RM to get Model\n";
    const case_s cases[] = {
        {"absent", false, {}, noModel},
        {"silent", true, {"--fault", "silent"}, noModel},
        {"closes without an answer", true, {"--fault", "close"}, noModel},
        {"garbage", true, {"--fault", "garbage"}, noModel},
        {"refuses beside the value",
         true,
         {"--fault", "result-code", "--fault-query", "getActiveRegion"},
         "ERROR rxe_intfc Cannot connect to RM to get regulatory standard\n"},
        {"knows no number of ports",
         true,
         {"--fault", "missing-value", "--fault-query", "getReaderDetails", "--fault-value", "NumPorts"},
         "ERROR rxe_intfc Cannot connect to RM to get Reader Details\n"},
        {"knows the first cable only",
         true,
         {"--fault", "truncated", "--fault-query", "getCableLossCompensation", "--fault-after", "1"},
         "ERROR rxe_intfc Cannot connect to RM to get Cable Loss Compensation\n"},
    };
    for (const case_s& row : cases) {
        SCOPED_TRACE(row.legend);
        const auto begin = std::chrono::steady_clock::now();
        reader_s reader({.serverArguments = row.serverArguments, .server = row.server, .awaitReady = false});
        EXPECT_EQ(reader.daemon->waitForExit(), 0);
        // A silent server has five seconds to speak.
        EXPECT_TRUE(row.legend != std::string("silent") ||
                    std::chrono::steady_clock::now() - begin >= std::chrono::seconds(5));
        const std::string log = reader.log();
        EXPECT_NE(log.find(row.log), std::string::npos) << log;
        EXPECT_TRUE(
            log.ends_with("ERROR main Failed to initiazlize rxe: 1 - is another application connected "
                          "to RXE (LLRP, TW)?\n"))
            << log;
    }
}

}  // namespace
