// SPDX-License-Identifier: MIT
// Text tables of tests; a table is in the folder of the test that plays it:
//
//   # a comment
//   == words                begins a section and is its heading
//   left => right           a row; a side may be empty
//       another line        one more line of the right side, behind four blanks
//
// Empty lines are skipped. A side is taken as it is, except for "\n", which is a line end,
// "\x20", a blank at the end of a side, and "<3*text>", the text three times. The comment at the
// top of a table says what its headings and sides mean.
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

// `name` is a path below tests/. Throws std::runtime_error when the file does not exist, or, with
// the line, when a line does not have one of these forms.
std::vector<table_section_s> readTable(const std::string& name);

// The rows of a table that has only one section.
std::vector<table_row_s> readRows(const std::string& name);
