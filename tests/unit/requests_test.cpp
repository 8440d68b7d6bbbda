// SPDX-License-Identifier: MIT
#include "requests.hpp"

#include <sys/timerfd.h>
#include <unistd.h>

#include "ask.hpp"
#include "logger.hpp"
#include "radio_fixture.hpp"
#include "support/table.hpp"
#include "support/temp_dir.hpp"

namespace {

using requests::database_timer;

constexpr const char* running = "Failure: Start currently ongoing. Issue a stop prior to issuing a start.";

// What they do to the engine, and to the file that tells the next start. To turn the
// packet log on is to start it anew; what the engine refuses leaves its state as it was.
TEST(Requests, startStopAndLogging) {
    const temp_dir_s directory;
    std::filesystem::current_path(directory.path);
    // The request, whether the radio runs, the operation that answers 7, the reply, the
    // calls, and what then stands in the file.
    using std::string;
    const string turnOff = "disablePacketLogging", turnOn = turnOff + " enablePacketLogging logs/packet_log";
    const string notOn = "Failure: RXE_enablePacketLogging failed to enable logging";
    const string notOff = "Failure: RXE_disablePacketLogging failed to disable logging";
    const std::tuple<string, bool, string, string, string, string> cases[] = {
        {" start\n", false, "", "Success", "resume resetDb start", "true"},
        {"start", true, "", running, "resume", "kept"},
        {"start", false, "resume", running, "resume", "kept"},
        {"start", false, "resetDb", "Failure: RXE_resetDb() returned error: 7", "resume resetDb", "kept"},
        {"start", false, "start", "Failure: RXE_start() returned error: 7", "resume resetDb start", "kept"},
        {"start doNotPersistState", false, "", "Success", "resume resetDb start", "kept"},
        {"start sim 65537 more", true, "", "Success", "resetDb txFakeTags 0001", "kept"},
        {"start sim five", true, "", "Success", "resetDb txFakeTags", "kept"},
        {"start sim 12345678901234567890", true, "", "Success", "resetDb txFakeTags ffff", "kept"},
        {"stop doNotPersistState", false, "", "Success", "stop", "false"},
        {"stop", true, "stop", "Failure", "stop", "kept"},
        {"logging x radioPacketLog=ON", false, "disablePacketLogging", "Success", turnOn, "kept"},
        {"logging radioPacketLog=OFF", false, "disablePacketLogging", notOff, turnOff, "kept"},
        {"logging", false, "", "Success: radioPacketLog: ON", "", "kept"},
        {"logging radioPacketLog=OFF", false, "", "Success", turnOff, "kept"},
        {"logging radioPacketLog=ON", false, "enablePacketLogging", notOn, turnOn, "kept"},
        {"logging", false, "", "Success: radioPacketLog: OFF", "", "kept"},
    };
    database_timer = timerfd_create(CLOCK_REALTIME, TFD_NONBLOCK);
    for (const auto& [request, isRunning, failing, reply, called, autoStart] : cases) {
        SCOPED_TRACE(request + " failing " + failing);
        engine_double::reset();
        engine_double::setOngoing(isRunning);
        engine_double::failOn("RXE_" + failing, -1, 7);
        const itimerspec hour{{0, 0}, {3600, 0}};
        timerfd_settime(database_timer, 0, &hour, nullptr);
        writeTextFile("autoStart.txt", "kept");
        EXPECT_EQ(ask(request), reply);
        EXPECT_EQ(engineCalls(), called);
        EXPECT_EQ(readTextFile("autoStart.txt"), autoStart);
        itimerspec left = {};
        timerfd_gettime(database_timer, &left);
        EXPECT_EQ(left.it_value.tv_sec == 0, called == "resume resetDb start") << "a start disarms the timer";
    }
    std::filesystem::remove("autoStart.txt");
    std::filesystem::create_directory("autoStart.txt");
    EXPECT_EQ(ask("stop"), "Success");
    EXPECT_EQ(getErrorCount(), 0U);
}

// Parameters that no sound client sends. The right ones are played from the command
// reference.
TEST(BadInput, getsItsReplyAndChangesNothing) {
    engine_double::reset();
    const std::string settings = ask("events");
    for (const table_row_s& row : readRows("unit/bad_requests.txt")) {
        std::string request = row.left;
        std::string reply;  // of the radio thread's two commands, which are asked without it
        const bool radioSide = request.starts_with("subscribers") || request.starts_with("data_analytics");
        EXPECT_EQ(radioSide ? ProcessInternalRequest(&request, &reply) : 0, 0);
        EXPECT_EQ(radioSide ? reply : ask(request), row.right) << row.left;
    }
    EXPECT_EQ(ask("events \xFF"),
              "Failure: events request does not contain a valid json object: Received: \xFF");
    EXPECT_EQ(ask(R"(events {"heartbeat": {"period": 1, "stats": ["uptime", 1]}})", -1),
              "Failure: \"stats\" must be an array containing only strings");
    EXPECT_EQ(ask("events"), settings);
    EXPECT_THROW(ask("database_reset time=:30"), std::invalid_argument);
    EXPECT_THROW(ask("database_reset time=1:x"), std::invalid_argument);
    EXPECT_THROW(ask("database_reset time=123456789012345678901234567890:0"), std::out_of_range);
    EXPECT_EQ(getErrorCount(), 0U);
}

// The wait loop with sockets of its own: a client, the radio side's news, the
// timer and the console.
class RequestLoop : public RadioTest {
  protected:
    RequestLoop() {
        client = peerOf(&sockets::responder, ZMQ_REP, ZMQ_REQ);
        sockets::main_from_radio_async = news;
        database_timer = timerfd_create(CLOCK_REALTIME, TFD_NONBLOCK);
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        EXPECT_EQ(dup2(ends[0], STDIN_FILENO), STDIN_FILENO);
        console = ends[1];
    }

    void type(std::string_view text) const {
        ASSERT_EQ(write(console, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }

    // The next request, and where it came from in front of it.
    std::string next() {
        EXPECT_EQ(requests::GetNextRequest(&msg, &request, true), 0);
        return std::to_string(msg.source) + " " + request;
    }

    requests::MSG_BUF msg{-1};
    std::string request;
    void* client = nullptr;
    int console = -1;
};

TEST_F(RequestLoop, takesConsoleLinesOneByOneAndEmptyOnesAtTheEnd) {
    type("start\nstop now\n\nunfin");
    for (const char* line : {"0 start", "0 stop now", "0 "}) {
        EXPECT_EQ(next(), line);
    }
    zmq_send(client, "status", 6, 0);
    EXPECT_EQ(next(), "1 status") << "half a line keeps nobody waiting";
    type("ished");
    close(console);
    for (const char* line : {"0 unfinished", "0 ", "0 "}) {
        EXPECT_EQ(next(), line);
    }
}

TEST_F(RequestLoop, takesOneMessageOfNewsAPassWithAllItsFrames) {
    sendNews("start_ack", "", 0);
    zmq_send(sockets::radio_to_main_async.handle, "alone", 5, 0);
    zmq_send(client, "first", 5, 0);
    EXPECT_EQ(next(), "1 first");
    std::string reply = "Success";
    requests::SendReply(msg, &reply);
    EXPECT_EQ(received(client), (std::vector<message_t>{{std::string("Success", 8)}}));
    EXPECT_EQ(received(sockets::main_from_radio_async), (std::vector<message_t>{{"alone"}}));
}

// The console wins over a client in the same pass, and an expired timer is served too.
TEST_F(RequestLoop, servesAllThatWaitsInOnePass) {
    zmq_send(client, "status", 6, 0);
    const itimerspec now{{0, 0}, {0, 1}};
    ASSERT_EQ(timerfd_settime(database_timer, 0, &now, nullptr), 0);
    usleep(1'000);
    type("stop\n");
    EXPECT_EQ(next(), "0 stop");
    EXPECT_TRUE(received(sockets::responder).empty());
    std::uint64_t expiries = 0;
    EXPECT_EQ(read(database_timer, &expiries, sizeof expiries), -1) << "it has been read";
    EXPECT_EQ(getErrorCount(), 0U);
}

}  // namespace
