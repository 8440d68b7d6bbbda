// SPDX-License-Identifier: MIT
// The radio thread behind its real sockets, with the main thread's part played here.
#include <zmq.h>

#include <chrono>
#include <nlohmann/json.hpp>
#include <thread>

#include "radio_fixture.hpp"

namespace {

using namespace std::chrono_literals;

class RadioThread : public testing::Test {
  protected:
    RadioThread() {
        context = zmq_ctx_new();
        main_from_radio_async = bound("inproc://radio_2_main_async");
        main_to_radio = bound("inproc://main_2_radio");
        main_from_radio = bound("inproc://radio_2_main");
        EXPECT_EQ(createZMQSocketsForRadio(), 0);
        RXE_setCallback(getPacket);
        EXPECT_EQ(startRadioThread(), 0);
        for (void** subscriber : {&outside, &consumer}) {
            *subscriber = zmq_socket(context, ZMQ_SUB);
            zmq_setsockopt(*subscriber, ZMQ_SUBSCRIBE, "", 0);
        }
    }

    ~RadioThread() override {
        EXPECT_EQ(stopRadioThread(), 0);
        EXPECT_EQ(engine_double::calls().back().name, "RXE_stop");
        EXPECT_EQ(closeZMQSocketsForRadio(), 0);
        for (void* socket : {main_from_radio_async, main_to_radio, main_from_radio, outside, consumer}) {
            zmq_close(socket);
        }
        zmq_ctx_destroy(context);
    }

    static void* bound(const char* endpoint) {
        void* socket = zmq_socket(context, ZMQ_PAIR);
        const int patience = 10000;  // ms
        zmq_setsockopt(socket, ZMQ_RCVTIMEO, &patience, sizeof patience);
        EXPECT_EQ(zmq_bind(socket, endpoint), 0);
        return socket;
    }

    static std::string ask(const std::string& request) {
        zmq_send(main_to_radio, request.data(), request.size(), 0);
        std::string reply;
        EXPECT_EQ(zmq_recv_string(main_from_radio, &reply), 0) << request;
        return reply;
    }

    void* outside = nullptr;   // at port 5160
    void* consumer = nullptr;  // the local one
};

struct exchange_s {
    const char *request, *reply;
};

const exchange_s exchanges[] = {
    {"", "Failure: No Command"},
    {"Subscribers", "Failure: Command Not Found"},
    {"subscribers 0", "Failure: subscribers must be an unsigned integer between 1 and 1024"},
    {"subscribers 1025", "Failure: subscribers must be an unsigned integer between 1 and 1024"},
    {"subscribers 1 2", "Failure: error requires at least 1 param (an unsigned integer between 0 and 1024)"},
    {"subscribers", "Success: subscribers 1 but is irrelevant - data analytics disabled"},
    {"subscribers 1024", "Success"},
    {"data_analytics", "Success: data_analytics OFF"},
    {"data_analytics string", "Failure: error requires at least 1 param (STRING, BINARY, or OFF)"},
    {"data_analytics STRING x", "Success: error requires at least 1 param (STRING, BINARY, or OFF)"},
    {"data_analytics STRING", "Success"},
    {"data_analytics STRING", "Success"},
    {"data_analytics", "Success: data_analytics STRING"},
    {"subscribers", "Success: subscribers 1024"},
};

TEST_F(RadioThread, ForwardedCommands) {
    for (const exchange_s& row : exchanges) {
        EXPECT_EQ(ask(row.request), row.reply) << row.request;
    }
}

// Outside subscribers are served at port 5160 while a form is on, the local
// consumer while it is off.
TEST_F(RadioThread, DataAnalyticsMovesTheDataSocket) {
    ASSERT_EQ(zmq_bind(consumer, "ipc:///tmp/data"), 0);

    // Connecting takes its time, so the report is repeated until it is seen.
    const auto arrives = [](void* at) {
        const auto deadline = std::chrono::steady_clock::now() + 10s;
        zmq_pollitem_t item{at, 0, ZMQ_POLLIN, 0};
        while (std::chrono::steady_clock::now() < deadline) {
            const TAG_INFO_s tag{};
            engine_double::deliver(0x0805, {reinterpret_cast<const std::uint8_t*>(&tag), 60});
            if (zmq_poll(&item, 1, 50) == 1) {
                return received(at).at(0).at(0);
            }
        }
        return std::string("nothing");
    };
    EXPECT_EQ(arrives(consumer).substr(0, 1), "{");
    EXPECT_EQ(ask("data_analytics STRING"), "Success");
    ASSERT_EQ(zmq_connect(outside, "tcp://127.0.0.1:5160"), 0);
    EXPECT_EQ(arrives(outside).substr(0, 5), std::string("\0\0\0\0{", 5));
    received(consumer);
    EXPECT_EQ(ask("data_analytics BINARY"), "Success");
    for (std::string frame; frame.substr(0, 3) != std::string("\0\0\x01", 3);) {
        frame = arrives(outside);
        ASSERT_NE(frame, "nothing");
    }
    EXPECT_TRUE(received(consumer).empty());
    EXPECT_EQ(ask("data_analytics OFF"), "Success");
    EXPECT_EQ(arrives(consumer).substr(0, 1), "{");
}

TEST_F(RadioThread, SaysInitTenTimesAndMeasuresTheRate) {
    for (int i = 0; i < 10; ++i) {
        std::string word;
        ASSERT_EQ(zmq_recv_string(main_from_radio_async, &word), 0);
        EXPECT_EQ(word, "init");
    }
    // Up to 200 a second, then none any more.
    for (const bool sending : {true, false}) {
        const auto deadline = std::chrono::steady_clock::now() + 10s;
        while (tag_data_slow_down() != sending && std::chrono::steady_clock::now() < deadline) {
            if (sending) {
                send_tag_data_message("x", true);
            }
            std::this_thread::sleep_for(5ms);
        }
        EXPECT_EQ(tag_data_slow_down(), sending);
    }
}

}  // namespace
