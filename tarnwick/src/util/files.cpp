// SPDX-License-Identifier: MIT
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include "util.hpp"

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
