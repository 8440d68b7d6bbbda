// SPDX-License-Identifier: MIT
// What a word of a request is. These headers hold constants only. The daemon compares a
// request with them, the client offers them and checks what is typed, and the dictionary
// of the fuzzers is made from them.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace vocabulary {

// What follows "name=", or is the whole word when the argument does not have a name.
enum class value_e : std::uint8_t {
    // Nothing follows the name: "disable".
    none,
    // Decimal with or without a fraction, or hexadecimal behind "0x". The daemon knows the range.
    number,
    // 0 to 255, decimal.
    byte,
    // Hexadecimal digits, without "0x".
    hex,
    // HH:MM, 0:00 to 23:59.
    timeOfDay,
    // One of `choices`.
    choice,
};

// One of the texts that a parameter takes, and its number in the record
// which the daemon fills; 0 where the text itself is what counts.
struct choice_s {
    std::string_view word;
    std::uint8_t value = 0;
};

// A word behind a command. Words are compared exactly, capital letters too.
struct argument_s {
    // Empty: the word is the value alone.
    std::string_view name;
    value_e value = value_e::none;
    // In the order in which the client offers them.
    std::span<const choice_s> choices{};
};

}  // namespace vocabulary
