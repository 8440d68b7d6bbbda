// SPDX-License-Identifier: MIT
// Texts with placeholders, as topics and keys are: "tarnwick/{reader}/{stream}".
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "event.hpp"

// Appends a value to a text in the way that its receiver needs. It is empty when the entry has none.
using append_value_t = void (*)(std::string_view value, std::string* text);
void appendAsIs(std::string_view value, std::string* text);

class pattern_c {
  public:
    // Placeholders that do not exist become nothing: findPatternMistake() or the schema tells of them.
    explicit pattern_c(std::string_view text, append_value_t append = appendAsIs);

    std::string fill(const entry_s& entry) const;

  private:
    struct part_s {
        std::string literal;
        std::string_view (*valueOf)(const entry_s& entry);  // what follows it; nullptr: nothing
    };
    std::vector<part_s> parts;
    append_value_t appendValue;
};

// The names that {...} may hold: reader, stream, antenna, epc and type.
std::vector<std::string_view> placeholderNames();

// "{rfid} is not a placeholder; use {reader}" for the last that is not among `allowed`; empty when all are.
std::string findWrongPlaceholder(std::string_view text, const std::vector<std::string_view>& allowed);

// The text between the placeholders. A brace without its other half is part of it.
std::string literalsOf(std::string_view text);
