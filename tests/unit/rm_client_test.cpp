// SPDX-License-Identifier: MIT
#include "rm_client.hpp"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <future>
#include <stdexcept>
#include <vector>

#include "util.hpp"

// While set, sending fails on this thread as on a connection that the server has reset.
static thread_local bool sendFails = false;

// Takes the place of the C library's.
extern "C" ssize_t send(int descriptor, const void* data, size_t size, int flags) {
    errno = EPIPE;
    return sendFails ? -1 : sendto(descriptor, data, size, flags, nullptr, 0);
}

namespace {

// Serves one connection for each answer, one after another. Returns the requests.
std::vector<std::string> serve(int listener, const std::vector<std::string>& answers) {
    std::vector<std::string> requests;
    for (const std::string& answer : answers) {
        const int client = accept(listener, nullptr, nullptr);
        char buffer[8192];
        const ssize_t size = recv(client, buffer, sizeof buffer, 0);
        requests.emplace_back(buffer, size > 0 ? static_cast<std::size_t>(size) : 0);
        send(client, answer.data(), answer.size(), MSG_NOSIGNAL);
        close(client);
    }
    return requests;
}

struct fake_server_s {
    int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::future<std::vector<std::string>> requests;

    explicit fake_server_s(const std::vector<std::string>& answers) {
        const int yes = 1;
        setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
        sockaddr_in address{AF_INET, htons(50009), {htonl(INADDR_LOOPBACK)}, {}};
        if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
            listen(listener, 4) != 0) {
            throw std::runtime_error("port 50009 is taken");
        }
        requests = std::async(std::launch::async, serve, listener, answers);
    }
    ~fake_server_s() {
        shutdown(listener, SHUT_RDWR);  // for a client that did not come
        if (requests.valid()) {
            requests.wait();
        }
        close(listener);
    }
};

std::string reply(const std::string& body, const std::string& code = "0") {
    return "<rm:reply xmlns:rm=\"urn:epcglobal:rm:xsd:1\" xmlns:v=\"urn:brixrfid:rm:xsd:1\"><rm:resultCode>" +
           code + "</rm:resultCode>" + body + "</rm:reply>";
}

std::string reader(const std::string& body) {
    return reply("<v:readerDevice>" + body + "</v:readerDevice>");
}

std::string value(const std::string& command, const std::string& returned) {
    return "<v:" + command + "><v:returnValue>" + returned + "</v:returnValue></v:" + command + ">";
}

std::string hardwareAddress() {
    std::string text = "00:00:00:00:00:00";
    std::ifstream("/sys/class/net/eth0/address") >> text;
    toUpper(&text);
    return text;
}

// A request as it goes out; the blanks are what is left of its indentation.
std::string request(const std::string& id, const std::string& command,
                    const std::string& target = "<rm:targetName/>",
                    const std::string& device = "readerDevice") {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
           "<rm:command xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\""
           " xmlns:rm=\"urn:epcglobal:rm:xsd:1\" xmlns:epcglobal=\"urn:epcglobal:xsd:1\""
           " xmlns:brixrm=\"urn:brixrfid:rm:xsd:1\">  <rm:id>" +
           id + "</rm:id>  " + target + "  <brixrm:" + device + ">    <brixrm:sessionID>" +
           hardwareAddress() + "</brixrm:sessionID>    " + command + "  </brixrm:" + device +
           "></rm:command>";
}

TEST(RmClient, RequestsAndValues) {
    const std::string details = reader(
        "<v:getReaderDetails><v:HostName>dock &amp; door</v:HostName><v:NumPorts>8</v:NumPorts>"
        "<v:maxTxPowerSupported> 330 </v:maxTxPowerSupported><v:PowerSource>2</v:PowerSource>"
        "</v:getReaderDetails>");
    fake_server_s server({
        reader(value("getModel", "PN8200")),
        reader(value("getActiveRegion",
                     "<v:regionName>old</v:regionName><v:regionName>A &amp; B</v:regionName>")),
        reader(value("getRegionStandardList",
                     "<v:list><v:value><v:channelWidth>500.5</v:channelWidth></v:value></v:list>")),
        reader(value("getActiveRegion", "<v:standardName>FCC</v:standardName>")),
        details,
        details,
        reply("<v:antennaReadPoint><v:getCableLossCompensation><v:cableLossPerHundredFt>-12"
              "</v:cableLossPerHundredFt><v:cableLength>30</v:cableLength></v:getCableLossCompensation>"
              "</v:antennaReadPoint>"),
    });
    std::string model, region, standard, mac, host;
    float width = 0;
    int got[5] = {};
    const std::vector<int> results = {getModel(&model),
                                      getActiveRegionNameAndChannelWidth(&region, &width),
                                      getActiveStandardName(&standard),
                                      getReaderDetails(&mac, &host),
                                      getReaderDetails(&got[0], &got[1], &got[2]),
                                      getCableLossCompensation(3, &got[3], &got[4])};
    EXPECT_EQ(results, std::vector<int>(6));
    EXPECT_EQ((std::vector{model, region, standard, mac, host}),
              (std::vector<std::string>{"PN8200", "A & B", "FCC", hardwareAddress(), "dock & door"}));
    EXPECT_FLOAT_EQ(width, 500.5F);
    EXPECT_EQ(std::vector<int>(got, got + 5), (std::vector{8, 330, 2, -12, 30}));
    const std::vector<std::string> expected = {
        request("100", "<brixrm:getModel/>"),
        request("100", "<brixrm:getActiveRegion/>"),
        request("100",
                "<brixrm:getRegionStandardList>      <brixrm:regionName>A &amp; B</brixrm:regionName>      "
                "<brixrm:requestChannelList>false</brixrm:requestChannelList>    "
                "</brixrm:getRegionStandardList>"),
        request("100", "<brixrm:getActiveRegion/>"),
        request("104", "<brixrm:getReaderDetails/>"),
        request("104", "<brixrm:getReaderDetails/>"),
        request("104", "<brixrm:getCableLossCompensation/>", "<rm:targetName>Read Point 3</rm:targetName>",
                "antennaReadPoint"),
    };
    EXPECT_EQ(server.requests.get(), expected);
}

TEST(RmClient, AnswersOfManyKinds) {
    const std::string device = "<v:readerDevice>" + value("getModel", "PN5100") + "</v:readerDevice>";
    const std::string good = reply(device);
    const std::string open = good.substr(0, good.size() - std::string("</rm:reply>").size());
    struct case_s {
        const char* legend;
        std::string answer;
        int result;
        const char* printed;  // a part of what stands on standard output
    };
    const case_s cases[] = {
        {"closes without an answer", "", -1, "RM socket closed by server:"},
        {"garbage", "\xFF\xFE<<<>&", -1, "Invalid RM Response no response code tag in response\n"},
        {"a value in spite of an error", reply("<rm:error><rm:name>BUSY</rm:name></rm:error>" + device, "5"),
         -1, "error code: 5, name: BUSY, Invalid RM Response: no error description tag in response\n"},
        {"an error with all its parts",
         reply("<rm:error><rm:name>N</rm:name><rm:description>D</rm:description>"
               "<v:customErrorCode>42</v:customErrorCode></rm:error>",
               "1"),
         -1, "error code: 1, name: N, desc: D, custom error code: 42\n"},
        {"no value", reader(""), -1, ""},
        {"never ends", open, -1, "Invalid RM Response no response code tag in response\n"},
        {"whole, but without the mark \"reply>\"", open + "</rm:reply >", 0, ""},
        {"text behind the reply", good + "<rest", 0, ""},
        {"fills the whole buffer", std::string(4096, 'x'), -1, "Invalid RM Response"},
        {"the reply ends with the buffer", open + std::string(4096 - good.size(), ' ') + "</rm:reply>", 0,
         ""},
        {"entities", "<!DOCTYPE r [<!ENTITY e 'PN5100'>]>" + reader(value("getModel", "&e;")), -1,
         "Invalid RM Response"},
    };
    for (const case_s& row : cases) {
        SCOPED_TRACE(row.legend);
        fake_server_s server({row.answer});
        std::string text = "untouched";
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        EXPECT_EQ(getModel(&text), row.result);
        EXPECT_NE(testing::internal::GetCapturedStdout().find(row.printed), std::string::npos);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
        EXPECT_EQ(text, row.result == 0 ? "PN5100" : "untouched");
    }
}

TEST(RmClient, ResultsOfOneExchange) {
    char answer[rmReplyBufferSize] = "untouched";
    EXPECT_EQ(processRMRequest(nullptr, answer), 0);
    EXPECT_EQ(processRMRequest("", answer), 0);
    EXPECT_STREQ(answer, "untouched");
    EXPECT_EQ(processRMRequest("<x/>", answer), 2) << "nobody listens";

    fake_server_s server({"", "", "<r>"});
    sendFails = true;
    EXPECT_EQ(processRMRequest("<x/>", answer), 2) << "the request does not leave";
    sendFails = false;
    EXPECT_EQ(processRMRequest("<x/>", answer), 4);
    EXPECT_EQ(processRMRequest("<x/>", answer), 0);
    EXPECT_STREQ(answer, "<r>") << "nothing of what stood there before";
}

TEST(RmClient, WithoutTheInterfaceTheAddressIsAllZeros) {
    EXPECT_EQ(GetMacAddress("nosuchif0"), 0);
    CreateBrixRMHeader(1, false, nullptr, false, true);
    CreateRequestXML();
    EXPECT_NE(m_pXMLRequestString.find(">00:00:00:00:00:00<"), std::string::npos);
}

}  // namespace
