// SPDX-License-Identifier: MIT
#include "requests.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/timerfd.h>
#include <unistd.h>
#include <zmq.h>

#include <filesystem>

#include "logger.hpp"
#include "support/engine_double.hpp"
#include "support/temp_dir.hpp"
#include "zmq_intfc.hpp"

namespace {

// The engine calls since the last reset as one text.
std::string engineCalls() {
    std::string names;
    for (const engine_double::call_s& call : engine_double::calls()) {
        names += (names.empty() ? "" : " ") + call.name;
        if (call.name == "RXE_txFakeTags") {
            names += "(" + std::to_string(call.id) + ")";
        }
    }
    return names;
}

TEST(Requests, eachGetsOneReplyAndDoesWhatItSaysToTheEngine) {
    const temp_dir_s directory;
    std::filesystem::current_path(directory.path);
    const auto fail = [](const char* name, int status) {
        engine_double::failOn(name, -1, static_cast<RXE_API_STATUS>(status));
    };
    struct case_s {
        const char *legend, *request;
        bool running;
        const char* failing;  // the engine operation that answers 7; null for none
        const char *reply, *calls, *autoStart;
        int rc = 0;
    };
    const char* const running = "Failure: Start currently ongoing. Issue a stop prior to issuing a start.";
    const case_s cases[] = {
        {"empty", "", false, nullptr, "Failure: No Command", "", "kept"},
        {"blanks of every kind", " \t\r\n\v\f", false, nullptr, "Failure: No Command", "", "kept"},
        {"unknown", "dance", false, nullptr, "Failure: Command Not Found", "", "kept"},
        {"capitals", "START", false, nullptr, "Failure: Command Not Found", "", "kept"},
        {"only the beginning of a command", "sta", false, nullptr, "Failure: Command Not Found", "", "kept"},
        {"exit ends the loop", "exit now", false, nullptr, "Success", "", "kept", -1},
        {"start, white space around", " start\n", false, nullptr, "Success",
         "RXE_resume RXE_resetDb RXE_start", "true"},
        {"start while running", "start", true, nullptr, running, "RXE_resume", "kept"},
        {"start, no reset", "start", false, "RXE_resetDb", "Failure: RXE_resetDb() returned error: 7",
         "RXE_resume RXE_resetDb", "kept"},
        {"start, no start", "start", false, "RXE_start", "Failure: RXE_start() returned error: 7",
         "RXE_resume RXE_resetDb RXE_start", "kept"},
        {"start once", "start doNotPersistState", false, nullptr, "Success",
         "RXE_resume RXE_resetDb RXE_start", "kept"},
        {"start once while running", "start doNotPersistState", true, nullptr, running, "RXE_resume", "kept"},
        {"start, unknown parameter", "start donotpersiststate", false, nullptr,
         "Failure: param not recognized", "", "kept"},
        {"fake tags without a rate", "start sim", false, nullptr, "Failure: sim requires tps", "", "kept"},
        {"fake tags, running or not", "start sim 50 more", true, nullptr, "Success",
         "RXE_resetDb RXE_txFakeTags(50)", "kept"},
        {"fake tags, rate cut to 16 bits", "start sim 65537", false, nullptr, "Success",
         "RXE_resetDb RXE_txFakeTags(1)", "kept"},
        {"fake tags, no reset", "start sim 5", false, "RXE_resetDb",
         "Failure: RXE_resetDb() returned error: 7", "RXE_resetDb", "kept"},
        {"fake tags refused", "start sim 5", false, "RXE_txFakeTags",
         "Failure: RXE_txFakeTags() returned error: 7", "RXE_resetDb RXE_txFakeTags(5)", "kept"},
        {"stop while idle", "stop doNotPersistState", false, nullptr, "Success", "RXE_stop", "false"},
        {"stop while running", "stop", true, nullptr, "Success", "RXE_stop", "false"},
        {"stop refused", "stop", true, "RXE_stop", "Failure", "RXE_stop", "kept"},
    };
    for (const case_s& row : cases) {
        SCOPED_TRACE(row.legend);
        engine_double::reset();
        engine_double::setOngoing(row.running);
        if (row.failing != nullptr) {
            fail(row.failing, 7);
        }
        writeTextFile("autoStart.txt", "kept");
        std::string request = row.request;
        std::string reply = "left over";
        EXPECT_EQ(ProcessRequest(&request, &reply), row.rc);
        EXPECT_EQ(reply, row.reply);
        EXPECT_EQ(engineCalls(), row.calls);
        EXPECT_EQ(readTextFile("autoStart.txt"), row.autoStart);
    }
}

TEST(Requests, aStartDisarmsTheDatabaseTimer) {
    const temp_dir_s directory;
    std::filesystem::current_path(directory.path);
    engine_double::reset();
    database_timer = timerfd_create(CLOCK_REALTIME, TFD_NONBLOCK);
    const itimerspec hour{{0, 0}, {3600, 0}};
    ASSERT_EQ(timerfd_settime(database_timer, 0, &hour, nullptr), 0);
    std::string request = "start";
    std::string reply;
    ProcessRequest(&request, &reply);
    EXPECT_EQ(reply, "Success");
    itimerspec left = {};
    ASSERT_EQ(timerfd_gettime(database_timer, &left), 0);
    EXPECT_EQ(left.it_value.tv_sec, 0);
    EXPECT_EQ(left.it_value.tv_nsec, 0);
}

// The wait loop with sockets of its own: a client, the radio side's news, the
// timer and the console.
class RequestLoop : public testing::Test {
  protected:
    void SetUp() override {
        context = zmq_ctx_new();
        responder = attach(ZMQ_REP, "inproc://requests", zmq_bind);
        client = attach(ZMQ_REQ, "inproc://requests", zmq_connect);
        main_from_radio_async = attach(ZMQ_PAIR, "inproc://news", zmq_bind);
        radio_to_main_async.handle = attach(ZMQ_PAIR, "inproc://news", zmq_connect);
        database_timer = timerfd_create(CLOCK_REALTIME, TFD_NONBLOCK);
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        ASSERT_EQ(dup2(ends[0], STDIN_FILENO), STDIN_FILENO);
        console = ends[1];
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
    std::string next(bool cli = true) {
        EXPECT_EQ(GetNextRequest(&msg, &request, cli), 0);
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
    EXPECT_EQ(next(), "0 start");
    EXPECT_EQ(next(), "0 stop now");
    EXPECT_EQ(next(), "0 ");
    close(console);
    EXPECT_EQ(next(), "0 unfinished");
    EXPECT_EQ(next(), "0 ");
    EXPECT_EQ(next(), "0 ");
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

TEST_F(RequestLoop, theConsoleWinsOverAClientInTheSamePass) {
    zmq_send(client, "status", 6, 0);
    type("stop\n");
    EXPECT_EQ(next(), "0 stop");
    EXPECT_FALSE(isReadable(responder));
}

// What the library discards while it looks for a request must not hold up the rest.
TEST_F(RequestLoop, goesOnAfterAMessageThatIsNoRequest) {
    void* stranger = attach(ZMQ_DEALER, "inproc://requests", zmq_connect);
    zmq_send(stranger, "no envelope", 11, 0);
    sendNews("start_ack", "", 0);
    type("stop\n");
    EXPECT_EQ(next(), "0 stop");
    EXPECT_FALSE(isReadable(main_from_radio_async));
}

TEST_F(RequestLoop, readsAnExpiredTimerAndWaitsOn) {
    const itimerspec now{{0, 0}, {0, 1}};
    ASSERT_EQ(timerfd_settime(database_timer, 0, &now, nullptr), 0);
    usleep(1'000);
    type("stop\n");
    EXPECT_EQ(next(), "0 stop");
    std::uint64_t expiries = 0;
    EXPECT_EQ(read(database_timer, &expiries, sizeof expiries), -1);
    EXPECT_EQ(getErrorCount(), 0U);
}

TEST_F(RequestLoop, aSignalIsAnExitRequestFromTheConsole) {
    zmq_send(client, "status", 6, 0);
    s_signal_handler(SIGTERM);
    EXPECT_EQ(next(false), "0 exit");
    EXPECT_TRUE(isReadable(responder));
}

}  // namespace
