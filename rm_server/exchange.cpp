// SPDX-License-Identifier: MIT
#include "exchange.hpp"

#include <utility>

#include "reply.hpp"
#include "request.hpp"

namespace {

// Control characters, an unfinished tag and bytes that are not UTF-8.
constexpr std::string_view garbage = "\x01\x02 no <XML & no marker \xff\xfe";
constexpr std::string_view closingTag = "</rm:reply>";

// The document ends with its closing tag, so a blank there removes the marker.
std::string withoutMarker(std::string reply) {
    reply.replace(reply.size() - closingTag.size(), closingTag.size(), "</rm:reply >");
    return reply;
}

// Applies a fault of the connection or of the bytes to an answer that is otherwise ready.
answer_s spoil(std::string reply, fault_e fault) {
    answer_s answer;
    switch (fault) {
        case fault_e::silent:
            answer.close = false;
            break;
        case fault_e::close:
            break;
        case fault_e::garbage:
            answer.bytes = garbage;
            break;
        case fault_e::truncated:
            answer.bytes = reply.substr(0, reply.size() / 2);
            break;
        case fault_e::noMarker:
            answer.bytes = withoutMarker(std::move(reply));
            break;
        case fault_e::trailing:
            answer.bytes = reply + "<rm:more/> & what follows";
            break;
        default:  // makeReply has applied faults within the document
            answer.bytes = std::move(reply);
            break;
    }
    return answer;
}

}  // namespace

bool isComplete(std::string_view received) {
    return received.size() >= maxRequestLength || requestLength(received) != 0;
}

answer_s answerRequest(std::string_view received, const profile_s& profile, fault_plan_s* plan) {
    // Bytes behind the request are ignored: a connection has one request.
    const auto length = requestLength(received);
    std::string error;
    const auto request = length == 0 ? std::nullopt : parseRequest(received.substr(0, length), &error);
    const auto fault = nextFault(plan, request.has_value() ? request->command : std::string());
    answer_s answer;
    if (request.has_value()) {
        answer = spoil(makeReply(*request, profile, fault, plan->value), fault);
        answer.legend = request->command;
    } else if (length == 0 && received.size() >= maxRequestLength) {
        answer = spoil(makeErrorReply(0, problem_e::tooLong, "no end within the limit"), fault);
        answer.legend = "(too long)";
    } else {
        answer = spoil(
            makeErrorReply(0, problem_e::malformed, length == 0 ? "no closing tag of the command" : error),
            fault);
        answer.legend = "(malformed)";
    }
    return answer;
}
