// SPDX-License-Identifier: MIT
// The management server's answers, from which the daemon learns at its start the facts about the
// reader.
#include <sys/socket.h>

#include <cerrno>
#include <string>
#include <tuple>
#include <utility>

#include "../targets.hpp"
#include "connection.hpp"
#include "reader.hpp"
#include "reader_facts.hpp"
#include "rm_client.hpp"

namespace {

// The answers that the server has yet to give, with a NUL between them; null: no server listens. The
// byte 01 separates the segments of an answer, which arrive one by one. An answer "=" stands for that of
// a sound server.
const char* const sound = "=";
constexpr char endOfSegment = 1;
std::string_view* script = nullptr;
std::string_view answer;
std::string soundAnswer;
std::string model;

// The value elements of a sound answer by command.
constexpr std::pair<std::string_view, std::string_view> soundValues[] = {
    {"getModel", "<b:returnValue>%</b:returnValue>"},
    {"getReaderDetails",
     "<b:HostName>dock</b:HostName><b:NumPorts>4</b:NumPorts><b:maxTxPowerSupported>315</"
     "b:maxTxPowerSupported>"
     "<b:PowerSource>0</b:PowerSource>"},
    {"getActiveRegion",
     "<b:returnValue><b:regionName>United States</b:regionName><b:standardName>US FCC 15</b:standardName>"
     "</b:returnValue>"},
    {"getRegionStandardList",
     "<b:returnValue><b:list><b:value><b:channelWidth>500</b:channelWidth></b:value></b:list></"
     "b:returnValue>"},
    {"getCableLossCompensation",
     "<b:cableLossPerHundredFt>11</b:cableLossPerHundredFt><b:cableLength>20</b:cableLength>"},
};

std::string soundAnswerTo(std::string_view request) {
    for (const auto& [command, values] : soundValues) {
        if (request.find("brixrm:" + std::string(command)) != request.npos) {
            const std::string element = "b:" + std::string(command);
            const std::string device =
                command == "getCableLossCompensation" ? "b:antennaReadPoint" : "b:readerDevice";
            std::string text =
                "<r:reply xmlns:r=\"urn:epcglobal:rm:xsd:1\" xmlns:b=\"urn:brixrfid:rm:xsd:1\"><r:id>1</r:id>"
                "<r:resultCode>0</r:resultCode><" +
                device + "><" + element + ">" + std::string(values) + "</" + element + "></" + device +
                "></r:reply>";
            if (const std::size_t at = text.find('%'); at != text.npos) {
                text.replace(at, 1, model);
            }
            return text;
        }
    }
    return "";
}

// A question that fails does not change its result.
template <class... Values, class Ask>
void askAndKeep(Ask question, Values... before) {
    std::tuple<Values...> values(before...);
    const int rc = std::apply([question](auto&... each) { return question(&each...); }, values);
    require(rc == 0 || rc == -1, "a question is answered or not");
    require(rc == 0 || values == std::tuple<Values...>(before...), "a failed question changes nothing");
    require(rc == 0 || std::string_view(managementFailure()).starts_with("the Reader Management server "),
            "a failed question has a cause");
}

}  // namespace

// The model in sound answers, then the answers to the questions of a start and of the requests.
void serverReply(std::string_view input) {
    newReader(&input);
    model = readerFacts.modelName;
    script = &input;
    RXE_connected_status = false;
    const bool started = initRXEConnection() == RXE_OK;
    require(started == RXE_connected_status, "a reader that has not started is not connected");
    require(readerFacts.max_ants <= 14, "a reader has up to 14 antennas");
    const std::string& cause = connectionFailureCause();
    require(started || cause == managementFailure() || cause.ends_with(" ports"),
            "a failed start has a cause");
    if (started) {
        modeInForce();
    }
    using text_t = std::string;
    askAndKeep<text_t>([](text_t* a) { return getModel(a); }, "x");
    askAndKeep<text_t>([](text_t* a) { return getActiveStandardName(a); }, "x");
    askAndKeep<int, int, int>([](int* a, int* b, int* c) { return getReaderDetails(a, b, c); }, 7, 7, 7);
    askAndKeep<text_t, text_t>([](text_t* a, text_t* b) { return getReaderDetails(a, b); }, "x", "x");
    askAndKeep<text_t, float>([](text_t* a, float* b) { return getActiveRegionNameAndChannelWidth(a, b); },
                              "x", 7.0F);
    askAndKeep<int, int>([](int* a, int* b) { return getCableLossCompensation(14, a, b); }, 7, 7);
    script = nullptr;
    readerFacts.max_ants = 4;
}

// The linker puts these in place of the system's for the daemon's own code.
extern "C" {
int __wrap_connect(int, const sockaddr*, socklen_t) {
    errno = ECONNREFUSED;
    return script == nullptr || script->empty() ? -1 : 0;
}
ssize_t __wrap_send(int, const void* request, std::size_t size, int) {
    answer = takeUntil('\0', script);
    if (answer == sound) {
        soundAnswer = soundAnswerTo({static_cast<const char*>(request), size});
        answer = soundAnswer;
    }
    return static_cast<ssize_t>(size);
}
ssize_t __wrap_recv(int, void* buffer, std::size_t size, int) {
    std::string_view rest = answer;
    const std::string_view segment = takeUntil(endOfSegment, &rest);
    const std::size_t taken = segment.copy(static_cast<char*>(buffer), size);
    answer = taken == segment.size() ? rest : answer.substr(taken);
    return static_cast<ssize_t>(taken);
}
}
