// SPDX-License-Identifier: MIT
// The names of a table's rows, in their order, for the help and for messages.
#pragma once

#include <string>

// "first, second, third", of rows that have a `name`.
template <class Table>
std::string tableNames(const Table& table) {
    std::string names;
    for (const auto& row : table) {
        names += (names.empty() ? "" : ", ") + std::string(row.name);
    }
    return names;
}
