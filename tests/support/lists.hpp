// SPDX-License-Identifier: MIT
#pragma once

#include <string>

// `count` times the element, with a comma between them, for a JSON array.
inline std::string listOf(int count, const std::string& element) {
    std::string list = element;
    for (int i = 1; i < count; ++i) {
        list += "," + element;
    }
    return list;
}
