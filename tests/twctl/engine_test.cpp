// SPDX-License-Identifier: MIT
// "twctl engine" against the control socket that the test plays, and against a
// daemon with the software engine.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/reader.hpp"
#include "twctl/peer.hpp"

using testing::HasSubstr;

TEST(EngineEvents, WordsGoOutAndTheAnswerDecides) {
    const peer_s peer(ZMQ_REP);
    ASSERT_EQ(zmq_bind(peer.socket, peer.endpoint.c_str()), 0);
    struct case_s {
        std::vector<std::string> words;
        std::string message, answer, output;
        int status;
    };
    const case_s cases[] = {
        {{"gpi", "1", "high"}, "gpi 1 high", "ok", "ok\n", 0},
        {{R"({"event": "fault"})"}, R"({"event": "fault"})", "ok", "ok\n", 0},
        {{"move", "AA01", "0,-1,2"}, "move AA01 0,-1,2", "\"epc\" is wrong", "\"epc\" is wrong\n", 1},
        {{"leave"}, "leave", "okay", "okay\n", 1},
    };
    for (const case_s& row : cases) {
        SCOPED_TRACE(row.message);
        std::vector<std::string> arguments{"engine", "--endpoint", peer.endpoint};
        arguments.insert(arguments.end(), row.words.begin(), row.words.end());
        process_s client(twctlProgram, {arguments, {}, {}});
        EXPECT_EQ(peer.receive(), row.message);
        peer.send(row.answer);
        EXPECT_EQ(client.waitForExit(), row.status);
        EXPECT_EQ(client.output(), row.output);
    }
    process_s alone(
        twctlProgram,
        {{"engine", "--endpoint", peer.endpoint + "-absent", "--timeout", "0.2", "fault"}, {}, {}});
    EXPECT_EQ(alone.waitForExit(), 2);
    EXPECT_THAT(alone.output(), HasSubstr("is the daemon running with the software engine?"));
    process_s none(twctlProgram, {{"engine"}, {}, {}});
    EXPECT_EQ(none.waitForExit(), 3);
}

TEST(EngineEvents, ReachTheRadioUnderTheDaemon) {
    const consumer_s lines(gpioLedEndpoint);
    reader_s reader;
    lines.waitForPublisher();
    const auto run = [](std::vector<std::string> words) {
        words.insert(words.begin(), "engine");
        process_s client(twctlProgram, {words, {}, {}});
        const auto status = client.waitForExit();
        return std::to_string(status.value_or(-1)) + ' ' + client.output();
    };
    EXPECT_EQ(run({"gpi", "2", "high"}), "0 ok\n");
    EXPECT_THAT(lines.receive().value_or(frames_t{"nothing"}).front(), HasSubstr("GPI_2_H"));
    EXPECT_THAT(run({"gpi", "9", "high"}), HasSubstr("1 \"port\" must be a whole number from 1 to 4"));
    EXPECT_EQ(run({"fail", "RXE_start", "77"}), "0 ok\n");
    EXPECT_THAT(ask("start"), HasSubstr("77"));
    EXPECT_EQ(reader.exit(), 0);
}
