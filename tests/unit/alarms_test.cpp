// SPDX-License-Identifier: MIT
// News of the radio side as what it becomes: events, counts, engine calls.
#include <sys/timerfd.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "../../tarnwick/doors/src/requests/news.hpp"
#include "additional_config.hpp"
#include "ask.hpp"
#include "engine_io/parameter_io.hpp"
#include "logger.hpp"
#include "radio_fixture.hpp"
#include "support/table.hpp"
#include "support/temp_dir.hpp"
#include "util.hpp"

// What time it is, when it is not 0: seconds since 1970.
static time_t givenTime = 0;

// Takes the place of the C library's.
extern "C" time_t time(time_t*) noexcept {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return givenTime != 0 ? givenTime : now.tv_sec;
}

namespace {

using requests::database_timer;

class Alarms : public RadioTest {
  protected:
    Alarms() {
        engine_double::reset();
        sockets::main_from_radio_async = news;
        consumer = peerOf(&sockets::events, ZMQ_PAIR, ZMQ_PAIR);
        database_timer = timerfd_create(CLOCK_REALTIME, TFD_NONBLOCK);
        rxe_intfc::olios[5].transmitAntenna = 3;
    }

    // What came on `events` since: type, number and message of each.
    std::string published() const {
        std::string all;
        for (const message_t& message : received(consumer)) {
            const auto event = nlohmann::json::parse(message.at(0));
            all += event["type"].get<std::string>() + " " + event["data"]["eventNum"].dump() + " " +
                   event["data"]["message"].get<std::string>() + "\n";
        }
        return all;
    }

    std::string onDatabaseWarning(const DB_WARNING_s& filling) {
        return onNews("db_warning", {reinterpret_cast<const char*>(&filling), sizeof filling});
    }

    std::string onNews(std::string_view topic, const std::string& payload) {
        sendNews(topic, payload.data(), payload.size());
        requests::handleRadioNews();
        return published();
    }

    void* consumer = nullptr;
};

std::string payloadOf(const std::string& written) {
    std::string bytes = written[0] == '"' ? written.substr(1, written.size() - 2) : "";
    for (std::size_t i = 0; written[0] != '"' && i + 1 < written.size(); i += 2) {
        bytes += static_cast<char>(hex2int(written[i], written[i + 1]));
    }
    return bytes;
}

TEST_F(Alarms, newsBecomesEventsInItsOrder) {
    setAddlKeysFilterConfig(false, 1000, 10);
    EXPECT_EQ(report_line("key", {1, 0}), 1);
    EXPECT_EQ(report_line("key", {2, 0}), 0);
    const temp_dir_s directory;
    ASSERT_EQ(chdir(directory.path.c_str()), 0);
    configureLogs(true, false);
    std::string log;
    for (const auto& [item, told] : readRows("unit/radio_news.txt")) {
        SCOPED_TRACE(item);
        if (item == "log") {
            EXPECT_NE(log.find("INFO requests " + told + "\n"), std::string::npos) << log;
        } else {
            const std::size_t space = item.find(' ');
            testing::internal::CaptureStdout();
            EXPECT_EQ(onNews(item.substr(0, space), payloadOf(item.substr(space + 1))),
                      told.empty() ? "" : told + "\n");
            log = testing::internal::GetCapturedStdout();
        }
    }
    EXPECT_EQ(report_line("key", {3, 0}), 1) << "a full database empties this one too";
    EXPECT_EQ(getErrorCount(), 13U);
    EXPECT_EQ(engineCalls(), "getErr getErr getErr getErr resume resetDb");
}

// News come from a library that is not ours: a payload that ends too early is
// dropped, whatever the length.
TEST_F(Alarms, aPayloadThatIsTooShortIsIgnored) {
    const std::pair<const char*, std::size_t> needed[] = {
        {"ant_disconnect", 2}, {"ant_connect", 2},  {"amb_temp_hi", 1}, {"amb_temp_crit", 1},
        {"pa_temp_hi", 1},     {"pa_temp_crit", 1}, {"pa_failure", 1},  {"api_error", 4},
        {"start_info", 16},    {"db_warning", 8},
    };
    for (const auto& [topic, size] : needed) {
        for (std::size_t length = 0; length < size; ++length) {
            EXPECT_EQ(onNews(topic, std::string(length, '\x7F')), "") << topic << length;
        }
    }
    EXPECT_EQ(getErrorCount() + getWarningCount(), 0U);
    zmq_send(sockets::radio_to_main_async.handle, "db_error", 8, 0);  // a message of one frame
    requests::handleRadioNews();
    EXPECT_EQ(engineCalls(), "");
}

TEST_F(Alarms, whatIsNotPublishedIsStillCounted) {
    ASSERT_EQ(ask(R"(events {"errors":{"antenna":false,"radio":true,"tarnwick":true,"database":true},
        "warnings":{"temperature":{"pa":128,"ambient":90},"radio_api":false,"tarnwick":true,"database":true}})"),
              "Success");
    EXPECT_EQ(onNews("ant_disconnect", std::string("\0\5", 2)), "");
    EXPECT_EQ(getErrorCount(), 1U);
    EXPECT_EQ(onNews("api_error", "1234"), "");
    EXPECT_EQ(getWarningCount(), 1U);
    EXPECT_EQ(onNews("amb_temp_hi", "\x5A"), "") << "the limit itself is no reason";
    EXPECT_EQ(onNews("amb_temp_hi", "\x5F"), "") << "90 has moved the hysteresis";
    EXPECT_EQ(getWarningCount(), 1U);
}

TEST_F(Alarms, aNearlyFullDatabaseIsResetAtTheHour) {
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    // In 2027, so that the timer does not fire before it is read: the hour, the time when
    // the warning comes, and when the reset comes.
    const std::tuple<std::string, time_t, time_t, std::string> cases[] = {
        {"12:00", 1811836830, 1811844000, "Tue Jun  1 12:00:00 2027"},
        {"23:59", 1814392799, 1814479140, "Thu Jul  1 23:59:00 2027"},  // has passed, the month ends
        {"0:0", 1830243600, 1830294000, "Sat Jan  1 00:00:00 2028"},
        {"11:00", 1806145200, 1806224400, "Sun Mar 28 11:00:00 2027"},  // a day of 23 hours
        {"11:00", 1824890400, 1824976800, "Sun Oct 31 11:00:00 2027"},  // and one of 25
    };
    unsigned number = 0;
    for (const auto& [hour, now, reset, shown] : cases) {
        SCOPED_TRACE(shown);
        requests::cancel_database_timer();
        ask("database_reset time=" + hour);
        givenTime = now;
        EXPECT_EQ(onDatabaseWarning({.used = 50000000, .free = 5000000}),
                  "warning " + std::to_string(++number) + " Database warning: 90% full. Will reset at " +
                      shown + "\n (or earlier)\n");
        givenTime = 0;
        itimerspec timer = {};
        EXPECT_EQ(timerfd_gettime(database_timer, &timer), 0);
        EXPECT_NEAR(time(nullptr) + timer.it_value.tv_sec, reset, 2);
        EXPECT_EQ(onDatabaseWarning({.used = 99, .free = 1}), "") << "armed";
    }
    requests::cancel_database_timer();
    EXPECT_NE(onDatabaseWarning({}).find("0% full"), std::string::npos) << "zeros";
}

TEST_F(Alarms, aResetStopsARunningRadioForItsTime) {
    const std::tuple<bool, std::string, std::string> cases[] = {
        {false, "", ""},
        {true, "", ""},
        {false, "RXE_resetDb", "error 1 Failed to reset database while resetting database (7)\n"},
        {true, "RXE_stop", "error 2 Failed to stop RXE before resetting database (7)\n"},
        {true, "RXE_start", "error 3 Failed to restart RXE while resetting database (7)\n"},
    };
    unsigned warnings = 0;
    for (const auto& [running, failing, told] : cases) {
        SCOPED_TRACE(failing);
        engine_double::reset();
        engine_double::setOngoing(running);
        engine_double::failOn(failing, -1, 7);
        const itimerspec now{{0, 0}, {0, 1}};
        ASSERT_EQ(timerfd_settime(database_timer, 0, &now, nullptr), 0);
        usleep(1'000);
        requests::handleDatabaseTimer();
        EXPECT_EQ(published(), "warning " + std::to_string(++warnings) + " Resetting database\n" + told);
        EXPECT_EQ(engineCalls(), running ? "resume stop resetDb start" : "resume resetDb");
    }
}

}  // namespace
