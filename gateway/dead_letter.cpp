// SPDX-License-Identifier: MIT
#include "dead_letter.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "lines.hpp"
#include "twctl/sockets.hpp"

namespace {

std::string jsonText(std::string_view text) {
    return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

// The name of a new file has to survive a loss of power as well.
bool syncFolderOf(const std::string& file) {
    const std::string folder = std::filesystem::path(file).parent_path().string();
    const descriptor_s open{::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
    return open.fd >= 0 && ::fsync(open.fd) == 0;
}

// Appends a line behind the last whole one and syncs. False with errno; `full` when there is not room for
// it. The file is opened each time: people may move it away at any moment.
bool append(const std::string& file, const std::string& line, std::uint64_t mostBytes, bool* full) {
    const descriptor_s open{::open(file.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC | O_NONBLOCK, 0640)};
    struct stat status {};
    if (open.fd < 0 || ::fstat(open.fd, &status) != 0) {
        return false;
    }
    if (!S_ISREG(status.st_mode)) {
        errno = EINVAL;
        return false;
    }
    const off_t size = wholeLines(open.fd);  // a kill may have left half a line
    if (size < 0 || (size != status.st_size && ::ftruncate(open.fd, size) != 0)) {
        return false;
    }
    *full = size > 0 && static_cast<std::uint64_t>(size) + line.size() > mostBytes;
    return *full || (appendWhole(open.fd, size, line) && ::fdatasync(open.fd) == 0 &&
                     (size > 0 || syncFolderOf(file)));
}

}  // namespace

dead_letter_c::dead_letter_c(const sink_config_s& config)
    : sink(config.name), file(config.deadLetterFile), mostBytes(config.deadLetterBytes) {}

std::optional<std::string> dead_letter_c::keep(const entry_s& entry, std::string_view reason) {
    const std::string line = R"({"at":")" + utcText(nowMicroseconds()) + R"(","sink":)" + jsonText(sink) +
                             R"(,"reason":)" + jsonText(reason) + R"(,"event":)" + structuredEvent(entry) +
                             "}\n";
    bool full = false;
    bool kept = append(file, line, mostBytes, &full);
    if (full) {
        kept = std::rename(file.c_str(), (file + ".1").c_str()) == 0 && append(file, line, mostBytes, &full);
    }
    return kept ? std::nullopt : std::optional(file + ": " + std::strerror(errno));
}
