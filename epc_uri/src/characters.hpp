// SPDX-License-Identifier: MIT
// The character sets of the codes, and what a character becomes in a URI
// (GS1 EPC Tag Data Standard 1.13, annexes A and G).
#pragma once

#include <cstdint>

// What a code value stands for. '\0': the value is not a character of the set.
char sevenBitCharacter(std::uint64_t value);  // the 82 characters of GS1 element strings
char sixBitCharacter(std::uint64_t value);    // A-Z 0-9 # - /

// Digits and capitals that a CAGE code or DoDAAC may have: no I, no O.
bool isCageCharacter(char character);

// True for characters that a URI writes as %xx.
bool isEscaped(char character);
