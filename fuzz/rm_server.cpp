// SPDX-License-Identifier: MIT
// The mouths of the stand-in management server: a request, and its profile.
#include "targets.hpp"

#include "rm_server/exchange.hpp"
#include "rm_server/reply.hpp"

namespace {

// A request: what a client can read comes back, whatever was asked.
void request(std::string_view input) {
    profile_s profile;
    findBuiltInProfile("PN5100", &profile);
    fault_plan_s plan;
    const bool complete = isComplete(input);
    const answer_s answer = answerRequest(input, profile, &plan);
    require(!complete || !answer.bytes.empty(), "a whole request is answered");
    require(answer.bytes.size() <= maxReplyLength, "an answer fits a client's read");
    const std::size_t end = answer.bytes.find("reply>");
    require(answer.bytes.empty() || (end != std::string::npos && end + 6 == answer.bytes.size()),
            "an answer ends with its first \"reply>\"");
}

// A profile that was read is rendered, and the same is read from that.
void profile(std::string_view input) {
    profile_s first;
    std::string error;
    if (!parseProfile(input, &first, &error)) {
        require(!error.empty() && error.find('\n') == std::string::npos, "a refusal is one line");
        return;
    }
    const std::string text = renderProfile(first);
    profile_s second;
    require(parseProfile(text, &second, &error) && renderProfile(second) == text, "a profile is read back");
}

constexpr target_s table[] = {{"rm_request", request}, {"rm_profile", profile}};

}  // namespace

const std::span<const target_s> targets = table;
