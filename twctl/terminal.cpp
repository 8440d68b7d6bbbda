// SPDX-License-Identifier: MIT
// The control sequences are those of ECMA-48, 8.3: cursor up (CSI A), erase in line (CSI K) and
// erase in page (CSI J).
#include "terminal.hpp"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

terminal_size_s terminalSize() {
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_row == 0 || size.ws_col == 0) {
        return {};
    }
    return {size.ws_row, size.ws_col};
}

// One write for the whole drawing: cursor up, each line with its old rest erased, and what is left
// of a longer drawing erased.
int drawLines(const std::vector<std::string>& lines, std::size_t* drawn) {
    const terminal_size_s size = terminalSize();
    std::string text;
    if (*drawn > 0) {
        text = "\x1b[" + std::to_string(std::min(*drawn, size.rows - 1)) + "A\r";
    }
    for (const std::string& line : lines) {
        text += line.substr(0, size.columns) + "\x1b[K\n";
    }
    text += "\x1b[J";
    *drawn = lines.size();
    errno = 0;
    const bool written =
        std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
    return written ? 0 : (errno != 0 ? errno : EIO);
}
