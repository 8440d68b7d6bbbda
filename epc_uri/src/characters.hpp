// SPDX-License-Identifier: MIT
// The character sets of the codes, and what a character becomes in a URI
// (GS1 EPC Tag Data Standard 1.13, annexes A and G).
#pragma once

#include <cstdint>

// The character of a 7-bit value (annex A, the 82 characters of GS1 element strings): its ASCII
// code. '\0' when the value is not one of them. Only the low 7 bits count.
char sevenBitCharacter(std::uint64_t value);
// The character of a 6-bit value (annex G, A-Z 0-9 # - /): the low 6 bits of its ASCII code. '\0'
// when the value is not one of them. Only the low 6 bits count.
char sixBitCharacter(std::uint64_t value);

// Whether a CAGE code or DoDAAC may have the character: a digit, or a capital other than I and O.
bool isCageCharacter(char character);

// Whether a URI writes the character as % and two digits: " # % & / < > ?
bool isEscaped(char character);
