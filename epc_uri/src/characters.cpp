// SPDX-License-Identifier: MIT
#include "characters.hpp"

#include <array>
#include <string_view>

namespace {

constexpr std::string_view capitals = "ABCDEFGHIJKLMNOPQRSTUVWXYZ";
constexpr std::string_view small = "abcdefghijklmnopqrstuvwxyz";
constexpr std::string_view decimals = "0123456789";
// GS1 TDS 1.13, annex A; annex G for six bits.
constexpr std::string_view sevenBitMarks = "!\"%&'()*+,-./:;<=>?_";
constexpr std::string_view escapedMarks = "\"#%&/<>?";
constexpr std::string_view sixBitMarks = "#-/";

// The character by its value in the EPC; '\0' where the set has none.
using set_s = std::array<char, 128>;

constexpr void add(set_s* set, std::string_view characters, unsigned mask) {
    for (const char c : characters) {
        (*set)[static_cast<unsigned char>(c) & mask] = c;
    }
}

constexpr set_s makeSevenBit() {
    set_s set{};
    for (const auto part : {capitals, small, decimals, sevenBitMarks}) {
        add(&set, part, 0x7F);
    }
    return set;
}

// A six-bit character is the low six bits of its ASCII code.
constexpr set_s makeSixBit() {
    set_s set{};
    for (const auto part : {capitals, decimals, sixBitMarks}) {
        add(&set, part, 0x3F);
    }
    return set;
}

constexpr set_s makeEscaped() {
    set_s set{};
    add(&set, escapedMarks, 0x7F);
    return set;
}

constexpr auto sevenBit = makeSevenBit();
constexpr auto sixBit = makeSixBit();
constexpr auto escaped = makeEscaped();

}  // namespace

char sevenBitCharacter(std::uint64_t value) {
    return sevenBit[value & 0x7F];
}

char sixBitCharacter(std::uint64_t value) {
    return sixBit[value & 0x3F];
}

bool isCageCharacter(char character) {
    return (character >= '0' && character <= '9') ||
           (character >= 'A' && character <= 'Z' && character != 'I' && character != 'O');
}

bool isEscaped(char character) {
    return escaped[static_cast<unsigned char>(character) & 0x7F] != '\0';
}
