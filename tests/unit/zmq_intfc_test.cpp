// SPDX-License-Identifier: MIT
#include "zmq_intfc.hpp"

#include <gmock/gmock.h>
#include <grp.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <zmq.h>

#include <thread>

#include "../../tarnwick/links/src/listener_count.hpp"
#include "logger.hpp"
#include "radio.hpp"
#include "request_stream.hpp"
#include "subscription_stream.hpp"
#include "support/engine_double.hpp"
#include "support/process.hpp"
#include "support/reader.hpp"
#include "support/temp_dir.hpp"

namespace {

class ZmqIntfc : public testing::Test {
  protected:
    void SetUp() override {
        std::filesystem::current_path(directory.path);
        std::filesystem::remove_all("/tmp/tarnwick_rep");
        configureLogs(true, false);  // log lines on standard output too
    }

    temp_dir_s directory;
};

TEST_F(ZmqIntfc, makesAndClosesEverySocketAndGivesTheReplyFileToTheReadersUser) {
    const int holder = socket(AF_UNIX, SOCK_STREAM, 0);
    const sockaddr_un address{AF_UNIX, "/tmp/tarnwick_rep"};
    ASSERT_EQ(bind(holder, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(holder, 1), 0);
    testing::internal::CaptureStdout();
    ASSERT_EQ(initZMQ() + createZMQSocketsForMain() + createZMQSocketsForRadio(), 0);
    EXPECT_THAT(testing::internal::GetCapturedStdout(),
                testing::HasSubstr("still listens (pid " + std::to_string(getpid()) + ")"));
    struct stat file = {};
    ASSERT_EQ(stat("/tmp/tarnwick_rep", &file), 0);
    EXPECT_EQ(file.st_mode & 07777, 0771U);
    EXPECT_EQ(file.st_uid, getpwnam("trfidadm")->pw_uid);
    EXPECT_EQ(file.st_gid, getgrnam("appsadms")->gr_gid);

    EXPECT_EQ(getErrorCount(), 0U);
    EXPECT_EQ(startRadioThread() + stopRadioThread(), 0);
    EXPECT_EQ(engine_double::lastCall(), "stop") << "with the thread the radio ends";
    EXPECT_EQ(closeZMQSocketsForRadio() + closeZMQSocketsForMain(), 0);
    EXPECT_FALSE(std::filesystem::exists("/tmp/tarnwick_rep"));
    EXPECT_EQ(closeZMQ(), 0);  // returns at all only when no socket was left

    ASSERT_EQ(initZMQ() + createZMQSocketsForMain(), 0);
    std::filesystem::remove("/tmp/tarnwick_rep");  // as the next daemon does
    writeTextFile("/tmp/tarnwick_rep", "another's");
    EXPECT_EQ(closeZMQSocketsForMain() + closeZMQ(), 0);
    EXPECT_EQ(readTextFile("/tmp/tarnwick_rep"), "another's");
}

TEST_F(ZmqIntfc, namesTheStepThatFailedAndGoesNoFurther) {
    // The address that is taken, if any; the next socket in order, if any, is not made.
    const std::tuple<const char*, int (*)(), const char*, void**> cases[] = {
        {"/tmp/tarnwick_rep", createZMQSocketsForMain, "responder bind", &sockets::events},
        {"inproc://radio_2_main_async", createZMQSocketsForMain, "main_from_radio_async bind",
         &sockets::main_to_radio},
        {"inproc://main_2_radio", createZMQSocketsForMain, "main_to_radio bind", &sockets::main_from_radio},
        {"inproc://radio_2_main", createZMQSocketsForMain, "main_from_radio bind", nullptr},
        {"", closeZMQSocketsForMain, "responder close", nullptr},
        {"", closeZMQSocketsForRadio, "radio_to_main_async close", nullptr},
        {"", closeZMQSocketForData, "tag_data close", nullptr},
    };
    // Each with the sockets that the failed step leaves open; in reach until the end.
    static std::vector<void*>& contexts = *new std::vector<void*>;
    for (const auto& [taken, step, failed, notMade] : cases) {
        SCOPED_TRACE(failed);
        std::filesystem::remove_all("/tmp/tarnwick_rep");
        sockets::responder = sockets::events = sockets::main_from_radio_async = sockets::main_to_radio =
            sockets::main_from_radio = nullptr;
        initZMQ();
        contexts.push_back(sockets::context);
        if (*taken == '/') {
            std::filesystem::create_directory(taken);
        } else if (*taken != '\0') {  // in the process's own context
            ASSERT_EQ(zmq_bind(zmq_socket(sockets::context, ZMQ_PAIR), taken), 0);
        }
        const std::uint64_t errors = getErrorCount();
        testing::internal::CaptureStdout();
        EXPECT_EQ(step(), -1);
        const char* const why = *taken == '\0' ? "Socket operation on non-socket" : "Address already in use";
        EXPECT_THAT(testing::internal::GetCapturedStdout(),
                    testing::HasSubstr(std::string("ERROR zmq_intfc ") + failed + " failed: " + why + "\n"));
        EXPECT_EQ(getErrorCount(), errors + 1);
        EXPECT_TRUE(notMade == nullptr || *notMade == nullptr);
    }
}

// Another process has the port: the old form goes on. Without it the new form works at
// once and each time, and no frame of one form leaves on the socket of the other.
TEST_F(ZmqIntfc, aChangeOfTheFormWorksOrLeavesTheOldForm) {
    initZMQ();
    const auto ask = [](std::string request) {
        std::string reply;
        ProcessInternalRequest(&request, &reply);
        return reply;
    };
    const auto outsideOnly = [] {
        return sendTagData(true, "frame", 5, 0) == send_result_e::sent &&
               sendTagData(false, "frame", 5, 0) == send_result_e::noSocket;
    };
    const auto localOnly = [] {
        return sendTagData(false, "frame", 5, 0) == send_result_e::sent &&
               sendTagData(true, "frame", 5, 0) == send_result_e::noSocket;
    };
    ASSERT_EQ(createZMQSocketForData(false), 0);
    void* squatter = zmq_socket(sockets::context, ZMQ_PAIR);
    ASSERT_EQ(zmq_bind(squatter, "tcp://*:5160"), 0);
    testing::internal::CaptureStdout();
    EXPECT_EQ(ask("data_analytics STRING"), "Failure: Failed to open ZMQ socket for data");
    EXPECT_THAT(testing::internal::GetCapturedStdout(),
                testing::ContainsRegex("ERROR zmq_intfc tag_data bind failed: Address already in use\n"
                                       ".*data_analytics stays as it was"));
    EXPECT_EQ(ask("data_analytics"), "Success: data_analytics OFF");
    EXPECT_TRUE(localOnly());
    zmq_close(squatter);
    EXPECT_TRUE(eventually([&] { return ask("data_analytics STRING") == "Success"; }));
    for (int i = 0; i < 100; ++i) {
        ASSERT_TRUE(outsideOnly());
        ASSERT_EQ(ask("data_analytics OFF"), "Success");
        ASSERT_TRUE(localOnly());
        ASSERT_EQ(ask("data_analytics BINARY"), "Success") << i;
    }
    EXPECT_EQ(closeZMQSocketForData() + closeZMQ(), 0);
    EXPECT_EQ(sendTagData(true, "frame", 5, 0), send_result_e::noSocket);
}

// The library keeps a thousand events for a consumer that was there.
TEST_F(ZmqIntfc, countsEventsThatAnAbsentConsumerCannotGet) {
    ASSERT_EQ(initZMQ() + createZMQSocketsForMain(), 0);
    auto consumer = std::make_unique<consumer_s>("ipc:///tmp/events");
    consumer->waitForPublisher();
    do {
        sendEvent("first");
    } while (!consumer->receive(std::chrono::milliseconds(10)));
    consumer.reset();
    for (int i = 0; i < 5000; ++i) {
        sendEvent("event");
    }
    EXPECT_GT(sockets::eventsSent, 500U);
    EXPECT_GT(sockets::eventsRefused, 500U);
    EXPECT_EQ(closeZMQSocketsForMain() + closeZMQ(), 0);
}

// c, d: the connection comes, goes; s: one of them has succeeded.
TEST(ListenerCount, doesNotTakeAFailedHandshakeForASubscriberThatGoes) {
    const auto countAfter = [](std::string_view events, int oldUntil) {
        listener_count listeners;
        listener_count::clock_t::time_point now{};
        for (; !events.empty(); events.remove_prefix(2)) {
            const int fd = events[1] - '0';
            now += std::chrono::seconds(fd <= oldUntil ? 2 : 0);
            events[0] == 'c'   ? listeners.connected(fd, now)
            : events[0] == 'd' ? listeners.disconnected(fd)
                               : listeners.succeeded(now);
        }
        return listeners.count();
    };
    const struct {
        std::string_view events;
        int oldUntil;  // up to this descriptor two seconds pass before each event
        int count;
    } cases[] = {
        {"c1s1", 0, 1},           {"c1s1d1", 0, 0}, {"c1s1c2d2", 0, 1},  // 2 has another type of socket
        {"c1c2s9d1", 0, 1},                                              // it was 2 that succeeded
        {"c1c2s9s9d1", 0, 1},                                            // both
        {"c1c2s9d2d1", 0, 0},                                            // whichever it was
        {"c1c2s9c3s3d1d2", 0, 1},                                        // 3 and one of the others
        {"c1s1d1c1d1", 0, 0},                                            // a descriptor that is used again
        {"c1c2s9d2", 2, 0},                                              // 1 does not complete its handshake
    };
    for (const auto& [events, oldUntil, count] : cases) {
        EXPECT_EQ(countAfter(events, oldUntil), count) << events;
    }
}

TEST_F(ZmqIntfc, endsTheProcessWithTheHandlesNameWhenThereIsNoSocket) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_DEATH(createZMQSocketsForMain(), "Assertion `responder' failed");
}

std::string repeated(const std::string& bytes, int count) {
    std::string all;
    for (int i = 0; i < count; ++i) {
        all += bytes;
    }
    return all;
}

// Openings of a connection, with the handshake's first frame.
using namespace std::string_literals;
const std::string signature = "\xFF"s + std::string(8, '\0') + "\x7F";
const std::string zmtp1 = "\1\0"s;                        // an identity without bytes
const std::string zmtp2 = signature + "\1\2"s + "\0\0"s;  // the same behind a greeting
const std::string zmtp3 = signature + "\3" + std::string(53, 'x') + "\4\6\5READY"s;

// What a subscriber sends in each version of the protocol, at once and byte by byte.
TEST(SubscriptionStream, weighsTheSubscriptionsOfEachProtocol) {
    constexpr int refused = -1;
    const std::tuple<const char*, std::string, int> cases[] = {
        {"ZMTP 1.0: two topics, one cancelled", zmtp1 + "\4\0\1ab\4\0\1cd\4\0\0ab"s, 1},
        {"ZMTP 1.0, long length", zmtp1 + "\xFF\0\0\0\0\0\0\0\6\0\1abcd"s, 3},
        {"ZMTP 1.0, no room for the flags", zmtp1 + "\0"s, refused},
        {"ZMTP 2.0: the same topic twice", zmtp2 + "\0\3\1ab\0\3\1ab"s, 1},
        {"ZMTP 3.0: all topics, one of four bytes", zmtp3 + "\0\1\1\0\5\1abcd"s, 4},
        {"ZMTP 3.0: cancelled without having been there", zmtp3 + "\0\3\1ab\0\3\0cd"s, 1},
        {"ZMTP 3.1: commands, one of them unknown",
         zmtp3 + "\4\14\11SUBSCRIBEab\4\14\11SUBSCRIBEcd\4\11\6CANCELab\4\7\4PING\0\0"s, 1},
        {"the longest topic", zmtp3 + "\0\x40\1"s + std::string(63, 'x'), 62},
        {"longer", zmtp3 + "\0\x41\1"s + std::string(64, 'x'), refused},
        {"longer, as a command", zmtp3 + "\4\x4A\11SUBSCRIBE" + std::string(64, 'x'), refused},
        {"a message of 17 frames", zmtp3 + repeated("\1\1\1"s, 16) + "\0\1\1"s, 1},
        {"one without end", zmtp3 + repeated("\1\0"s, 17), refused},
        {"one without end, ZMTP 1.0", zmtp1 + repeated("\1\1"s, 17), refused},
        {"a length that no frame may have", zmtp3 + "\2\x80\0\0\0\0\0\0\0"s, refused},
    };
    for (const auto& [legend, bytes, weight] : cases) {
        for (const std::size_t step : {bytes.size(), std::size_t{1}}) {
            subscription_stream stream;
            bool taken = true;
            for (std::size_t at = 0; taken && at < bytes.size(); at += step) {
                taken = stream.take(std::string_view(bytes).substr(at, step)).has_value();
            }
            EXPECT_EQ(taken ? static_cast<int>(stream.weight()) : refused, weight) << legend << step;
        }
    }
}

// Messages of a client, at once and byte by byte: the frames of one message share the memory of a request.
TEST(RequestStream, endsWhereAMessageNeedsMoreThanARequest) {
    const std::string half = "\3\0\0\0\0\0\x80\0\0"s + std::string(1 << 23, 'x');
    const std::tuple<const char*, std::string, bool> cases[] = {
        {"the longest request", zmtp3 + "\1\0\2\0\0\0\0\1\0\0\0"s, true},
        {"longer", zmtp3 + "\1\0\2\0\0\0\0\1\0\4\1"s, false},
        {"two halves, twice", zmtp3 + repeated("\1\0"s + half + half + "\0\0"s, 2), true},
        {"a half more", zmtp3 + repeated(half, 3), false},
        {"10,000 frames, again and again", zmtp3 + repeated(repeated("\1\1x", 10'000) + "\0\1x"s, 30), true},
        {"empty frames without end", zmtp3 + repeated("\1\0"s, 300'000), false},
        {"the same, ZMTP 1.0", zmtp1 + repeated("\1\1"s, 300'000), false},
        {"commands without end", zmtp3 + repeated("\4\5\4PING"s, 300'000), true},
    };
    for (const auto& [legend, bytes, taken] : cases) {
        for (const std::size_t step : {bytes.size(), std::size_t{1}}) {
            request_stream stream;
            bool all = true;
            for (std::size_t at = 0; all && at < bytes.size(); at += step) {
                all = stream.take(std::string_view(bytes).substr(at, step));
            }
            EXPECT_EQ(all, taken) << legend << step;
        }
    }
}

// Two threads publish news much faster than the main thread takes it, while the
// radio thread re-creates tag_data under the engine thread's sends. News may be
// dropped, never torn or mixed, and nobody waits.
TEST_F(ZmqIntfc, sharedSocketsNeitherBlockNorMixTheirUsers) {
    ASSERT_EQ(initZMQ() + createZMQSocketsForMain() + createZMQSocketsForRadio(), 0);
    constexpr int rounds = 20'000;
    const auto publish = [](std::string_view topic, std::string_view payload) {
        isEngineThread = topic == "first";
        for (int i = 0; i < rounds; ++i) {
            sendNews(topic, payload.data(), payload.size());
            sendTagData(false, payload.data(), payload.size(), 0);
        }
    };
    std::thread engine(publish, "first", "one");
    std::thread radio(publish, "second", "two");
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(closeZMQSocketForData() + createZMQSocketForData(false), 0);
    }
    engine.join();
    radio.join();

    int messages = 0;
    zmq_pollitem_t item{sockets::main_from_radio_async, 0, ZMQ_POLLIN, 0};
    while (zmq_poll(&item, 1, 100) > 0) {
        std::string topic, payload;
        ASSERT_EQ(zmq_recv_string(sockets::main_from_radio_async, &topic), 0);
        ASSERT_EQ(zmq_recv_string(sockets::main_from_radio_async, &payload), 0);
        ASSERT_EQ(payload, topic == "first" ? "one" : "two");
        ++messages;
    }
    EXPECT_GT(messages, 0);
    EXPECT_LT(messages, 2 * rounds);
    EXPECT_EQ(getErrorCount(), 0U);
}

}  // namespace
