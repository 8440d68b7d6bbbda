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

// Refused, all but the last, and the mode in force stays as it was.
TEST(HostileClients, harmNoModeAndLeaveNoMemoryBehind) {
    reader_s reader;
    const auto request = [](const std::string& keys) { return R"(mode {"type":"SIMPLE",)" + keys + "}"; };
    const auto list = [](int count, const std::string& element) {
        std::string all = "[" + element;
        while (--count > 0) {
            all += "," + element;
        }
        return all + "]";
    };
    const auto memory = [&] {
        const std::string status = readTextFile("/proc/" + std::to_string(reader.daemon->pid) + "/status");
        return std::stol(status.substr(status.find("VmRSS:") + 6));  // KiB
    };
    const std::string megabytes = '"' + std::string(10'000'000, 'x');
    const std::string select =
        R"({"target":"SL","action":"ASSERTSL_NOTHING","membank":"EPC","pointer":0,"length":0,"mask":""})";
    const std::string kill = R"({"type":"KILL","config":{"password":"00000001"}})";
    const std::string noJson = "mode request does not contain a valid json object: Received: {";
    const std::pair<std::string, std::string> cases[] = {
        {R"("x":)" + std::string(100'000, '['), noJson},
        {"\"x\":\"\xC3\x28\"", noJson},
        {R"("x":)" + megabytes, noJson},
        {R"("type":)" + megabytes + '"', R"(value provided for "type" must be)"},
        {R"("type":"BEARING")", "BEARING operating mode type can only be used on the QDX4400"},
        {R"("linkProfile":18446744073709551616)", R"("linkProfile" field must contain a number or)"},
        {R"("antennas":)" + list(1024, "2"), R"(mode json payload mode "antennas" list must)"},
        {R"("antennas":[1],"selects":[)" + list(33, select) + "]", R"(Number of unique "selects" objects)"},
        {R"("accesses":)" + list(65, kill), R"(Number of unique "accesses" objects must be less than (64))"},
    };
    [[maybe_unused]] const long before = memory();
    const std::string mode = ask("mode verbose");
    for (int round = 0; round < 3; ++round) {
        for (const auto& [keys, told] : cases) {
            const std::string text = request(keys), reply = ask(text);
            EXPECT_TRUE(reply.starts_with("Failure: " + told)) << reply.substr(0, 200);
            EXPECT_EQ(reply.ends_with(text.substr(5)), told == noJson) << told;
            EXPECT_EQ(ask("mode verbose"), mode) << told;
        }
        EXPECT_EQ(ask(request(R"("query":{},"x":)" + megabytes + '"')), "Success");
    }
    EXPECT_EQ(ask(request(R"("accesses":)" + list(33, kill))), "Success");
    EXPECT_EQ(ask(request(R"("antennas":)" + list(1023, "2"))), "Success");
#if !defined __SANITIZE_ADDRESS__ && !defined __SANITIZE_THREAD__  // which keep what was freed
    EXPECT_LT(memory(), before + 16'000) << "the log alone keeps the 10 MB of its longest line";
#endif
    EXPECT_EQ(reader.exit(), 0);
}

}  // namespace
