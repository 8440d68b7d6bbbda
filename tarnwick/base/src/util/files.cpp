// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "util.hpp"
#include "util/descriptor.hpp"

namespace {

constexpr const char* notRegular = "not a regular file";
constexpr const char* tooLarge = "larger than 16 MiB";

std::string withPath(const std::string& path, const char* text) {
    return path + ": " + text;
}

// The path and the system's last error (errno).
std::string withPath(const std::string& path) {
    return withPath(path, std::strerror(errno));
}

// The path to which the symbolic links from `path` lead; the file may be missing. For a ring of links
// it is one of them, which no later step can open.
std::string behindLinks(const std::string& path) {
    constexpr int mostLinks = 40;  // as the kernel's
    std::filesystem::path at = path;
    std::error_code none;
    for (int links = 0; links < mostLinks && std::filesystem::is_symlink(at, none); ++links) {
        at = at.parent_path() / std::filesystem::read_symlink(at, none);
    }
    return at.string();
}

std::string folderOf(const std::string& path) {
    const std::string folder = std::filesystem::path(path).parent_path().string();
    return folder.empty() ? "." : folder;
}

// Makes sure that a rename in this folder is on the disk.
bool syncFolder(const std::string& folder, std::string* cause) {
    const descriptor open(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    // Some file systems cannot sync a folder and return EINVAL.
    if (open.get() < 0 || (fsync(open.get()) != 0 && errno != EINVAL)) {
        *cause = withPath(folder);
        return false;
    }
    return true;
}

bool writeAll(int file, std::string_view content) {
    while (!content.empty()) {
        const ssize_t written = write(file, content.data(), content.size());
        if (written < 0 && errno != EINTR) {
            return false;
        }
        content.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(written, 0)));
    }
    return true;
}

// Whether `path` may be replaced: it is a regular file, or does not exist. Fills `*old`; its mode is 0
// when the file does not exist.
bool isReplaceable(const std::string& path, struct stat* old, std::string* cause) {
    *old = {};
    if (stat(path.c_str(), old) != 0) {
        old->st_mode = 0;
        if (errno == ENOENT) {
            return true;
        }
        *cause = withPath(path);
        return false;
    }
    if (!S_ISREG(old->st_mode)) {
        *cause = withPath(path, notRegular);
        return false;
    }
    return true;
}

// Creates, writes and syncs the file, in place of one that an earlier run may have left. It gets the
// owner and the rights of `old`, if that exists.
bool writeNewFile(const std::string& path, std::string_view content, const struct stat& old) {
    constexpr mode_t readableByAll = 0666;  // less the umask
    unlink(path.c_str());
    const descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, readableByAll));
    if (file.get() < 0) {
        return false;
    }
    if (old.st_mode != 0) {
        // Without the right to give files away the owner is the user that writes.
        const bool isGiven = fchown(file.get(), old.st_uid, old.st_gid) == 0 || errno == EPERM;
        if (!isGiven || fchmod(file.get(), old.st_mode & 07777) != 0) {
            return false;
        }
    }
    return writeAll(file.get(), content) && fsync(file.get()) == 0;
}

}  // namespace

file_read_e readRegularFile(const std::string& path, std::string* content, std::string* cause) {
    // O_NONBLOCK: a pipe without a writer must not make the process wait.
    const descriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (file.get() < 0) {
        *cause = errno == ENOENT ? "" : withPath(path);
        return file_read_e::notOpened;
    }
    struct stat found = {};
    if (fstat(file.get(), &found) != 0 || !S_ISREG(found.st_mode)) {
        *cause = withPath(path, notRegular);
        return file_read_e::refused;
    }
    std::string text;
    char block[64 * 1024];
    for (;;) {
        const ssize_t count = read(file.get(), block, sizeof block);
        if (count == 0) {
            break;
        }
        if (count < 0) {
            *cause = withPath(path);
            return file_read_e::refused;
        }
        text.append(block, static_cast<std::size_t>(count));
        if (text.size() > maxFileSize || found.st_size > static_cast<off_t>(maxFileSize)) {
            *cause = withPath(path, tooLarge);
            return file_read_e::refused;
        }
    }
    *content = std::move(text);
    return file_read_e::done;
}

bool replaceFile(const std::string& path, std::string_view content, std::string* cause) {
    if (content.size() > maxFileSize) {
        *cause = withPath(path, tooLarge);
        return false;
    }
    const std::string target = behindLinks(path);
    const std::string beside = target + ".new";
    struct stat old = {};
    if (!isReplaceable(target, &old, cause)) {
        return false;
    }
    if (!writeNewFile(beside, content, old)) {
        *cause = withPath(beside);
        unlink(beside.c_str());
        return false;
    }
    if (std::rename(beside.c_str(), target.c_str()) != 0) {
        *cause = withPath(target);
        unlink(beside.c_str());
        return false;
    }
    return syncFolder(folderOf(target), cause);
}

bool keepFileAs(const std::string& path, const std::string& suffix, std::string* kept, std::string* cause) {
    const std::string target = behindLinks(path);
    struct stat old = {};
    *kept = target + suffix;
    if (!isReplaceable(target, &old, cause)) {
        return false;
    }
    if (std::rename(target.c_str(), kept->c_str()) != 0) {
        *cause = withPath(*kept);
        return false;
    }
    return syncFolder(folderOf(target), cause);
}

int changeFileOwnerAndGroup(const std::string& user, const std::string& group, const std::string& path) {
    constexpr mode_t ownerAndGroupAllOthersEnter = 0771;
    const struct group* const groupEntry = getgrnam(group.c_str());
    if (groupEntry == nullptr) {
        return -1;
    }
    const struct passwd* const userEntry = getpwnam(user.c_str());
    if (userEntry == nullptr || chown(path.c_str(), userEntry->pw_uid, groupEntry->gr_gid) != 0) {
        return -1;
    }
    return chmod(path.c_str(), ownerAndGroupAllOthersEnter) == 0 ? 0 : -1;
}
