// SPDX-License-Identifier: MIT
#include "lines.hpp"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

off_t wholeLines(int fd) {
    std::array<char, 4096> block{};
    for (off_t end = ::lseek(fd, 0, SEEK_END); end != 0;) {
        const off_t begin = std::max<off_t>(0, end - static_cast<off_t>(block.size()));
        const ssize_t count = ::pread(fd, block.data(), static_cast<std::size_t>(end - begin), begin);
        if (end < 0 || count != end - begin) {
            return -1;
        }
        const std::string_view text(block.data(), static_cast<std::size_t>(count));
        if (const std::size_t line = text.rfind('\n'); line != text.npos) {
            return begin + static_cast<off_t>(line) + 1;
        }
        end = begin;
    }
    return 0;
}

bool appendWhole(int fd, off_t size, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = ::write(fd, text.data(), text.size());
        if (count < 0 && errno != EINTR) {
            const int cause = errno;
            errno = ::ftruncate(fd, size) == 0 ? cause : errno;
            return false;
        }
        text.remove_prefix(count > 0 ? static_cast<std::size_t>(count) : 0);
    }
    return true;
}
