// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>

#include "additional_config.hpp"
#include "requests.hpp"
#include "support/engine_double.hpp"

namespace {

std::string ask(std::string request) {
    std::string reply = "left over";
    EXPECT_EQ(ProcessRequest(&request, &reply), 0);
    return reply;
}

TEST(AdminCommands, answerOneByOne) {
    struct case_s {
        const char *request, *failing, *reply;  // the engine operation that answers 7; empty for none
    };
    const case_s cases[] = {
        {"test", "", "Success"},
        {"version", "", "Success:\ntarnwick: 0.2.58.12,,,zmq: 4.3.4"},
        {"error", "", "Failure: error requires at least 1 param"},
        {"error log", "", "Failure: error requires at least 1 param - string \"radioErrorLog\""},
        {"error radioErrorLog", "", "Success: radioErrorLog added to TW error log"},
        {"error radioErrorLog", "RXE_getErr", "Failure: could not radioErrorLog"},
        {"tag_info", "", "Failure: tagInfo database disabled"},
        {"tag_info x", "", "Failure: tagInfo supported commands are: tag_info or tag_info v | verbose"},
        {"tag_info v v", "", "Failure: tagInfo supported commands are: tag_info or tag_info v | verbose"},
        {"peak_threshold 12", "", "Success: "},
        {"peak_threshold", "", "Success: peak_threshold 12"},
        {"peak_threshold 13", "", "Failure: peak_threshold 13 requires a value between 0 and 12 as param"},
        {"peak_threshold -1", "", "Failure: peak_threshold -1 requires a value between 0 and 12 as param"},
        {"peak_threshold 258", "", "Success: "},
        {"peak_threshold", "", "Success: peak_threshold 2"},
        {"peak_threshold two", "", "Failure: peak_threshold two requires a numeric value as param"},
        {"peak_threshold 2147483648", "",
         "Failure: peak_threshold 2147483648 requires a numeric value as param"},
        {"peak_threshold 1 2", "", "Failure: peak_threshold 1 2 requires at most 1 param"},
        {"peak_threshold", "RXE_getParam", "Failure: Failed to get peak threshold"},
        {"peak_threshold 3", "RXE_setParam2", "Failure: Failed to set peak threshold to 3 error 0x0007"},
        {"database_reset", "", "Success: time: 00:00"},
        {"database_reset now time=1:2", "", "Success: time: 01:02"},
        {"database_reset now", "", "Success: "},
        {"database_reset time=12", "",
         "Failure: database_reset time must be of the form HH:MM (received 12)"},
        {"database_reset time=24:00", "",
         "Failure: database_reset time hours must be less than 24 (received 24)"},
        {"database_reset time=23:60", "",
         "Failure: database_reset time minutes must be less than 60 (received 60)"},
        {"database_reset", "", "Success: time: 01:02"},
    };
    engine_double::reset();
    init_app_version_string();
    set_zmq_version_string(4, 3, 4);
    for (const case_s& row : cases) {
        SCOPED_TRACE(row.request);
        std::uint8_t kept = 0;
        RXE_getParam(RXE_PARAM_PEAK_THRESHOLD, &kept);
        engine_double::reset();
        RXE_setParam(RXE_PARAM_PEAK_THRESHOLD, &kept);
        engine_double::failOn(row.failing, -1, static_cast<RXE_API_STATUS>(7));
        EXPECT_EQ(ask(row.request), row.reply);
    }
    EXPECT_THROW(ask("database_reset time=:30"), std::invalid_argument) << "nobody catches it";
}

TEST(AdminCommands, tagInfoTellsHowManyKeysThereAre) {
    setAddlKeysFilterConfig(false, 1.0F, 100);
    report_line("3034", {.seconds = 1, .microseconds = 0});
    EXPECT_EQ(ask("tag_info"), "Success: Current Tag Info DB Size : 1");
    EXPECT_NE(ask("tag_info verbose").find("3034"), std::string::npos);
}

TEST(AdminCommands, helpListsEveryCommandWithItsLine) {
    const std::string help = ask("help");
    EXPECT_NE(help.find("test\n\nversion\nReturns the version information\n"), std::string::npos);
    EXPECT_EQ(help.rfind("Success:\n", 0), 0U);
    EXPECT_EQ(static_cast<std::size_t>(std::count(help.begin(), help.end(), '\n')), 1 + 2 * nCommands);
}

}  // namespace
