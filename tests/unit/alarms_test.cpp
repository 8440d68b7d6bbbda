// SPDX-License-Identifier: MIT
// News of the radio side as what it becomes: events, counts, engine calls.
#include <gtest/gtest.h>
#include <sys/timerfd.h>
#include <unistd.h>
#include <zmq.h>

#include <cstring>
#include <nlohmann/json.hpp>

#include "../../tarnwick/src/requests/news.hpp"
#include "logger.hpp"
#include "requests.hpp"
#include "rxe_intfc.hpp"
#include "support/engine_double.hpp"
#include "zmq_intfc.hpp"

namespace {

template <class Record>
std::string bytesOf(const Record& record) {
    return {reinterpret_cast<const char*>(&record), sizeof record};
}

std::string byte(int value) {
    return std::string(1, static_cast<char>(value));
}

std::string runEnded(std::uint16_t cause) {
    return bytesOf(START_INFO_s{.duration = 1500000, .tagReads = 7, .rounds = 3, .stopCause = cause});
}

class Alarms : public testing::Test {
  protected:
    void SetUp() override {
        engine_double::reset();
        context = zmq_ctx_new();
        // A pair in the process, so that nothing is lost before both ends know each other.
        consumer = zmq_socket(context, ZMQ_PAIR);
        ASSERT_EQ(zmq_bind(consumer, "inproc://events"), 0);
        events = zmq_socket(context, ZMQ_PAIR);
        ASSERT_EQ(zmq_connect(events, "inproc://events"), 0);
        main_from_radio_async = zmq_socket(context, ZMQ_PAIR);
        ASSERT_EQ(zmq_bind(main_from_radio_async, "inproc://news"), 0);
        radio_to_main_async.handle = zmq_socket(context, ZMQ_PAIR);
        ASSERT_EQ(zmq_connect(radio_to_main_async.handle, "inproc://news"), 0);
        database_timer = timerfd_create(CLOCK_REALTIME, TFD_NONBLOCK);
        olios[5].transmitAntenna = 3;
    }

    // What came on `events` since: type, number and message of each.
    std::string published() {
        std::string all;
        zmq_pollitem_t item{consumer, 0, ZMQ_POLLIN, 0};
        zmq_send(events, "mark", 4, 0);
        while (zmq_poll(&item, 1, 5000) > 0) {
            char buffer[2000];
            const int size = zmq_recv(consumer, buffer, sizeof buffer, 0);
            const std::string text(buffer, static_cast<std::size_t>(size));
            if (text == "mark") {
                return all;
            }
            const auto event = nlohmann::json::parse(text);
            EXPECT_EQ(event.dump(), text) << "compact, sorted";
            EXPECT_EQ(event["component"], "TW");
            EXPECT_EQ(event["timestamp"].get<std::string>().size(), strlen("2026-03-01T08:05:09.007+0100"));
            all += event["type"].get<std::string>() + " " + event["data"]["eventNum"].dump() + " " +
                   event["data"]["message"].get<std::string>() + "\n";
        }
        ADD_FAILURE() << "no mark";
        return all;
    }

    std::string onNews(std::string_view topic, const std::string& payload) {
        sendNews(topic, payload.data(), payload.size());
        handleRadioNews();
        return published();
    }

    static std::string ask(std::string request) {
        std::string reply;
        ProcessRequest(&request, &reply);
        return reply;
    }

    static time_t timeLeft() {
        itimerspec timer = {};
        EXPECT_EQ(timerfd_gettime(database_timer, &timer), 0);
        return timer.it_value.tv_sec;
    }

    static std::string engineCalls() {
        std::string names;
        for (const engine_double::call_s& call : engine_double::calls()) {
            names += call.name + " ";
        }
        engine_double::clearCalls();
        return names;
    }

    void* consumer = nullptr;
};

TEST_F(Alarms, newsBecomesEventsInItsOrder) {
    using namespace std::string_literals;
    struct case_s {
        const char *legend, *topic;
        std::string payload, events;
    };
    const case_s cases[] = {
        {"text", "error", "odd", "error 1 odd\n"},
        {"text", "warning", "hm", "warning 1 hm\n"},
        {"text that is no UTF-8", "err_log", "ERRLOG \xFF", "error 2 RXE Error: ERRLOG \xEF\xBF\xBD\n"},
        {"unknown topic", "errors", "odd", ""},
        {"never lost", "ant_connect", "\0\5"s, ""},
        {"lost", "ant_disconnect", "\0\5"s, "error 3 Antenna Disconnected on Port 3\n"},
        {"lost again", "ant_disconnect", "\0\5"s, ""},
        {"work item without an antenna", "ant_disconnect", "\0\6"s, ""},
        {"too short for an id", "ant_connect", "\0"s, ""},
        {"found again", "ant_connect", "\0\5 and more"s, "error 4 Antenna Reconnected on Port 3\n"},
        {"not high", "amb_temp_hi", byte(75), ""},
        {"high", "amb_temp_hi", byte(80), "warning 2 Ambient Temperature High @ 80 C\n"},
        {"5 above or less", "amb_temp_hi", byte(85), ""},
        {"6 above", "amb_temp_hi", byte(86), "warning 3 Ambient Temperature High @ 86 C\n"},
        {"6 below", "amb_temp_hi", byte(80), "warning 4 Ambient Temperature High @ 80 C\n"},
        {"no byte", "amb_temp_crit", "", ""},
        {"hot amplifier, cool reader", "pa_temp_hi", byte(120), ""},
        {"critical", "amb_temp_crit", byte(-3), "error 5 Ambient Temperature Critical @ -3 C\n"},
        {"critical", "amb_temp_crit", byte(110), "error 6 Ambient Temperature Critical @ 110 C\n"},
        {"the silent 120 counted", "pa_temp_hi", byte(125), ""},
        {"reader above the amplifier's limit", "pa_temp_hi", byte(126),
         "warning 5 PA Temperature High @ 126 C\n"},
        {"critical", "pa_temp_crit", byte(127), "error 7 PA Temperature Critical @ 127 C\n"},
        {"amplifier", "pa_failure", byte(14), "error 8 Tx (PA) Failure on Port 14\n"},
        {"the same", "pa_failure", byte(14), ""},
        {"no such port", "pa_failure", byte(15), ""},
        {"bytes in reverse", "api_error", "\1\2\3\xAB", "warning 6 API Error: 0xab030201\n"},
        {"three bytes", "api_error", "\1\2\3", ""},
        {"regular end", "start_info", runEnded(16), ""},
        {"error", "start_info", runEnded(32), "error 9 RXE Stopped due to error: Stopped due to error\n"},
        {"two bits", "start_info", runEnded(40), "error 10 RXE Stopped due to error: Unknown Stop Cause40\n"},
        {"a byte short", "start_info", runEnded(32).substr(1), ""},
        {"no more than a line", "start_ack", "", ""},
        {"full", "db_error", "", "error 11 Database full, resetting database\n"},
    };
    for (const case_s& row : cases) {
        SCOPED_TRACE(std::string(row.topic) + ": " + row.legend);
        EXPECT_EQ(onNews(row.topic, row.payload), row.events);
    }
    EXPECT_EQ(engineCalls(), "RXE_getErr RXE_getErr RXE_resume RXE_resetDb ");
}

TEST_F(Alarms, whatIsNotPublishedIsStillCounted) {
    ASSERT_EQ(ask(R"(events {"errors":{"antenna":false,"radio":true,"tarnwick":true,"database":true},
        "warnings":{"temperature":{"pa":128,"ambient":90},"radio_api":false,"tarnwick":true,"database":true}})"),
              "Success");
    using namespace std::string_literals;
    EXPECT_EQ(onNews("ant_disconnect", "\0\5"s), "");
    EXPECT_EQ(getErrorCount(), 1U);
    EXPECT_EQ(onNews("api_error", "1234"), "");
    EXPECT_EQ(getWarningCount(), 1U);
    EXPECT_EQ(onNews("amb_temp_hi", byte(90)), "") << "the limit itself is no reason";
    EXPECT_EQ(onNews("amb_temp_hi", byte(95)), "") << "90 has moved the hysteresis";
    EXPECT_EQ(getWarningCount(), 1U);
}

TEST_F(Alarms, aNearlyFullDatabaseIsResetAtTheHour) {
    const time_t soon = time(nullptr) + 7200;
    tm at{};
    localtime_r(&soon, &at);
    char clock[8];
    strftime(clock, sizeof clock, "%H:%M", &at);
    ASSERT_EQ(ask(std::string("database_reset time=") + clock), std::string("Success: time: ") + clock);
    const std::string warning =
        onNews("db_warning", bytesOf(DB_WARNING_s{.used = 50000000, .free = 5000000}));
    at.tm_sec = 0;
    EXPECT_EQ(warning, std::string("warning 1 Database warning: 90% full. Will reset at ") + asctime(&at) +
                           " (or earlier)\n");
    EXPECT_GT(timeLeft(), 7200 - 62);
    EXPECT_LE(timeLeft(), 7200);
    EXPECT_EQ(onNews("db_warning", bytesOf(DB_WARNING_s{.used = 99, .free = 1})), "") << "armed";

    // A time that has passed today is tomorrow's; a warning with zeros is one all the same.
    cancel_database_timer();
    const time_t now = time(nullptr);
    localtime_r(&now, &at);
    strftime(clock, sizeof clock, "%H:%M", &at);
    ask(std::string("database_reset time=") + clock);
    EXPECT_NE(onNews("db_warning", bytesOf(DB_WARNING_s{})).find("Database warning: 0% full"),
              std::string::npos);
    EXPECT_GT(timeLeft(), 22 * 3600);
}

TEST_F(Alarms, aResetStopsARunningRadioForItsTime) {
    struct case_s {
        const char* legend;
        bool running;
        const char *failing, *calls, *events;
    };
    const case_s cases[] = {
        {"idle", false, "", "RXE_resume RXE_resetDb ", ""},
        {"running", true, "", "RXE_resume RXE_stop RXE_resetDb RXE_start ", ""},
        {"idle, no reset", false, "RXE_resetDb", "RXE_resume RXE_resetDb ",
         "error 1 Failed to reset database while resetting database (7)\n"},
        {"running, no stop", true, "RXE_stop", "RXE_resume RXE_stop RXE_resetDb RXE_start ",
         "error 2 Failed to stop RXE before resetting database (7)\n"},
        {"running, no start", true, "RXE_start", "RXE_resume RXE_stop RXE_resetDb RXE_start ",
         "error 3 Failed to restart RXE while resetting database (7)\n"},
    };
    unsigned warnings = 0;
    for (const case_s& row : cases) {
        SCOPED_TRACE(row.legend);
        engine_double::reset();
        engine_double::setOngoing(row.running);
        engine_double::failOn(row.failing, -1, static_cast<RXE_API_STATUS>(7));
        const itimerspec now{{0, 0}, {0, 1}};
        ASSERT_EQ(timerfd_settime(database_timer, 0, &now, nullptr), 0);
        usleep(1'000);
        handleDatabaseTimer();
        EXPECT_EQ(published(),
                  "warning " + std::to_string(++warnings) + " Resetting database\n" + row.events);
        EXPECT_EQ(engineCalls(), row.calls);
    }
}

}  // namespace
