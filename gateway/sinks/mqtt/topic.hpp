// SPDX-License-Identifier: MIT
// Topics with placeholders: "tarnwick/{reader}/{stream}".
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "event.hpp"

// The names that {...} may hold in a topic of events.
std::vector<std::string_view> topicPlaceholders();

// What is wrong with a topic in which the placeholders `allowed` may stand; empty when nothing is.
std::string findTopicMistake(std::string_view text, const std::vector<std::string_view>& allowed);

// The topic of an entry. In a value only letters, digits and - . _ ~ : stay; any other byte becomes %XX,
// so that a value is one level and never a wildcard. A value that the entry does not have is "-".
std::string fillTopic(std::string_view text, const entry_s& entry);
