// SPDX-License-Identifier: MIT
// Why a tag is not reported: rules that turn facts into sentences. Each is a row of the table in
// rules.cpp. docs/why.md has all of them with what they look like.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "facts.hpp"

namespace why {

// One explanation, or that the tag is reported.
struct reason_s {
    std::string_view rule;  // the rule's word, which stays the same for programs
    std::string text;       // a sentence for people
    std::string remedy;     // what to do, a sentence in the imperative
};

// All that explains why the tag is not reported, most telling first. Never empty: when nothing
// is found, the last rule says what was looked at.
std::vector<reason_s> explain(const facts_s& facts);

// Whether a report of the tag left while somebody was subscribed.
bool isReported(const facts_s& facts);

// "heard 37 times in 10 s on antenna 2, at best -61 dBm".
std::string summary(const facts_s& facts);

}  // namespace why
