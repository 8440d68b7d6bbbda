// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "twctl/peer.hpp"

using namespace std::string_literals;

TEST(Requests, AReplyDecidesOutputAndExitStatus) {
    struct case_s {
        const char* legend;
        std::vector<std::string> words;
        std::string request, reply, output;
        int status;
    };
    const case_s cases[] = {
        {"success, without the terminating NUL", {"start"}, "start", "Success\0"s, "Success\n", 0},
        {"words joined by blanks", {"start", "sim", "10"}, "start sim 10", "Success\0"s, "Success\n", 0},
        {"options behind the first word are words",
         {"error", "--timeout", "-1", "--help"},
         "error --timeout -1 --help",
         "Success\0"s,
         "Success\n",
         0},
        {"a bare failure", {"stop"}, "stop", "Failure\0"s, "Failure\n", 1},
        {"a failure with its reason", {"x"}, "x", "Failure: no\0"s, "Failure: no\n", 1},
        {"several lines, and a failure only later",
         {"y"},
         "y",
         "Success:\nFailure\0"s,
         "Success:\nFailure\n",
         0},
        {"neither success nor failure, no NUL", {"z"}, "z", "something", "something\n", 0},
        {"an empty request", {""}, "", "Failure: No Command\0"s, "Failure: No Command\n", 1},
    };
    const peer_s peer(ZMQ_REP);
    ASSERT_EQ(zmq_bind(peer.socket, peer.endpoint.c_str()), 0);
    for (const case_s& row : cases) {
        SCOPED_TRACE(row.legend);
        std::vector<std::string> arguments{"request", "--endpoint", peer.endpoint};
        arguments.insert(arguments.end(), row.words.begin(), row.words.end());
        process_s client(twctlProgram, {arguments, {}, {}});
        EXPECT_EQ(peer.receive(), row.request);
        peer.send(row.reply);
        EXPECT_EQ(client.waitForExit(), row.status);
        EXPECT_EQ(client.output(), row.output);
    }
}

TEST(Requests, SilenceIsTwoAndMisuseIsThree) {
    const peer_s peer(ZMQ_REP);
    ASSERT_EQ(zmq_bind(peer.socket, peer.endpoint.c_str()), 0);
    struct case_s {
        const char* legend;
        std::vector<std::string> arguments;
        int status;
        const char* output;  // a part of it
    };
    const case_s cases[] = {
        {"a daemon that does not reply",
         {"request", "--endpoint", peer.endpoint, "--timeout", "0.2", "start"},
         2,
         "no reply within 0.2 s"},
        {"no daemon at all",
         {"request", "--endpoint", peer.endpoint + "-absent", "--timeout", "0.2", "start"},
         2,
         "is the daemon running?"},
        {"no words", {"request"}, 3, "WORDS is required"},
        {"a mistyped option is no request", {"request", "--timeot", "1", "start"}, 3, "--timeot"},
        {"an unknown subcommand", {"ask"}, 3, "subcommand"},
        {"no such transport", {"request", "--endpoint", "nonsense", "start"}, 3, "nonsense"},
    };
    for (const case_s& row : cases) {
        SCOPED_TRACE(row.legend);
        process_s client(twctlProgram, {row.arguments, {}, {}});
        EXPECT_EQ(client.waitForExit(), row.status);
        EXPECT_THAT(client.output(), testing::HasSubstr(row.output));
    }
}
