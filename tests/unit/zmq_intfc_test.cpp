// SPDX-License-Identifier: MIT
#include "zmq_intfc.hpp"

#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zmq.h>

#include <filesystem>
#include <thread>

#include "logger.hpp"
#include "support/temp_dir.hpp"

namespace {

class ZmqIntfc : public testing::Test {
  protected:
    void SetUp() override {
        std::filesystem::current_path(directory.path);
        std::filesystem::remove_all("/tmp/tarnwick_rep");
        configureLogs(true, false);  // log lines on standard output too
    }

    // Everything that the process writes to standard output while `step` runs.
    template <class Step>
    std::string outputOf(Step step) {
        testing::internal::CaptureStdout();
        step();
        return testing::internal::GetCapturedStdout();
    }

    temp_dir_s directory;
};

// Takes an address, in the process's own context, before the process does.
void occupy(const char* endpoint) {
    ASSERT_EQ(zmq_bind(zmq_socket(context, ZMQ_PAIR), endpoint), 0);
}

TEST_F(ZmqIntfc, makesAndClosesEverySocketAndGivesTheReplyFileToTheReadersUser) {
    ASSERT_EQ(initZMQ(), 0);
    ASSERT_EQ(createZMQSocketsForMain(), 0);
    ASSERT_EQ(createZMQSocketsForRadio(), 0);

    struct stat file = {};
    ASSERT_EQ(stat("/tmp/tarnwick_rep", &file), 0);
    EXPECT_EQ(file.st_mode & 07777, 0771U);
    EXPECT_EQ(file.st_uid, getpwnam("trfidadm")->pw_uid);
    EXPECT_EQ(file.st_gid, getgrnam("appsadms")->gr_gid);

    EXPECT_EQ(closeZMQSocketsForRadio(), 0);
    EXPECT_EQ(closeZMQSocketsForMain(), 0);
    EXPECT_FALSE(std::filesystem::exists("/tmp/tarnwick_rep"));
    EXPECT_EQ(closeZMQ(), 0);  // returns at all only when no socket was left
    EXPECT_EQ(getErrorCount(), 0U);
}

TEST_F(ZmqIntfc, namesTheStepThatFailedAndGoesNoFurther) {
    struct case_s {
        const char* legend;
        void (*prepare)();
        int (*step)();
        const char* line;
        void** notMade;  // the next socket in order; null where there is none
    };
    const case_s cases[] = {
        {"a folder in the place of the reply file",
         [] { std::filesystem::create_directory("/tmp/tarnwick_rep"); }, createZMQSocketsForMain,
         "zmq_intfc responder bind failed: Address already in use", &events},
        {"news lane taken", [] { occupy("inproc://radio_2_main_async"); }, createZMQSocketsForMain,
         "zmq_intfc main_from_radio_async bind failed: Address already in use", &main_to_radio},
        {"request lane taken", [] { occupy("inproc://main_2_radio"); }, createZMQSocketsForMain,
         "zmq_intfc main_to_radio bind failed: Address already in use", &main_from_radio},
        {"reply lane taken", [] { occupy("inproc://radio_2_main"); }, createZMQSocketsForMain,
         "zmq_intfc main_from_radio bind failed: Address already in use", nullptr},
        {"closed before made, main", [] {}, closeZMQSocketsForMain,
         "zmq_intfc responder close failed: Socket operation on non-socket", nullptr},
        {"closed before made, radio", [] {}, closeZMQSocketsForRadio,
         "zmq_intfc radio_to_main_async close failed: Socket operation on non-socket", nullptr},
        {"closed before made, data", [] {}, closeZMQSocketForData,
         "zmq_intfc tag_data close failed: Socket operation on non-socket", nullptr},
        {"port 5160 taken", [] { occupy("tcp://*:5160"); }, [] { return createZMQSocketForData(true); },
         "zmq_intfc tag_data bind failed: Address already in use", nullptr},
    };
    for (const case_s& row : cases) {
        SCOPED_TRACE(row.legend);
        std::filesystem::remove_all("/tmp/tarnwick_rep");
        responder = events = main_from_radio_async = main_to_radio = main_from_radio = nullptr;
        initZMQ();
        row.prepare();
        const std::uint64_t errors = getErrorCount();
        int rc = 0;
        const std::string output = outputOf([&] { rc = row.step(); });
        EXPECT_EQ(rc, -1);
        EXPECT_NE(output.find(std::string("ERROR ") + row.line + "\n"), std::string::npos) << output;
        EXPECT_EQ(getErrorCount(), errors + 1);
        EXPECT_TRUE(row.notMade == nullptr || *row.notMade == nullptr);
    }
    std::filesystem::remove_all("/tmp/tarnwick_rep");
}

// The port was busy once; the command that asked for it can be repeated.
TEST_F(ZmqIntfc, aDataSocketThatCouldNotBindCanBeClosedAndMadeAgain) {
    initZMQ();
    void* squatter = zmq_socket(context, ZMQ_PAIR);
    ASSERT_EQ(zmq_bind(squatter, "tcp://*:5160"), 0);
    EXPECT_EQ(createZMQSocketForData(true), -1);
    EXPECT_EQ(sendShared(&tag_data, "lost", 4, 0), 4);
    zmq_close(squatter);
    EXPECT_EQ(closeZMQSocketForData(), 0);
    EXPECT_EQ(sendShared(&tag_data, "lost", 4, 0), -1);
    int rc = -1;
    for (int tries = 0; rc != 0 && tries < 1000; ++tries) {  // the library gives the port up in its own time
        rc = createZMQSocketForData(true);
        if (rc != 0) {
            closeZMQSocketForData();
            usleep(5'000);
        }
    }
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(closeZMQSocketForData(), 0);
    EXPECT_EQ(closeZMQ(), 0);
}

TEST_F(ZmqIntfc, endsTheProcessWithTheHandlesNameWhenThereIsNoSocket) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_DEATH(createZMQSocketsForMain(), "Assertion `responder' failed");
    EXPECT_DEATH(createZMQSocketForData(true), "Assertion `tag_data' failed");
    std::string out;
    EXPECT_DEATH(zmq_recv_string(nullptr, &out), "Assertion `receiver' failed");
}

// Two threads publish news much faster than the main thread takes it, while the
// radio thread re-creates tag_data under the engine thread's sends. News may be
// dropped, never torn or mixed, and nobody waits.
TEST_F(ZmqIntfc, sharedSocketsNeitherBlockNorMixTheirUsers) {
    initZMQ();
    ASSERT_EQ(createZMQSocketsForMain(), 0);
    ASSERT_EQ(createZMQSocketsForRadio(), 0);
    constexpr int rounds = 20'000;
    const auto publish = [](std::string_view topic, std::string_view payload) {
        for (int i = 0; i < rounds; ++i) {
            sendNews(topic, payload.data(), payload.size());
            sendShared(&tag_data, payload.data(), payload.size(), 0);
        }
    };
    std::thread engine(publish, "first", "one");
    std::thread radio(publish, "second", "two");
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(closeZMQSocketForData(), 0);
        EXPECT_EQ(createZMQSocketForData(false), 0);
    }
    engine.join();
    radio.join();

    int messages = 0;
    zmq_pollitem_t item{main_from_radio_async, 0, ZMQ_POLLIN, 0};
    while (zmq_poll(&item, 1, 100) > 0) {
        std::string topic;
        std::string payload;
        ASSERT_EQ(zmq_recv_string(main_from_radio_async, &topic), 0);
        ASSERT_EQ(zmq_recv_string(main_from_radio_async, &payload), 0);
        ASSERT_EQ(payload, topic == "first" ? "one" : "two");
        ++messages;
    }
    EXPECT_GT(messages, 0);
    EXPECT_LT(messages, 2 * rounds);
}

}  // namespace
