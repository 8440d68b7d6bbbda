// SPDX-License-Identifier: MIT
// What MQTT demands of topics.
#pragma once

#include <string>
#include <string_view>
#include <vector>

// What is wrong with a topic in which the placeholders `allowed` may stand; empty when nothing is.
std::string findTopicMistake(std::string_view text, const std::vector<std::string_view>& allowed);

// For pattern_c. In a value only letters, digits and - . _ ~ : stay; any other byte becomes %XX, so that a
// value is one level and never a wildcard. A value that the entry does not have is "-".
void appendTopicLevel(std::string_view value, std::string* topic);
