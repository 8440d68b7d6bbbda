// SPDX-License-Identifier: MIT
// The radio side's outbound sockets on in-process endpoints, and their readers.
// All in one thread, so that what was sent is there to be received at once.
#pragma once

#include <gtest/gtest.h>
#include <zmq.h>

#include <cstring>
#include <utility>

#include "apply/apply.hpp"
#include "radio.hpp"
#include "support/engine_double.hpp"
#include "zmq_intfc.hpp"

// The frames of one message.
using message_t = std::vector<std::string>;

// All messages that wait on a socket.
inline std::vector<message_t> received(void* socket) {
    std::vector<message_t> messages;
    bool more = false;
    zmq_msg_t frame;
    zmq_msg_init(&frame);
    while (zmq_msg_recv(&frame, socket, ZMQ_DONTWAIT) >= 0) {
        if (!more) {
            messages.emplace_back();
        }
        messages.back().emplace_back(static_cast<const char*>(zmq_msg_data(&frame)), zmq_msg_size(&frame));
        more = zmq_msg_more(&frame) != 0;
    }
    zmq_msg_close(&frame);
    return messages;
}

class RadioTest : public testing::Test {
  protected:
    RadioTest() {
        sockets::context = zmq_ctx_new();
        data = peerOf(&sockets::tag_data.handle, ZMQ_PUB, ZMQ_SUB);
        lines = peerOf(&sockets::gpio_led.handle, ZMQ_PUB, ZMQ_SUB);
        news = peerOf(&sockets::radio_to_main_async.handle, ZMQ_PAIR, ZMQ_PAIR);
        RXE_setCallback(getPacket);
    }

    ~RadioTest() override {
        for (const auto& [socket, peer] : sockets) {
            zmq_close(std::exchange(*socket, nullptr));
            zmq_close(peer);
        }
        zmq_close(std::exchange(sockets::tag_data.monitor, nullptr));  // when the form was changed
        zmq_ctx_destroy(sockets::context);
    }

    // Makes *socket and its peer, to which it can send at once.
    void* peerOf(void** socket, int type, int peerType) {
        const std::string endpoint = "inproc://test" + std::to_string(sockets.size());
        void* peer = zmq_socket(sockets::context, peerType);
        *socket = zmq_socket(sockets::context, type);
        sockets.emplace_back(socket, peer);
        EXPECT_EQ(zmq_bind(*socket, endpoint.c_str()) + zmq_connect(peer, endpoint.c_str()), 0);
        zmq_setsockopt(peer, ZMQ_SUBSCRIBE, "", 0);
        int state = 0;  // asking for it lets a publisher take in the subscription
        std::size_t size = sizeof state;
        zmq_getsockopt(*socket, ZMQ_EVENTS, &state, &size);
        return peer;
    }

    // A packet from the engine, of the mode as it stands. The double decodes a payload by
    // copying it.
    static void deliver(std::uint16_t type, const void* payload, std::size_t size) {
        publishReportPlan(mode_configuration, toldAccesses);
        ASSERT_EQ(engine_double::deliver(type, {static_cast<const std::uint8_t*>(payload), size}), 0);
    }
    static void deliver(std::uint16_t type, const std::string& payload = {}) {
        deliver(type, payload.data(), payload.size());
    }
    static void deliver(const TAG_INFO_s& tag) {
        deliver(RXE_PACKET_TAG_INFO_CUSTOM, &tag, offsetof(TAG_INFO_s, reserved314));
    }

    static TAG_INFO_s tagWithEpc(std::string_view epc) {
        TAG_INFO_s tag{};
        tag.fields = RXE_FIELD_EPC;
        tag.epcLength = static_cast<std::uint16_t>(epc.size() * 8);
        std::memcpy(tag.epc, epc.data(), epc.size());
        return tag;
    }

    std::vector<std::pair<void**, void*>> sockets;
    // Readers of tag_data, gpio_led and radio_to_main_async.
    void* data = nullptr;
    void* lines = nullptr;
    void* news = nullptr;
};
