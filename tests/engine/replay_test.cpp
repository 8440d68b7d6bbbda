// SPDX-License-Identifier: MIT
// Packet logs played back in place of the radio.
#include <gmock/gmock.h>

#include "radio.hpp"

namespace {

class Replay : public Radio {
  protected:
    const std::string path = directory / "packets.log";

    // Two runs into the log; what they delivered, run by run. `keys`: more of the scenario.
    std::vector<std::vector<packet_s>> record(const std::string& clock, const std::string& keys = "") {
        unsetenv("RXE_REPLAY");
        EXPECT_EQ(connect(R"({"tags": {"count": 5}, "clock": ")" + clock + '"' + keys + "}"), RXE_OK);
        enable({RXE_PACKET_PA_TEMP_CRIT_ALARM});
        EXPECT_EQ(RXE_enablePacketLogging(path.c_str()), RXE_OK);
        std::vector<std::vector<packet_s>> runs;
        for (const std::uint32_t milliseconds : {400, 200}) {
            run({olio(1, 2, 100)}, stopRecord(milliseconds, 0));
            runs.push_back(packets);
        }
        EXPECT_EQ(RXE_disconnect(), RXE_OK);
        return runs;
    }
    RXE_API_STATUS replay(const char* speed, const std::string& scenario = "{}") {
        setenv("RXE_REPLAY", path.c_str(), 1);
        setenv("RXE_REPLAY_SPEED", speed, 1);
        return connect(scenario);
    }
};

TEST_F(Replay, EachStartPlaysTheNextRun) {
    const std::string happenings = R"(, "temperatures": {"pa": 120},
        "events": [{"at": 0.1, "event": "error", "text": "made up"}])";
    const auto recorded = record("fast", happenings);
    EXPECT_EQ(std::ranges::count(recorded[0], RXE_PACKET_ERROR_LOG, &packet_s::type), 1);
    EXPECT_EQ(std::ranges::count(recorded[0], RXE_PACKET_PA_TEMP_CRIT_ALARM, &packet_s::type), 1);
    ASSERT_EQ(replay("fast"), RXE_OK);
    for (const std::size_t which : {0, 1, 0}) {
        const auto begin = std::chrono::steady_clock::now();
        run();
        EXPECT_EQ(packets, recorded[which]);
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(200));
        EXPECT_EQ(RXE_stop(), RXE_OK);
        EXPECT_EQ(RXE_resume(), RXE_NO_START_ONGOING);
    }
    ASSERT_EQ(RXE_disconnect(), RXE_OK);
    ASSERT_EQ(replay("original", R"({"clock": "fast")" + happenings + "}"), RXE_OK);
    enable({RXE_PACKET_PA_TEMP_CRIT_ALARM});
    run();
    EXPECT_EQ(packets, recorded[0]) << "nothing happens beside the log";
}

TEST_F(Replay, KeepsTheTimesOfTheLogAndStopsForTheHost) {
    const auto recorded = record("real");
    ASSERT_EQ(replay("original"), RXE_OK);
    enable({RXE_PACKET_START_INFO3});
    const auto begin = std::chrono::steady_clock::now();
    run();
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - begin;
    EXPECT_EQ(packets, recorded[0]);
    EXPECT_NEAR(seconds.count(), 0.4, 0.15);
    packets.clear();
    ASSERT_EQ(RXE_start(), RXE_OK);
    ASSERT_TRUE(waitFor([] { return count(RXE_PACKET_TAG_INFO_CUSTOM) > 0; }));
    ASSERT_EQ(RXE_stop(), RXE_OK);
    EXPECT_LT(packets.size(), recorded[1].size());
    EXPECT_EQ(packets.back().type, RXE_PACKET_END_OF_RUN);
    EXPECT_EQ(recordsOf<START_INFO_s>(RXE_PACKET_START_INFO3).at(0).stopCause, 1);
}

TEST_F(Replay, BrokenFilesAreRefused) {
    record("fast");
    const std::string good = readTextFile(path);
    const auto changed = [&](std::size_t at, const std::string& bytes) {
        std::string log = good;
        return log.replace(at, bytes.size(), bytes);
    };
    const struct {
        const char* legend;
        std::string content;
        const char* line;
    } cases[] = {
        {"empty", "", "is not a packet log"},
        {"another kind of file", changed(0, "{"), "is not a packet log"},
        {"half a header", good.substr(0, 23), "is not a packet log"},
        {"a version from later on", changed(8, "\x02"), "has version 2, which is not known"},
        {"nothing but the header", good.substr(0, 24), "holds no packets"},
        {"ends in a record's head", good.substr(0, 30), "at byte 24: the file ends within a packet"},
        {"ends in a payload", good.substr(0, good.size() - 1), "the file ends within a packet"},
        {"a payload that is too long", changed(34, "\xFF\x20") + std::string(9000, '\0'),
         "at byte 24: a packet of"},
        {"time that goes backwards", changed(31, "\x7F"), "the time goes backwards"},
        {"time below zero", changed(31, "\xFF"), "at byte 24: the time goes backwards"},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.legend);
        writeTextFile(path, row.content);
        testing::internal::CaptureStderr();
        EXPECT_EQ(replay("fast"), 11);
        const std::string line = testing::internal::GetCapturedStderr();
        EXPECT_THAT(line, testing::AllOf(testing::HasSubstr(path + ": "), testing::HasSubstr(row.line)));
    }
    writeTextFile(path, good);
    EXPECT_EQ(replay("slow"), 11);
    EXPECT_EQ(replay(""), RXE_OK);
}

}  // namespace
