// SPDX-License-Identifier: MIT
// Clients that misuse the reply socket. Each has its answer, where one is due,
// and none keeps the next client from its own.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <zmq.h>

#include <cstring>
#include <list>
#include <numeric>

#include "support/reader.hpp"

namespace {

// A peer that speaks no ZeroMQ by itself; nothing keeps it from doing so by hand.
struct raw_peer_s {
    explicit raw_peer_s(int family) : fd(socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        const sockaddr_in port{AF_INET, htons(5160), {htonl(INADDR_LOOPBACK)}, {}};
        sockaddr_un file{AF_UNIX, {}};
        std::strcpy(file.sun_path, replyFile);
        EXPECT_EQ(family == AF_UNIX ? connect(fd, reinterpret_cast<const sockaddr*>(&file), sizeof file)
                                    : connect(fd, reinterpret_cast<const sockaddr*>(&port), sizeof port),
                  0);
    }
    ~raw_peer_s() { close(fd); }
    raw_peer_s(const raw_peer_s&) = delete;

    // False when the other side hangs up before it has read all.
    [[nodiscard]] bool send(std::string_view bytes) const {
        ssize_t sent = 1;
        for (; !bytes.empty() && sent > 0;
             bytes.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(sent, 0)))) {
            sent = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        }
        return sent > 0;
    }

    // Whether the other side leaves the connection as it is for a while.
    [[nodiscard]] bool isKept() const {
        pollfd end{fd, POLLRDHUP, 0};
        return poll(&end, 1, 500) == 0;
    }

    int fd;
};

long memory(const reader_s& reader) {
    const std::string status = readTextFile("/proc/" + std::to_string(reader.daemon->pid) + "/status");
    return std::stol(status.substr(status.find("VmRSS:") + 6));  // KiB
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
        [[maybe_unused]] const bool all = raw_peer_s(AF_UNIX).send(bytes);  // the daemon may hang up first
        EXPECT_EQ(ask("data_analytics"), off);
    }
    EXPECT_EQ(reader.exit(), 0);
}

// Each of the two doors is full, and the next client has its answer all the same.
TEST(HostileClients, takeNoPlaceFromTheNextClient) {
    // The console shows each line of the log at once.
    reader_s reader({.arguments = {"--no_rxe", "--cli"}, .server = false, .awaitReady = false});
    const rlimit few{256, 256};
    ASSERT_EQ(prlimit(reader.daemon->pid, RLIMIT_NOFILE, &few, nullptr), 0);
    ASSERT_EQ(ask("data_analytics STRING"), "Success");
    std::list<raw_peer_s> peers;
    for (const int family : {AF_INET, AF_UNIX}) {
        for (int i = 0; i < 300; ++i) {
            peers.emplace_back(family);
        }
        EXPECT_EQ(ask("data_analytics"), "Success: data_analytics STRING");
    }
    EXPECT_TRUE(reader.daemon->waitForOutput(" connections to tcp port 5160 refused"));
    peers.clear();
    EXPECT_EQ(reader.exit(), 0);
}

TEST(HostileClients, subscribeToNoMoreThanThereIsRoomFor) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = 512;
    setrlimit(RLIMIT_NOFILE, &limit);
    reader_s reader({.arguments = {"--no_rxe"}, .server = false});
    prlimit(reader.daemon->pid, RLIMIT_NOFILE, nullptr, &limit);
    EXPECT_EQ(limit.rlim_cur, limit.rlim_max) << "as many subscribers as the system allows";
    ASSERT_EQ(ask("data_analytics STRING"), "Success");
    // As a subscriber of ZMTP 3.0 with mechanism NULL, which waits for the greeting of the other side.
    const std::string greeting =
        "\xFF" + std::string(8, '\0') + "\x7F\3" + '\0' + "NULL" + std::string(48, '\0');
    const std::string ready("\4\x19\5READY\13Socket-Type\0\0\0\3SUB", 27);
    const auto subscribe = [&](const std::string& bytes) {
        const raw_peer_s peer(AF_INET);
        std::string answer(64, '\0');
        return peer.send(greeting) && recv(peer.fd, answer.data(), answer.size(), MSG_WAITALL) == 64 &&
               peer.send(ready) && peer.send(bytes) && peer.isKept();
    };
    std::string many;
    for (int i = 0; i < 300'000; ++i) {
        many += std::string("\0\x0A\1", 3) + std::to_string(100'000'000 + i);
    }
    [[maybe_unused]] const long before = memory(reader);
    EXPECT_FALSE(subscribe(many));
    EXPECT_FALSE(subscribe(std::string("\2\0\0\0\0\2\0\0\0", 9) + std::string(0x2000000, '\1')));
    EXPECT_TRUE(subscribe(many.substr(0, 24)));
#if !defined __SANITIZE_ADDRESS__ && !defined __SANITIZE_THREAD__  // which keep what was freed
    EXPECT_LT(memory(reader), before + 16'000);
#endif
    EXPECT_EQ(reader.exit(), 0);
}

}  // namespace
