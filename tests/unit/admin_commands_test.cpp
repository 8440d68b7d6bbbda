// SPDX-License-Identifier: MIT
// Parameters that no sound client sends. The right ones are played from the
// command reference.
#include <gmock/gmock.h>

#include <fstream>
#include <stdexcept>

#include "ask.hpp"
#include "logger.hpp"
#include "radio.hpp"

namespace {

TEST(BadInput, getsItsReplyAndChangesNothing) {
    engine_double::reset();
    const std::string settings = ask("events");
    std::ifstream lines(TARNWICK_SOURCE_DIR "/tests/unit/bad_requests.txt");
    int count = 0;
    for (std::string line; std::getline(lines, line);) {
        const std::size_t arrow = line.find(" => ");
        if (line.starts_with('#') || arrow == line.npos) {
            continue;
        }
        ++count;
        const std::string blank = "·";
        if (line.ends_with(blank)) {
            line.replace(line.size() - blank.size(), blank.size(), " ");
        }
        std::string request = line.substr(0, arrow);
        std::string reply;  // of the radio thread's two commands, which are asked without it
        const bool radioSide = request.starts_with("subscribers") || request.starts_with("data_analytics");
        EXPECT_EQ(radioSide ? ProcessInternalRequest(&request, &reply) : 0, 0);
        EXPECT_EQ(radioSide ? reply : ask(request), line.substr(arrow + 4)) << line;
    }
    EXPECT_GE(count, 40);
    EXPECT_EQ(ask("events"), settings);
    EXPECT_EQ(ask("events \xFF"),
              "Failure: events request does not contain a valid json object: Received: \xFF");
    EXPECT_EQ(ask(R"(events {"heartbeat": {"period": 1, "stats": ["uptime", 1]}})", -1),
              "Failure: \"stats\" must be an array containing only strings");
    EXPECT_EQ(ask("events"), settings);
    for (const char* time : {":30", "\xD9\xA3:1", "1:x"}) {
        EXPECT_THROW(ask(std::string("database_reset time=") + time), std::invalid_argument) << time;
    }
    EXPECT_THROW(ask("database_reset time=123456789012345678901234567890:0"), std::out_of_range);
    EXPECT_EQ(getErrorCount(), 0U);
}

TEST(BadInput, tenThousandUnknownStats) {
    std::string request = "status";
    std::string reply = "Success: {";
    for (int i = 0; i < 10'000; ++i) {
        request += " stat" + std::to_string(i);
        reply += (i == 0 ? "\"stat" : ", \"stat") + std::to_string(i) + R"(": "unknown param")";
    }
    EXPECT_EQ(ask(request), reply + "}");
}

}  // namespace
