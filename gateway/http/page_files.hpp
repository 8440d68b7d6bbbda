// SPDX-License-Identifier: MIT
// The files of the live page, compiled into the program: it serves these and no other, wherever it is
// installed, and no path of a request reaches the disk.
#pragma once

#include <span>
#include <string_view>

struct page_file_s {
    std::string_view path;  // "/page.js"; the page itself is "/"
    std::string_view text;
};

// The files of the folder page/, and the chart library if the machine that built the program has it.
std::span<const page_file_s> pageFiles();

// By the ending of the path.
std::string_view contentTypeOf(std::string_view path);
