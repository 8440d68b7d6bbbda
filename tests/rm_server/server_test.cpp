// SPDX-License-Identifier: MIT
// The stand-in server as its clients meet it: a real process, a socket for each
// request, one read of up to 4,096 bytes.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <stdexcept>

#include "support/process.hpp"
#include "support/temp_dir.hpp"

namespace {

using std::chrono::milliseconds;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

const std::string program = TARNWICK_BIN_DIR "/rm_server";
const std::string namespaces = R"( xmlns:rm="urn:epcglobal:rm:xsd:1" xmlns:brixrm="urn:brixrfid:rm:xsd:1")";

// On a free port; its last line tells which.
struct server_s {
    explicit server_s(std::vector<std::string> arguments) : process(program, {with(arguments), {}, {}}) {
        if (!process.waitForOutput("(")) {
            throw std::runtime_error("not ready: " + process.output());
        }
        const auto text = process.output();
        port = static_cast<std::uint16_t>(std::stoi(text.substr(text.find(':', text.find("127.0.0.1")) + 1)));
    }
    static std::vector<std::string> with(std::vector<std::string> arguments) {
        arguments.insert(arguments.end(), {"--port", "0"});
        return arguments;
    }
    process_s process;
    std::uint16_t port = 0;
};

struct client_s {
    explicit client_s(std::uint16_t port) : fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
            throw std::runtime_error("no connection");
        }
    }
    ~client_s() { close(fd); }
    client_s(const client_s&) = delete;
    client_s& operator=(const client_s&) = delete;

    void say(std::string_view text) const { send(fd, text.data(), text.size(), MSG_NOSIGNAL); }

    // One read. Nothing: the server said nothing in time. Empty: it closed.
    std::optional<std::string> hear(milliseconds patience = defaultPatience) const {
        const timeval time{patience.count() / 1000, patience.count() % 1000 * 1000};
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &time, sizeof(time));
        std::array<char, 4096> bytes{};
        const auto count = recv(fd, bytes.data(), bytes.size(), 0);
        return count < 0 ? std::nullopt
                         : std::optional(std::string(bytes.data(), static_cast<std::size_t>(count)));
    }
    int fd;
};

// A request as clients write it, on one line with a declaration in front.
std::string request(const std::string& command, const std::string& target = "") {
    const std::string device = target.empty() ? "brixrm:readerDevice" : "brixrm:antennaReadPoint";
    return R"(<?xml version="1.0" encoding="UTF-8"?><rm:command xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance")" +
           namespaces + "><rm:id>104</rm:id><rm:targetName>" + target + "</rm:targetName><" + device +
           "><brixrm:sessionID>00:00:00:00:00:00</brixrm:sessionID>" + command + "</" + device +
           "></rm:command>";
}

std::string reply(const std::string& content) {
    return "<rm:reply" + namespaces + "><rm:id>104</rm:id>" + content + "</rm:reply>";
}

std::string goodReply(const std::string& content) {
    return reply("<rm:resultCode>0</rm:resultCode>" + content);
}

// Elements one within the other: "readerDevice/getModel".
std::string element(const std::string& path, const std::string& content) {
    const std::size_t slash = path.find('/');
    const std::string name = path.substr(0, slash);
    return "<brixrm:" + name + ">" +
           (slash == std::string::npos ? content : element(path.substr(slash + 1), content)) +
           "</brixrm:" + name + ">";
}

std::optional<std::string> ask(const server_s& server, const std::string& text,
                               milliseconds patience = defaultPatience) {
    const client_s client(server.port);
    client.say(text);
    return client.hear(patience);
}

const std::string getModel = request("<brixrm:getModel/>");
const std::string modelReply = goodReply(element("readerDevice/getModel/returnValue", "PN5100"));

constexpr const char* fullProfile =
    R"({"model": "A&B <1>", "hostName": "reader", "regionName": "Japan reply>", "standardName": "Japan 4W",
 "channelWidth": 1200, "ports": 3, "maxTxPower": 270, "powerSource": 2,
 "cables": [{"lossPerHundredFt": 4, "length": 25}, {"lossPerHundredFt": -1, "length": 30}]})";

std::string write(const temp_dir_s& directory, const std::string& text) {
    writeTextFile(directory.path / "profile.json", text);
    return directory.path / "profile.json";
}

// A run that ends by itself: its exit status and, behind a blank, what it printed.
std::string run(const std::vector<std::string>& arguments) {
    process_s process(program, {arguments, {}, {}});
    const int status = process.waitForExit().value_or(-1);
    return std::to_string(status) + ' ' + process.output();
}

// The query without parameters; `target` is an antenna's name.
std::string query(const std::string& name, const std::string& target = "") {
    return request("<brixrm:" + name + "/>", target);
}

const std::string cableLoss = "getCableLossCompensation";

}  // namespace

TEST(RmServer, AnswersEveryQueryFromTheProfileThatItPrints) {
    const temp_dir_s directory;
    const auto printed = run({"--profile", write(directory, fullProfile), "--print-profile"});
    ASSERT_THAT(printed, StartsWith("0 "));
    const server_s server({"--verbose", "--profile", write(directory, printed.substr(2))});
    const std::string cable = "antennaReadPoint/" + cableLoss;
    // Request, path and content of the answer.
    const std::array<std::string, 3> cases[] = {
        // the model, escaped
        {getModel, "readerDevice/getModel/returnValue", "A&amp;B &lt;1&gt;"},
        {query("getActiveRegion"), "readerDevice/getActiveRegion/returnValue",
         element("regionName", "Japan reply&gt;") + element("standardName", "Japan 4W")},
        {request(
             "<brixrm:getRegionStandardList><brixrm:regionName>Japan reply&gt;</brixrm:regionName>"
             "<brixrm:requestChannelList>false</brixrm:requestChannelList></brixrm:getRegionStandardList>"),
         "readerDevice/getRegionStandardList/returnValue/list/value",
         element("standardName", "Japan 4W") + element("channelWidth", "1200")},
        {query("getReaderDetails"), "readerDevice/getReaderDetails",
         element("HostName", "reader") + element("NumPorts", "3") + element("maxTxPowerSupported", "270") +
             element("PowerSource", "2")},
        {query(cableLoss, "Read Point 2"), cable,
         element("cableLossPerHundredFt", "-1") + element("cableLength", "30")},
        // an antenna without an entry has no loss
        {query(cableLoss, "Read Point 3"), cable,
         element("cableLossPerHundredFt", "0") + element("cableLength", "0")},
    };
    for (const auto& [request, path, content] : cases) {
        EXPECT_EQ(ask(server, request), goodReply(element(path, content)));
    }
    EXPECT_TRUE(server.process.waitForOutput("rm_server: getModel"));
}

TEST(RmServer, RefusesWhatItCannotAnswerAndLivesOn) {
    const server_s server({});
    const std::string unsupported = "2 ERROR_COMMAND_NOT_SUPPORTED", notFound = "3 ERROR_OBJECT_NOT_FOUND";
    const std::string malformed = "1 ERROR_MALFORMED_COMMAND";
    const std::pair<std::string, std::string> cases[] = {
        // unknown command
        {query("reboot"), unsupported},
        // a command of the other device
        {query("getModel", "Read Point 1"), unsupported},
        // antenna 0
        {query(cableLoss, "Read Point 0"), notFound},
        // antenna 5 of 4
        {query(cableLoss, "Read Point 5"), notFound},
        // no antenna
        {query(cableLoss, "Read Point 1a"), notFound},
        // another region
        {request("<brixrm:getRegionStandardList><brixrm:regionName>Mars</brixrm:regionName>"
                 "</brixrm:getRegionStandardList>"),
         "4 ERROR_INVALID_VALUE"},
        // two commands
        {request("<brixrm:getModel/><brixrm:getModel/>"), malformed},
        // no command
        {request(""), malformed},
        // no XML
        {"\x01\xff</command>", malformed},
        // entities
        {"<!DOCTYPE a [<!ENTITY b \"c\">]><rm:command" + namespaces + ">&b;</rm:command>", malformed},
        // no namespace
        {"<command><getModel/></command>", malformed},
        // too long
        {std::string(100000, 'x'), "1 ERROR_COMMAND_TOO_LONG"},
    };
    for (const auto& [request, error] : cases) {
        SCOPED_TRACE(request.substr(0, 400));
        const auto answer = ask(server, request).value_or("nothing");
        EXPECT_THAT(answer,
                    HasSubstr("<rm:resultCode>" + error.substr(0, 1) + "</rm:resultCode><rm:error><rm:name>" +
                              error.substr(2) + "</rm:name><rm:description>"));
        EXPECT_THAT(answer, HasSubstr("</rm:description><brixrm:customErrorCode>"));
        EXPECT_EQ(ask(server, getModel), modelReply);
    }
}

TEST(RmServer, ClientsThatDoNotBehave) {
    const server_s server({"--timeout", "1000"});
    const client_s quiet(server.port), half(server.port), ended(server.port), pieces(server.port);
    half.say("<rm:command");
    { const client_s gone(server.port); }
    ended.say("<rm:command");
    shutdown(ended.fd, SHUT_WR);
    EXPECT_THAT(ended.hear().value_or("nothing"), HasSubstr("ERROR_MALFORMED_COMMAND"));

    // A request in pieces, the cut within its last word; none of the others is in its way.
    const auto text = request("<brixrm:getModel><brixrm:subcommand></brixrm:subcommand></brixrm:getModel>");
    const std::size_t cuts[] = {0, 10, text.size() - 5, text.size()};
    for (std::size_t i = 0; i + 1 < std::size(cuts); ++i) {
        EXPECT_EQ(pieces.hear(milliseconds(20)), std::nullopt);
        pieces.say(text.substr(cuts[i], cuts[i + 1] - cuts[i]));
    }
    EXPECT_EQ(pieces.hear(), modelReply);
    EXPECT_EQ(quiet.hear(), "") << "let go after its time";
    EXPECT_EQ(half.hear(), "");
}

TEST(RmServer, Faults) {
    const std::string model = element("readerDevice/getModel/returnValue", "PN5100");
    const std::string twice =
        element("readerDevice/getModel", element("returnValue", "0") + element("returnValue", "PN5100"));
    const std::pair<const char*, std::optional<std::string>> cases[] = {
        {"none", modelReply},
        {"silent", std::nullopt},
        {"close", ""},
        {"garbage", "\x01\x02 no <XML & no marker \xff\xfe"},
        {"truncated", modelReply.substr(0, modelReply.size() / 2)},
        {"no-marker", modelReply.substr(0, modelReply.size() - 1) + " >"},
        {"trailing", modelReply + "<rm:more/> & what follows"},
        {"result-code", reply("<rm:resultCode>5</rm:resultCode><rm:error><rm:name>ERROR_UNKNOWN</rm:name>"
                              "<rm:description>failing on request</rm:description>" +
                              element("customErrorCode", "501") + "</rm:error>" + model)},
        {"bare-error", reply("<rm:resultCode>5</rm:resultCode><rm:error/>" + model)},
        {"missing-result-code", reply(model)},
        {"missing-value", goodReply("<brixrm:readerDevice><brixrm:getModel/></brixrm:readerDevice>")},
        {"double-value", goodReply(twice)},
    };
    for (const auto& [fault, expected] : cases) {
        const server_s server({"--fault", fault});
        EXPECT_EQ(ask(server, getModel, expected ? defaultPatience : milliseconds(200)), expected) << fault;
    }
}

TEST(RmServer, AFaultKeepsToItsQueryCountAndValue) {
    const server_s server({"--fault", "missing-value", "--fault-query", "getReaderDetails", "--fault-value",
                           "PowerSource", "--fault-after", "1", "--fault-count", "2"});
    const auto details = query("getReaderDetails");
    for (const bool isMissing : {false, true, true, false}) {
        EXPECT_EQ(ask(server, getModel), modelReply);
        const auto answer = ask(server, details).value_or("");
        EXPECT_EQ(answer.find("PowerSource") == std::string::npos, isMissing);
        EXPECT_THAT(answer, HasSubstr("<brixrm:NumPorts>4</brixrm:NumPorts>"));
    }
}

TEST(RmServer, RefusedProfilesNameTheirKey) {
    const temp_dir_s directory;
    // What is changed in the full profile, into what, and what is said.
    const std::array<std::string, 3> cases[] = {
        {"{", "", "not valid JSON"},
        {"\"ports\"", "\"port\"", "key \"port\" is not known"},
        {"\"ports\": 3,", "", "key \"ports\" is missing"},
        {"\"ports\": 3", "\"ports\": 0", "key \"ports\" must be an integer from 1 to 64"},
        {"\"ports\": 3", "\"ports\": 1", "key \"cables\" must be an array of at most 1"},
        {"270", "\"270\"", "key \"maxTxPower\""},
        {"270", "18446744073709551615", "key \"maxTxPower\""},
        {"1200", "-1", "key \"channelWidth\""},
        {"Japan 4W", "Japan\\n4W", "key \"standardName\""},
        {"\"length\": 30", "\"length\": 1e3", "key \"cables[1].length\""},
        {"\"length\": 30", "\"feet\": 30", "key \"cables[1].feet\" is not known"},
    };
    for (const auto& [from, to, said] : cases) {
        std::string text = fullProfile;
        text.replace(text.find(from), from.size(), to);
        const auto result = run({"--profile", write(directory, text)});
        EXPECT_THAT(result, AllOf(StartsWith("1 "), HasSubstr(said)));
        EXPECT_EQ(result.find('\n'), result.size() - 1) << "one line: " << result;
    }
    for (const char* builtIn : {"PN5100", "PN8200", "QDX4400"}) {
        const auto printed = run({"--profile", builtIn, "--print-profile"});
        EXPECT_EQ(run({"--profile", write(directory, printed.substr(2)), "--print-profile"}), printed);
    }
    EXPECT_THAT(run({"--profile", "PN9999"}), StartsWith("1 "));
    EXPECT_THAT(run({"--fault", "sulking"}), StartsWith("1 "));
    EXPECT_THAT(run({"--port", "99999"}), StartsWith("1 rm_server: "));
}

TEST(RmServer, StartsAndEnds) {
    for (const int signal : {SIGTERM, SIGINT}) {
        server_s server({"--profile", "QDX4400"});
        const auto port = std::to_string(server.port);
        EXPECT_EQ(server.process.output(), "rm_server: listening on 127.0.0.1:" + port + " (QDX4400)\n");
        EXPECT_THAT(run({"--port", port}),
                    AllOf(StartsWith("1 "), HasSubstr("cannot listen on 127.0.0.1:" + port)));
        server.process.signal(signal);
        EXPECT_EQ(server.process.waitForExit(), 0);
    }
}
