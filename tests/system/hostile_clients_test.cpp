// SPDX-License-Identifier: MIT
// Clients that misuse the reply socket. Each has its answer, where one is due,
// and none keeps the next client from its own.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <zmq.h>

#include <cstring>
#include <numeric>

#include "support/reader.hpp"

namespace {

// A client that speaks no ZeroMQ at all.
void sendRaw(std::string_view bytes) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, replyFile);
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_EQ(connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    // The other side may hang up before it has read all.
    EXPECT_GT(send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL), 0);
    close(fd);
}

TEST(HostileClients, getAnAnswerAndLeaveTheLoopToTheNext) {
    reader_s reader({.arguments = {"--no_rxe"}, .server = false});
    std::string everyByte(256, '\0');
    std::iota(everyByte.begin(), everyByte.end(), '\0');
    const std::string unknown = "Failure: Command Not Found";
    const std::string off = "Success: data_analytics OFF";
    const std::pair<frames_t, std::string> cases[] = {
        {{everyByte}, unknown},
        {{std::string("logging\0", 8)}, unknown},
        {{std::string(10'000'000, 'x')}, unknown},
        {{std::string(10'000'000, ' ')}, "Failure: No Command"},
        {{"data_analytics", "exit", everyByte}, off},
        {{"", "", ""}, "Failure: No Command"},
        {frames_t(10'000, "data_analytics"), off},
    };
    for (const auto& [request, reply] : cases) {
        SCOPED_TRACE(request[0].substr(0, 100));
        EXPECT_EQ(askFrames(request), reply);
        EXPECT_EQ(ask("data_analytics"), off);
    }

    // Any envelope. Without a proper one there is no request, and the same client's
    // next, proper one has its reply.
    const frames_t envelopes[] = {{"no envelope"}, {"", "dance"}, {"a", "b", "", "dance"}, {"", ""}, {""}};
    for (const frames_t& envelope : envelopes) {
        const socket_s client(ZMQ_DEALER);
        ASSERT_EQ(zmq_connect(client.handle, replyEndpoint), 0);
        client.send(envelope);
        client.send({"", "data_analytics"});
        std::string reply;
        while (reply != off + '\0') {
            const std::optional<frames_t> message = client.receive();
            ASSERT_TRUE(message) << "after " << reply;
            reply = message->back();
        }
        EXPECT_EQ(ask("data_analytics"), off);
    }
    for (const std::string& bytes :
         {everyByte, std::string(100'000, '\xff'), std::string("GET / HTTP/1.1\r\n\r\n")}) {
        sendRaw(bytes);
        EXPECT_EQ(ask("data_analytics"), off);
    }
    EXPECT_EQ(reader.exit(), 0);
}

}  // namespace
