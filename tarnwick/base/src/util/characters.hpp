// SPDX-License-Identifier: MIT
// The <cctype> functions for a plain char: they take no negative values, which a
// byte above 127 is.
#pragma once

#include <cctype>

inline bool isSpace(char character) {
    return std::isspace(static_cast<unsigned char>(character)) != 0;
}

inline bool isHexDigit(char character) {
    return std::isxdigit(static_cast<unsigned char>(character)) != 0;
}
