// SPDX-License-Identifier: MIT
#include "files.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace rxe {
namespace {

std::string readAll(int file, std::size_t most, auto* content) {
    struct stat status {};
    if (::fstat(file, &status) != 0) {
        return std::string("cannot be read: ") + std::strerror(errno);
    }
    if (!S_ISREG(status.st_mode)) {
        return "is not a regular file";
    }
    const std::string tooLong = "has more than " + std::to_string(most >> 20) + " MiB";
    if (static_cast<std::size_t>(status.st_size) > most) {
        return tooLong;
    }
    // One byte more, to notice a file that grows meanwhile; files of /proc have size 0.
    content->resize(static_cast<std::size_t>(status.st_size) + 1);
    for (std::size_t size = 0;;) {
        const ssize_t got = ::read(file, content->data() + size, content->size() - size);
        if (got < 0) {
            return std::string("cannot be read: ") + std::strerror(errno);
        }
        size += static_cast<std::size_t>(got);
        if (got == 0 || size > most) {
            content->resize(size);
            return got == 0 ? "" : tooLong;
        }
        if (size == content->size()) {
            content->resize(2 * size);
        }
    }
}

// O_NONBLOCK, so that a pipe without a writer does not make it wait.
std::string openAndRead(const char* path, std::size_t most, auto* content) {
    const int file = ::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (file < 0) {
        return std::string("cannot be opened: ") + std::strerror(errno);
    }
    std::string fault = readAll(file, most, content);
    ::close(file);
    return fault;
}

}  // namespace

std::string readFile(const char* path, std::size_t most, std::string* content) {
    return openAndRead(path, most, content);
}

std::string readFile(const char* path, std::size_t most, std::vector<std::uint8_t>* content) {
    return openAndRead(path, most, content);
}

}  // namespace rxe
