// SPDX-License-Identifier: MIT
#include "requests.hpp"

#include <sys/timerfd.h>
#include <unistd.h>

#include <filesystem>

#include "ask.hpp"
#include "logger.hpp"
#include "radio_fixture.hpp"
#include "support/temp_dir.hpp"

namespace {

constexpr const char* running = "Failure: Start currently ongoing. Issue a stop prior to issuing a start.";

// What start and stop do to the engine, and the file that tells the next start.
TEST(Requests, startAndStop) {
    const temp_dir_s directory;
    std::filesystem::current_path(directory.path);
    const struct {
        const char* request;
        bool running;
        const char *failing, *reply, *calls, *autoStart;  // failing: the operation that answers 7
    } cases[] = {
        {" start\n", false, "", "Success", "resume resetDb start", "true"},
        {"start", true, "", running, "resume", "kept"},
        {"start", false, "resetDb", "Failure: RXE_resetDb() returned error: 7", "resume resetDb", "kept"},
        {"start", false, "start", "Failure: RXE_start() returned error: 7", "resume resetDb start", "kept"},
        {"start doNotPersistState", false, "", "Success", "resume resetDb start", "kept"},
        {"start now", false, "", "Failure: param not recognized", "", "kept"},
        {"start sim", false, "", "Failure: sim requires tps", "", "kept"},
        {"start sim 65537 more", true, "", "Success", "resetDb txFakeTags(1)", "kept"},
        {"start sim -1", true, "", "Success", "resetDb txFakeTags(65535)", "kept"},
        {"start sim five", true, "", "Success", "resetDb txFakeTags(0)", "kept"},
        {"start sim 12345678901234567890", true, "", "Success", "resetDb txFakeTags(65535)", "kept"},
        {"stop doNotPersistState", false, "", "Success", "stop", "false"},
        {"stop", true, "stop", "Failure", "stop", "kept"},
    };
    database_timer = timerfd_create(CLOCK_REALTIME, TFD_NONBLOCK);
    for (const auto& row : cases) {
        SCOPED_TRACE(std::string(row.request) + " failing " + row.failing);
        engine_double::reset();
        engine_double::setOngoing(row.running);
        engine_double::failOn(std::string("RXE_") + row.failing, -1, static_cast<RXE_API_STATUS>(7));
        const itimerspec hour{{0, 0}, {3600, 0}};
        timerfd_settime(database_timer, 0, &hour, nullptr);
        writeTextFile("autoStart.txt", "kept");
        EXPECT_EQ(ask(row.request), row.reply);
        EXPECT_EQ(engineCalls(), row.calls);
        EXPECT_EQ(readTextFile("autoStart.txt"), row.autoStart);
        itimerspec left = {};
        timerfd_gettime(database_timer, &left);
        EXPECT_EQ(left.it_value.tv_sec == 0, row.calls == std::string("resume resetDb start"))
            << "a start disarms the timer";
    }
}

// The wait loop with sockets of its own: a client, the radio side's news, the
// timer and the console.
class RequestLoop : public RadioTest {
  protected:
    RequestLoop() {
        responder = attach(ZMQ_REP, "inproc://requests", zmq_bind);
        client = attach(ZMQ_REQ, "inproc://requests", zmq_connect);
        main_from_radio_async = news;
        database_timer = timerfd_create(CLOCK_REALTIME, TFD_NONBLOCK);
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        EXPECT_EQ(dup2(ends[0], STDIN_FILENO), STDIN_FILENO);
        console = ends[1];
    }
    ~RequestLoop() override {
        zmq_close(responder);
        zmq_close(client);
    }

    static void* attach(int type, const char* endpoint, int (*how)(void*, const char*)) {
        void* socket = zmq_socket(context, type);
        EXPECT_EQ(how(socket, endpoint), 0);
        return socket;
    }

    void type(std::string_view text) const {
        ASSERT_EQ(write(console, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }

    // The next request, and where it came from in front of it.
    std::string next() {
        EXPECT_EQ(GetNextRequest(&msg, &request, true), 0);
        return std::to_string(msg.source) + " " + request;
    }

    static bool isReadable(void* socket) {
        zmq_pollitem_t item{socket, 0, ZMQ_POLLIN, 0};
        return zmq_poll(&item, 1, 0) > 0;
    }

    MSG_BUF msg{-1};
    std::string request;
    void* client = nullptr;
    int console = -1;
};

TEST_F(RequestLoop, takesConsoleLinesOneByOneAndEmptyOnesAtTheEnd) {
    type("start\nstop now\n\nunfinished");
    for (const char* line : {"0 start", "0 stop now", "0 "}) {
        EXPECT_EQ(next(), line);
    }
    close(console);
    for (const char* line : {"0 unfinished", "0 ", "0 "}) {
        EXPECT_EQ(next(), line);
    }
}

TEST_F(RequestLoop, takesOneMessageOfNewsAPassWithAllItsFrames) {
    sendNews("start_ack", "", 0);
    zmq_send(radio_to_main_async.handle, "alone", 5, 0);
    zmq_send(client, "first", 5, 0);
    EXPECT_EQ(next(), "1 first");
    std::string reply = "Success";
    SendReply(msg, &reply);
    char buffer[16] = {};
    EXPECT_EQ(zmq_recv(client, buffer, sizeof buffer, 0), 8);
    EXPECT_STREQ(buffer, "Success");
    EXPECT_TRUE(isReadable(main_from_radio_async));
    zmq_send(client, "second", 6, 0);
    EXPECT_EQ(next(), "1 second");
    EXPECT_FALSE(isReadable(main_from_radio_async));
}

// The console wins over a client in the same pass, and an expired timer is served too.
TEST_F(RequestLoop, servesAllThatWaitsInOnePass) {
    zmq_send(client, "status", 6, 0);
    const itimerspec now{{0, 0}, {0, 1}};
    ASSERT_EQ(timerfd_settime(database_timer, 0, &now, nullptr), 0);
    usleep(1'000);
    type("stop\n");
    EXPECT_EQ(next(), "0 stop");
    EXPECT_FALSE(isReadable(responder));
    std::uint64_t expiries = 0;
    EXPECT_EQ(read(database_timer, &expiries, sizeof expiries), -1) << "it has been read";
    EXPECT_EQ(getErrorCount(), 0U);
}

}  // namespace
