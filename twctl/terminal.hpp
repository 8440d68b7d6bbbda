// SPDX-License-Identifier: MIT
// Lines that are drawn again and again at one place of the terminal on standard output.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

// As the terminal is now; the usual size where there is none or it does not tell.
struct terminal_size_s {
    std::size_t rows = 24, columns = 80;
};
terminal_size_s terminalSize();

// Draws over the last drawing; what is too long for a row is cut. `*drawn` is the number of lines
// that stand there, 0 at first. Returns 0 or the errno of the write.
int drawLines(const std::vector<std::string>& lines, std::size_t* drawn);
