// SPDX-License-Identifier: MIT
#include "rm_client.hpp"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cerrno>
#include <fstream>

#include "support/management_double.hpp"
#include "support/table.hpp"
#include "util.hpp"

// While set, sending fails on this thread as on a connection that the server has reset.
static thread_local bool sendFails = false;

// Takes the place of the C library's.
extern "C" ssize_t send(int descriptor, const void* data, size_t size, int flags) {
    errno = EPIPE;
    return sendFails ? -1 : sendto(descriptor, data, size, flags, nullptr, 0);
}

namespace {

std::string reader(const std::string& body) {
    return managementReply("<v:readerDevice>" + body + "</v:readerDevice>");
}

std::string value(const std::string& command, const std::string& returned) {
    return managementElement(command, managementElement("returnValue", returned));
}

std::string hardwareAddress() {
    std::string text = "00:00:00:00:00:00";
    std::ifstream("/sys/class/net/eth0/address") >> text;
    toUpper(&text);
    return text;
}

TEST(RmClient, RequestsAndValues) {
    const std::string details = reader(
        "<v:getReaderDetails><v:HostName>dock &amp; door</v:HostName><v:NumPorts>8</v:NumPorts>"
        "<v:maxTxPowerSupported> 330 </v:maxTxPowerSupported><v:PowerSource>2</v:PowerSource>"
        "</v:getReaderDetails>");
    const ManagementDouble server({
        reader(value("getModel", "PN8200")),
        reader(value("getActiveRegion",
                     "<v:regionName>old</v:regionName><v:regionName>A &amp; B</v:regionName>")),
        reader(value("getRegionStandardList",
                     "<v:list><v:value><v:channelWidth>500.5</v:channelWidth></v:value></v:list>")),
        reader(value("getActiveRegion", "<v:standardName>FCC</v:standardName>")),
        details,
        details,
        managementReply(
            "<v:antennaReadPoint><v:getCableLossCompensation><v:cableLossPerHundredFt>-12"
            "</v:cableLossPerHundredFt><v:cableLength>30</v:cableLength></v:getCableLossCompensation>"
            "</v:antennaReadPoint>"),
    });
    std::string model, region, standard, mac, host;
    float width = 0;
    int got[5] = {};
    EXPECT_EQ(getModel(&model), 0);
    EXPECT_EQ(getActiveRegionNameAndChannelWidth(&region, &width), 0);
    EXPECT_EQ(getActiveStandardName(&standard) + getReaderDetails(&mac, &host), 0);
    EXPECT_EQ(getReaderDetails(&got[0], &got[1], &got[2]) + getCableLossCompensation(3, &got[3], &got[4]), 0);
    EXPECT_EQ((std::vector{model, region, standard, mac, host}),
              (std::vector<std::string>{"PN8200", "A & B", "FCC", hardwareAddress(), "dock & door"}));
    EXPECT_FLOAT_EQ(width, 500.5F);
    EXPECT_EQ(std::vector<int>(got, got + 5), (std::vector{8, 330, 2, -12, 30}));
    std::vector<std::string> expected;
    for (table_row_s& row : readRows("unit/rm_requests.txt")) {
        const std::string address = "ADDRESS";
        expected.push_back(row.right.replace(row.right.find(address), address.size(), hardwareAddress()));
    }
    EXPECT_EQ(server.requests(), expected);
}

TEST(RmClient, AnswersOfManyKinds) {
    const std::string device = "<v:readerDevice>" + value("getModel", "PN5100") + "</v:readerDevice>";
    const std::string good = managementReply(device);
    const std::string open = good.substr(0, good.size() - std::string("</rm:reply>").size());
    const std::string all =
        "<rm:error><rm:name>N</rm:name><rm:description>D</rm:description>"
        "<v:customErrorCode>42</v:customErrorCode></rm:error>";
    const char* const noReply = "something else than a reply";
    // The answer, the result, a part of what stands on standard output, and the cause.
    const std::tuple<std::string, int, const char*, std::string> cases[] = {
        {"", -1, "RM socket closed by server:", "closed the connection"},
        // a value in spite of an error, an error with all its parts, no value
        {managementReply("<rm:error><rm:name>BUSY</rm:name></rm:error>" + device, "5"), -1,
         "error code: 5, name: BUSY, Invalid RM Response: no error description tag in response\n",
         "answered with error code 5"},
        {managementReply(all, "1"), -1, "error code: 1, name: N, desc: D, custom error code: 42\n",
         "error code 1"},
        {reader(""), -1, "", "without what it was asked for"},
        {open, -1, "Invalid RM Response no response code tag in response\n", noReply},
        // without the mark "reply>"; then too long, and ending with the buffer
        {open + "</rm:reply >", 0, "", ""},
        {good + "<rest", 0, "", ""},
        {std::string(4096, 'x'), -1, "Invalid RM Response", noReply},
        {open + std::string(4096 - good.size(), ' ') + "</rm:reply>", 0, "", ""},
        {"<!DOCTYPE r [<!ENTITY e 'x'>]>" + reader(value("getModel", "&e;")), -1, "Invalid RM Response",
         noReply},
    };
    for (const auto& [answer, result, printed, cause] : cases) {
        SCOPED_TRACE(answer);
        const ManagementDouble server({answer});
        std::string text = "untouched";
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        EXPECT_EQ(getModel(&text), result);
        EXPECT_NE(testing::internal::GetCapturedStdout().find(printed), std::string::npos);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
        EXPECT_EQ(text, result == 0 ? "PN5100" : "untouched");
        EXPECT_NE(std::string(managementFailure()).find(cause), std::string::npos) << managementFailure();
    }
}

TEST(RmClient, ResultsOfOneExchange) {
    char answer[rmReplyBufferSize] = "untouched";
    EXPECT_EQ(processRMRequest(nullptr, answer), 0);
    EXPECT_EQ(processRMRequest("", answer), 0);
    EXPECT_STREQ(answer, "untouched");
    EXPECT_EQ(processRMRequest("<x/>", answer), 2) << "nobody listens";
    EXPECT_STREQ(managementFailure(),
                 "the Reader Management server at 127.0.0.1:50009 cannot be reached: Connection refused");

    const ManagementDouble server({"", "", "<r>"});
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
