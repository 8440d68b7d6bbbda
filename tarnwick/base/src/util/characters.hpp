// SPDX-License-Identifier: MIT
// The <cctype> functions for a plain char. A byte above 127 is a negative char, which those functions
// must not get.
#pragma once

#include <cctype>

inline bool isSpace(char character) {
    return std::isspace(static_cast<unsigned char>(character)) != 0;
}

inline bool isHexDigit(char character) {
    return std::isxdigit(static_cast<unsigned char>(character)) != 0;
}
