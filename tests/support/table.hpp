// SPDX-License-Identifier: MIT
// Text tables of tests, which stand beside the test that plays them:
//
//   # a comment
//   == words                begins a section and is its heading
//   left => right           a row; a side may be empty
//       another line        one more line of the right side, behind four blanks
//
// Lines that are empty count for nothing. Sides are taken as they stand, but for "\n", which
// is a line end, "\x20", a blank at the end of a side, and "<3*text>", the text three times.
// What headings and sides mean to a test is told at the top of its table.
#pragma once

#include <string>
#include <vector>

struct table_row_s {
    std::string left, right;
};

struct table_section_s {
    std::string heading;  // empty for rows before the first heading
    std::vector<table_row_s> rows;

    // The right side of the row with this left side, or nothing.
    std::string of(const std::string& left) const;
};

// `name` is a path below tests/. Throws std::runtime_error, which names the line, when there is
// no such file or a line is none of the above.
std::vector<table_section_s> readTable(const std::string& name);

// The rows of a table that has only one section.
std::vector<table_row_s> readRows(const std::string& name);
